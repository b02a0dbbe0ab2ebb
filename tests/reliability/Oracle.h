// What must be true of a file-set after a fault.
#pragma once

#include "Operations.h"

#include <infra/Util_FileSystem.h>

constexpr auto kDurable = Util_Durability::Full, kRelaxed = Util_Durability::Relaxed;

/// Operations one after the other, on the file-set of a case.
struct Play {
  Case const* c;
  struct Act {
    Operation const* operation;
    Util_Durability durability;
  };
  std::vector<Act> acts;
  bool one_root;             // and not a root object for each of them, that knows nothing of those before
  std::vector<Model> models; // what the file-set holds before the first one, and after each
  int meeting = 0;           // the first is another writer's, in front of this call for the epoch by the second one's
  bool has_lost_power = true;

  Play(Case const& first, std::vector<Act> wanted, bool one_root_for_all = false);
  /// Whether the first operations are, and what they found was sound.
  bool IsDurable(std::size_t first) const;
  std::string Name() const;

  /// Throws unless each thing that is found is as it may be when `acked` operations had returned: as it was then or as
  /// it was to be, durable ones counting.
  void Compare(std::size_t acked, Model const& found) const;
  /// Of an object that no durable operation has acknowledged a power cut may leave anything.
  bool MayBeAnything(std::size_t acked, std::string const& uid) const;
};

/// What became of the operation: it gave 0; it failed or was killed.
enum class Outcome { Unknown, Done };

/// Throws a Complaint unless, in this order, the check finds no damage; a reader who can't write sees everything
/// acknowledged, and of what was in flight each object as it was or as it was to be; so does the next open, without
/// help; opening once more changes nothing; the operation, done again, reaches its end; and one more store works.
/// `again` is by whom it is done again; null stands for a new root object. It leaves the file-set changed.
void Judge(Case const& c, Site const& site, Outcome outcome, Session* again = nullptr);

/// The first part of it, up to the next open: what is true at any time.
Model JudgeState(Case const& c, Site const& site, Outcome outcome);

/// The operation is done again, and a further object stored by the other session, which it gives.
std::unique_ptr<IOD_Msg> DoAgain(Case const& c, Session& again, Session& other);
