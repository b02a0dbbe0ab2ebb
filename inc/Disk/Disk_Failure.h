#pragma once

#include <infra/Disk_Export.h>

#include <string>
#include <vector>

/// Why an operation failed.
struct Disk_Failure {
  /// The operation failed if this isn't 0: a code of Disk_Error.h. It is that of KlbGError where that is set.
  int code;
  /// The deepest cause in words: what couldn't be done, the file or folder, and what the system said. Never null.
  char const* text;
  /// The file or folder that the cause is about, if it is one; otherwise empty.
  char const* path;
};

/// Of this thread's last public operation: code 0 after a success. The operation begins without a failure, and the
/// first one it meets stays: an unlock that fails later, a destructor or a caller's line doesn't replace it. The texts
/// are the thread's own and stay good until its next operation. Texts longer than 1023 bytes are cut.
///
/// A constructor with a status is an operation; a destructor isn't.
DISK_EXPORT Disk_Failure Disk_LastFailure() noexcept;

/// What a code of a failure, or of KlbGError, means. Never null; static.
DISK_EXPORT char const* Disk_ErrorText(int code) noexcept;

/// Collects what this thread's operations met and went on past, for as long as it lives: damage in a file-set that is
/// opened with PASS_OVER_DAMAGE, a file that a delete couldn't remove, a folder that a scan couldn't read.
///
///   Disk_PassedOver passed;
///   root.Query(identifier, 1, &results);
///   for (auto const& entry : passed.Entries()) ...
///
/// Of several in one thread the youngest collects; they end in reverse order. It must end in the thread that made it.
class DISK_EXPORT Disk_PassedOver {
public:
  struct Entry {
    int code;
    std::string text, path; ///< as in Disk_Failure
  };
  static constexpr std::size_t kMost = 100; ///< what comes later is dropped

  Disk_PassedOver() noexcept;
  ~Disk_PassedOver();
  Disk_PassedOver(Disk_PassedOver const&) = delete;
  Disk_PassedOver& operator=(Disk_PassedOver const&) = delete;

  /// In the order in which they were met. An entry for which there was no memory is missing.
  std::vector<Entry> const& Entries() const { return entries_; }
  void Clear() { entries_.clear(); }

private:
  std::vector<Entry> entries_;
  void (*tell_before_)(void*, struct Klb_Failure const&);
  void* list_before_;
};
