#pragma once
#include "Disk/files/Disk_Names.h"

#include <Disk/Disk_FileID.h>
#include <infra/Klb_LockFile.h>

#include <array>
#include <span>
#include <string>
#include <string_view>

/// What keeps relaxed operations from harming what was durable before them (docs/durability.md).
///
/// From the first relaxed operation on until everything is synced, the folder RELAXED stands in the file-set. BOOT in
/// it tells in which boot of the machine that was, and is the lock that relaxed operations share. Beside it stands a
/// synced copy of each directory file that was replaced, or written to, without a sync. Files written in this boot are
/// whole whatever the disk holds; who opens a file-set with a BOOT of an earlier one looks at all its directory files
/// and takes the copies of those that a power cut tore.
class Disk_RelaxedEpoch {
public:
  /// `recover` is called for an epoch of an earlier boot, and brings its files in order: 0, or -1.
  using Recovery = int (*)(std::string const& prefix);
  Disk_RelaxedEpoch(std::string prefix, std::string structure, Recovery recover);

  // What a relaxed operation holds from its beginning to its end, outside of all other locks. BOOT lasts once a
  // first copy does.
  int LockShared();
  int UnlockShared() { return lock_.UnlockShared(); }
  int UnlockExclusive() { return lock_.UnlockExclusive(); }

  /// Before a private directory file is replaced without a sync, or made, if it `is_new`. 0; or -1, and then it must be
  /// synced.
  static int Keep(Disk_FileID const& id, bool is_new);
  /// The same for a standard DICOMDIR, before it is written to.
  static int Keep(std::string const& dicomdir);
  /// After a directory file was synced, or removed: its copy has no meaning any more. 0, or -1 with errno.
  static int Forget(Disk_FileID const& id);
  static int Forget(std::string const& dicomdir);
  /// Whether something in the file-set may not have been synced: 1 or 0; -1 with errno when that can't be told.
  static int IsOpen(std::string const& prefix);

  /// Syncs the file system, and forgets all copies. Waits for relaxed operations. 0, or -1 with errno.
  static int End(std::string const& prefix);
  /// Whether an earlier boot of the machine ended with unsynced files: 1 or 0; -1 with errno when that can't be told.
  static int NeedsRecovery(std::string const& prefix);
  /// The end of an epoch, and of RELAXED: 0, or -1 with errno.
  static int RemoveCopies(std::string const& folder);

  /// The preamble that tells an unsynced directory file, whose bytes follow it, from a torn one.
  static constexpr std::size_t kPreamble = 128;
  static std::array<char, kPreamble> Mark(std::span<std::string_view const> bytes_behind);
  /// Whether a file is as it was written: always true for one that was synced.
  static bool IsWhole(std::string_view file);

  static constexpr char const* kFolder = Disk_Names::kRelaxed;

private:
  std::string const& content();
  int make_boot_last(bool is_written);
  using FileState = std::array<long, 3>; // inode, and when it was written
  bool is_lasting() const;
  int look_at_boot(FileState* state) const;
  /// The boot of this machine; empty where none can be told.
  static std::string boot_id();

  std::string prefix_, boot_, content_; // of BOOT
  FileState lasting_{};                 // of the BOOT that was synced
  std::string structure_;               // its name, which BOOT tells
  Recovery recover_;
  Klb_LockFile lock_;
  bool initialised_ = false;
};
