// A file system whose calls can be made to fail or to move few bytes, current for its scope.
//
//   FaultyFileSystem faulty([](std::string_view call, char const*) { return call == "Rename" ? EIO : 0; });
#pragma once

#include <cerrno>
#include <climits>
#include <functional>
#include <infra/Util_FileSystemInterface.h>
#include <map>
#include <string>
#include <string_view>
#include <sys/file.h>

class FaultyFileSystem : public Util_FileSystemInterface {
  using Base = Util_FileSystemInterface;

public:
  // Asked in front of each call, with the path that it names, or that its descriptor was opened by: the errno to fail
  // with, or 0 to go on.
  using Before = std::function<int(std::string_view call, char const* path)>;

  explicit FaultyFileSystem(Before before = {}) : before_(std::move(before)) { SetCurrent(this); }
  ~FaultyFileSystem() override { SetCurrent(nullptr); }

  size_t most = SIZE_MAX;                // bytes that one read or write moves
  bool waits = true;                     // for locks; else they fail
  std::map<std::string_view, int> calls; // how often each was asked for

  int Open(char const* path, int flags, mode_t mode) override {
    int const fd = fails("Open", path) ? -1 : Base::Open(path, flags, mode);
    if (fd != -1) paths_[fd] = path;
    return fd;
  }
  int Close(int fd) override { // the descriptor is gone in any case
    int const result = Base::Close(fd);
    return fails("Close", fd) ? -1 : result;
  }
  ssize_t Read(int fd, void* data, size_t n) override { return fails("Read", fd) ? -1 : Base::Read(fd, data, few(n)); }
  ssize_t Write(int fd, void const* data, size_t n) override {
    return fails("Write", fd) ? -1 : Base::Write(fd, data, few(n));
  }
  ssize_t Pread(int fd, void* data, size_t n, off_t at) override {
    return fails("Pread", fd) ? -1 : Base::Pread(fd, data, few(n), at);
  }
  ssize_t Pwrite(int fd, void const* data, size_t n, off_t at) override {
    return fails("Pwrite", fd) ? -1 : Base::Pwrite(fd, data, few(n), at);
  }
  ssize_t Writev(int fd, iovec const* parts, int count) override {
    if (fails("Writev", fd)) return -1;
    if (count > IOV_MAX) return errno = EINVAL, -1;
    std::vector<iovec> cut;
    for (size_t left = most; count-- > 0 && left > 0; left -= cut.back().iov_len, ++parts)
      cut.push_back({parts->iov_base, std::min(parts->iov_len, left)});
    return Base::Writev(fd, cut.data(), static_cast<int>(cut.size()));
  }
  off_t Lseek(int fd, off_t at, int whence) override { return fails("Lseek", fd) ? -1 : Base::Lseek(fd, at, whence); }
  int Fstat(int fd, struct stat* s) override { return fails("Fstat", fd) ? -1 : Base::Fstat(fd, s); }
  int Stat(char const* path, struct stat* s) override { return fails("Stat", path) ? -1 : Base::Stat(path, s); }
  int Lstat(char const* path, struct stat* s) override { return fails("Lstat", path) ? -1 : Base::Lstat(path, s); }
  int Statvfs(char const* path, struct statvfs* s) override {
    return fails("Statvfs", path) ? -1 : Base::Statvfs(path, s);
  }
  int Access(char const* path, int mode) override { return fails("Access", path) ? -1 : Base::Access(path, mode); }
  int Rename(char const* from, char const* to) override { return fails("Rename", to) ? -1 : Base::Rename(from, to); }
  int Exchange(char const* a, char const* b) override { return fails("Exchange", b) ? -1 : Base::Exchange(a, b); }
  int Link(char const* from, char const* to) override { return fails("Link", to) ? -1 : Base::Link(from, to); }
  int Unlink(char const* path) override { return fails("Unlink", path) ? -1 : Base::Unlink(path); }
  int Mkdir(char const* path, mode_t mode) override { return fails("Mkdir", path) ? -1 : Base::Mkdir(path, mode); }
  int Rmdir(char const* path) override { return fails("Rmdir", path) ? -1 : Base::Rmdir(path); }
  int Ftruncate(int fd, off_t size) override { return fails("Ftruncate", fd) ? -1 : Base::Ftruncate(fd, size); }
  int Fsync(int fd) override { return fails("Fsync", fd) ? -1 : Base::Fsync(fd); }
  int Fdatasync(int fd) override { return fails("Fdatasync", fd) ? -1 : Base::Fdatasync(fd); }
  int SyncFileRange(int fd, off_t offset, off_t size, unsigned flags) override {
    return fails("SyncFileRange", fd) ? -1 : Base::SyncFileRange(fd, offset, size, flags);
  }
  int Syncfs(int fd) override { return fails("Syncfs", fd) ? -1 : Base::Syncfs(fd); }
  int Flock(int fd, int operation) override {
    return fails("Flock", fd) ? -1 : Base::Flock(fd, waits ? operation : operation | LOCK_NB);
  }
  int List(char const* path, std::vector<Entry>& entries) override {
    return fails("List", path) ? -1 : Base::List(path, entries);
  }

private:
  bool fails(std::string_view call, int fd) {
    auto const opened = paths_.find(fd);
    return fails(call, opened == paths_.end() ? nullptr : opened->second.c_str());
  }
  bool fails(std::string_view call, char const* path) {
    ++calls[call];
    int const error = before_ ? before_(call, path) : 0;
    if (error) errno = error;
    return error != 0;
  }
  size_t few(size_t n) const { return std::min(n, most); }

  Before before_;
  std::map<int, std::string> paths_; // of descriptors that were opened here
};
