#include "NeverDestroyed.h"
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <infra/Util_FileSystemInterface.h>
#include <memory>
#include <sys/file.h>
#include <unistd.h>

namespace {

using Entry = Util_FileSystemInterface::Entry;

std::atomic<Util_FileSystemInterface*> s_current{nullptr};

// False when the entry has vanished meanwhile.
bool find_type(int directory, dirent const& found, Entry::Type& type) {
  mode_t mode = DTTOIF(found.d_type);
  if (found.d_type == DT_UNKNOWN) { // some file systems don't keep the type in the directory
    struct stat status;
    if (fstatat(directory, found.d_name, &status, AT_SYMLINK_NOFOLLOW) == -1) return false;
    mode = status.st_mode;
  }
  type = S_ISREG(mode) ? Entry::Regular : S_ISDIR(mode) ? Entry::Directory : S_ISLNK(mode) ? Entry::Link : Entry::Other;
  return true;
}

} // namespace

Util_FileSystemInterface::~Util_FileSystemInterface() = default;

Util_FileSystemInterface& Util_FileSystemInterface::Current() noexcept {
  static NeverDestroyed<Util_FileSystemInterface> posix;
  Util_FileSystemInterface* const current = s_current.load(std::memory_order_acquire);
  return current ? *current : *posix;
}

void Util_FileSystemInterface::SetCurrent(Util_FileSystemInterface* file_system) noexcept {
  s_current.store(file_system, std::memory_order_release);
}

int Util_FileSystemInterface::Open(char const* path, int flags, mode_t mode) { return ::open(path, flags, mode); }

int Util_FileSystemInterface::Close(int fd) { return ::close(fd); }

ssize_t Util_FileSystemInterface::Read(int fd, void* data, size_t size) { return ::read(fd, data, size); }

ssize_t Util_FileSystemInterface::Write(int fd, void const* data, size_t size) { return ::write(fd, data, size); }

ssize_t Util_FileSystemInterface::Pread(int fd, void* data, size_t size, off_t offset) {
  return ::pread(fd, data, size, offset);
}

ssize_t Util_FileSystemInterface::Pwrite(int fd, void const* data, size_t size, off_t offset) {
  return ::pwrite(fd, data, size, offset);
}

ssize_t Util_FileSystemInterface::Writev(int fd, iovec const* parts, int count) { return ::writev(fd, parts, count); }

off_t Util_FileSystemInterface::Lseek(int fd, off_t offset, int whence) { return ::lseek(fd, offset, whence); }

int Util_FileSystemInterface::Fstat(int fd, struct stat* status) { return ::fstat(fd, status); }

int Util_FileSystemInterface::Stat(char const* path, struct stat* status) { return ::stat(path, status); }

int Util_FileSystemInterface::Lstat(char const* path, struct stat* status) { return ::lstat(path, status); }

int Util_FileSystemInterface::Statvfs(char const* path, struct statvfs* status) { return ::statvfs(path, status); }

int Util_FileSystemInterface::Access(char const* path, int mode) { return ::access(path, mode); }

int Util_FileSystemInterface::Rename(char const* from, char const* to) { return ::rename(from, to); }

int Util_FileSystemInterface::Exchange(char const* a, char const* b) {
  return ::renameat2(AT_FDCWD, a, AT_FDCWD, b, RENAME_EXCHANGE);
}

int Util_FileSystemInterface::Link(char const* from, char const* to) { return ::link(from, to); }

int Util_FileSystemInterface::Unlink(char const* path) { return ::unlink(path); }

int Util_FileSystemInterface::Mkdir(char const* path, mode_t mode) { return ::mkdir(path, mode); }

int Util_FileSystemInterface::Rmdir(char const* path) { return ::rmdir(path); }

int Util_FileSystemInterface::Ftruncate(int fd, off_t size) { return ::ftruncate(fd, size); }

int Util_FileSystemInterface::Fsync(int fd) { return ::fsync(fd); }

int Util_FileSystemInterface::Fdatasync(int fd) { return ::fdatasync(fd); }

int Util_FileSystemInterface::SyncFileRange(int fd, off_t offset, off_t size, unsigned flags) {
  return ::sync_file_range(fd, offset, size, flags);
}

int Util_FileSystemInterface::Syncfs(int fd) { return ::syncfs(fd); }

int Util_FileSystemInterface::Flock(int fd, int operation) { return ::flock(fd, operation); }

int Util_FileSystemInterface::List(char const* path, std::vector<Entry>& entries) {
  entries.clear();
  std::unique_ptr<DIR, int (*)(DIR*)> const directory(opendir(path), closedir);
  if (!directory) return -1;
  for (;;) {
    errno = 0;
    dirent const* const found = readdir(directory.get());
    if (!found) break;
    if (std::strcmp(found->d_name, ".") == 0 || std::strcmp(found->d_name, "..") == 0) continue;
    Entry::Type type;
    if (find_type(dirfd(directory.get()), *found, type)) entries.push_back({found->d_name, type});
  }
  if (errno == 0) return 0;
  int const error = errno;
  entries.clear();
  errno = error;
  return -1;
}
