// Power cuts: operations are played and recorded, states of the disk are built from the record, and each is judged as
// what the machine finds when it starts anew.
//
//   Play const play(c, {{&operation, Util_Durability::Full}});
//   Recording const recording = Record(play, place);
//   ForEachState(play, recording, kNoStep, extent, seed, [&](State const& state) {
//     JudgeCut(play, state, place, true); // throws what is wrong
//     return true;
//   });
#pragma once

#include "Campaign.h"
#include "PowerLog.h"

#include <functional>
#include <infra/Util_FileSystem.h>
#include <string>
#include <vector>

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

  Play(Case const& first, std::vector<Act> wanted, bool one_root_for_all = false);
  /// Whether the first operations are, and what they found was sound.
  bool IsDurable(std::size_t first) const;
  std::string Name() const;
};

/// Each case by itself, at either level; and some operations one after the other.
std::vector<Play> Plays(std::vector<Case> const& cases);

/// What was done to the file system, and how many steps that were when each operation returned 0.
struct Recording {
  Tree start;
  std::vector<Step> steps;
  std::vector<std::size_t> done;
};

/// Plays it in `place`.
Recording Record(Play const& play, std::string const& place);

/// What the disk holds when the power goes.
struct State {
  Disk::Image image;
  std::size_t position, acked; // steps, and operations that had returned
  bool sound;                  // nothing else is under way, and all was durable
};

constexpr std::size_t kNoStep = SIZE_MAX;

/// How thoroughly the states of a play are gone through.
struct Extent {
  std::size_t states = kNoStep; // at most
  std::size_t positions = 1;    // each so manieth, and those at which an operation returned
  std::size_t at_random = 0;    // states of one position, besides the corners
  std::size_t of_one = kNoStep; // states of one position, in all
};

/// Hands the distinct states after the steps to `judge` until that gives false. `skipped` is a sync that is left out:
/// then those from there to where the others have made up for it.
void ForEachState(Play const& play, Recording const& recording, std::size_t skipped, Extent const& extent,
                  unsigned seed, std::function<bool(State)> const& judge);

/// Makes the state in `place`, starts the machine, and throws what is wrong. A thorough judgement does the operation
/// again, and stores another object.
void JudgeCut(Play const& play, State const& cut, std::string const& place, bool thorough);

/// Leaves out each sync that the engine makes; some state must show it. Counts them in `second`, those that nothing
/// shows in `third`.
void LeaveSyncsOut(std::vector<Play> const& plays, unsigned seed, std::string const& place, Share& share);
