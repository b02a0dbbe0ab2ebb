#pragma once
#include <infra/Disk_Export.h>
#include <infra/Klb_LockFile.h>

/// The lock on a directory of the file-set: a lock file called "LOCKFILE" in it.
class DISK_EXPORT Disk_LockManager : public Klb_LockFile {
public:
  /// `directory` may be null for the working directory. Creates the lock file unless `read_only`; a read-only
  /// file-set without a lock file works without locks. 0, or -1.
  [[nodiscard]] int Init(char const* directory, int read_only);
};
