// The one place where system calls touch a file-set. The operations are those of POSIX, results and errno
// included, and do nothing of their own: loops over EINTR and short counts stand in Util_FileSystem. The
// class itself is the real file system; a test overrides the calls that it wants to fail, delay or cut short,
// and installs its object with SetCurrent.
#pragma once

#include <infra/Disk_Export.h>

#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <vector>

class DISK_EXPORT Util_FileSystemInterface {
public:
  struct Entry {
    enum Type { Regular, Directory, Link, Other };
    std::string name;
    Type type;
  };

  Util_FileSystemInterface() = default;
  virtual ~Util_FileSystemInterface();
  Util_FileSystemInterface(Util_FileSystemInterface const&) = delete;
  Util_FileSystemInterface& operator=(Util_FileSystemInterface const&) = delete;

  static Util_FileSystemInterface& Current() noexcept;
  /// The caller keeps the object, and keeps it alive while it is current. Null brings the real file system
  /// back.
  static void SetCurrent(Util_FileSystemInterface* file_system) noexcept;

  virtual int Open(char const* path, int flags, mode_t mode);
  virtual int Close(int fd);
  virtual ssize_t Read(int fd, void* data, size_t size);
  virtual ssize_t Write(int fd, void const* data, size_t size);
  virtual ssize_t Pread(int fd, void* data, size_t size, off_t offset);
  virtual ssize_t Pwrite(int fd, void const* data, size_t size, off_t offset);
  virtual ssize_t Writev(int fd, iovec const* parts, int count);
  virtual off_t Lseek(int fd, off_t offset, int whence);
  virtual int Fstat(int fd, struct stat* status);
  virtual int Stat(char const* path, struct stat* status);
  virtual int Lstat(char const* path, struct stat* status);
  virtual int Statvfs(char const* path, struct statvfs* status);
  virtual int Access(char const* path, int mode);
  virtual int Rename(char const* from, char const* to);
  /// The files of two names take each other's, at once. -1 with ENOENT when one isn't there, with EINVAL or ENOSYS
  /// where the file system can't do it.
  virtual int Exchange(char const* a, char const* b);
  virtual int Link(char const* from, char const* to);
  virtual int Unlink(char const* path);
  virtual int Mkdir(char const* path, mode_t mode);
  virtual int Rmdir(char const* path);
  virtual int Ftruncate(int fd, off_t size);
  virtual int Fsync(int fd);
  virtual int Fdatasync(int fd);
  virtual int SyncFileRange(int fd, off_t offset, off_t size, unsigned flags);
  virtual int Syncfs(int fd);
  virtual int Flock(int fd, int operation);
  /// The entries of a directory, without `.` and `..`, in no order. 0 or -1; after -1 `entries` is empty.
  virtual int List(char const* path, std::vector<Entry>& entries);
};
