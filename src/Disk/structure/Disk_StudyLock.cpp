#include "Disk/structure/Disk_StudyLock.h"

#include "Disk/files/Disk_Guard.h"

#include <infra/Util_FileSystem.h>

#include <cerrno>

namespace {

/// 1 or 0; -1 with errno when that can't be told.
int IsLink(std::string const& path) {
  struct stat status {};
  if (Util_FileSystemInterface::Current().Lstat(path.c_str(), &status) == -1) return errno == ENOENT ? 0 : -1;
  return S_ISLNK(status.st_mode) ? 1 : 0;
}

} // namespace

Disk_FolderLock::Disk_FolderLock(Disk_FileID const& folder, bool read_only) : folder_(folder.FolderPath()) {
  // the lock in the folder of the file-set is that of the file-set, and held already
  bool const own = !folder_.empty() && folder_ != folder.GetFileSetPrefix();
  // and where a link leads no lock file is made
  errno = EINVAL;
  int const link = own ? IsLink(folder_) : -1;
  if (link != -1 && lock_.Init(folder_.c_str(), read_only || link == 1) == 0) return;
  no_lock_cause_ = errno;
  DISK_LOG(3, "Error when trying to lock study\n");
}

int Disk_FolderLock::Do(Operation operation, char const* failure) {
  if (no_lock_cause_ == 0 && (lock_.*operation)() == 0) return 0;
  if (no_lock_cause_ != 0) {
    DISK_FAIL(Klb_System(no_lock_cause_, "open the lock file in", folder_),
              "The lock file in %s can't be opened (errno=%d).\n", folder_.c_str(), no_lock_cause_);
    errno = no_lock_cause_;
  }
  int const cause = errno;
  DISK_FAIL_TEXT(failure);
  errno = cause;
  return -1;
}

int Disk_FolderLock::LockPinned() {
  if (lock_.LockPinned() == 0) return 0;
  int const cause = errno;
  DISK_LOG_TEXT(cause == ESTALE ? 6 : 3, "Error when trying to lock study exclusively\n");
  errno = cause;
  return -1;
}
