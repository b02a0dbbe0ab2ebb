#include "infra/Klb_Failure.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <infra/Klb_LockFile.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

// How often a lock is taken on a file that turns out to be gone before we give up.
constexpr int max_attempts = 100;

std::atomic<int> forks{0};

// Another number in a child of a fork than in its parent. Each lock and unlock asks for it: a system call for the
// process' ID would cost half as much as the lock.
int this_process() {
  static bool const is_counted = pthread_atfork(nullptr, nullptr, [] { ++forks; }) == 0;
  return is_counted ? forks.load() : getpid();
}

Util_FileSystemInterface& system_calls() { return Util_FileSystemInterface::Current(); }

int fail(char const* what, char const* verb, std::string const& path) {
  return DISK_FAIL(Klb_System(errno, verb, path), "%s %s: errno %d\n", what, path.c_str(), errno);
}

// 0, 1 if somebody else holds the lock and the operation doesn't wait, or -1.
int flock_file(int fd, int operation) {
  int result = system_calls().Flock(fd, operation);
  while (result == -1 && errno == EINTR)
    result = system_calls().Flock(fd, operation);
  return result == -1 && errno == EWOULDBLOCK && (operation & LOCK_NB) ? 1 : result;
}

} // namespace

Klb_LockFile::~Klb_LockFile() { close_file(); }

int Klb_LockFile::Init(char const* directory, char const* file_name, int read_only) {
  close_file();
  directory_ = directory && *directory ? directory : ".";
  path_ = file_name ? file_name : "";
  read_only_ = read_only != 0;
  if (path_.empty()) {
    errno = EINVAL;
    return fail("No name for the lock file in", "lock", directory_);
  }
  if (open_file() == 0) return 0;
  int const error = errno;
  path_.clear();
  errno = error;
  return -1;
}

int Klb_LockFile::LockShared() { return lock(LOCK_SH); }

int Klb_LockFile::LockExclusive() { return lock(LOCK_EX); }

int Klb_LockFile::Pin() {
  if (path_.empty()) {
    errno = EBADF;
    return fail("A lock without a lock file", "lock", path_);
  }
  if (file_ && (process_ != this_process() || !stands_at_path())) close_file();
  return file_ ? 0 : open_file();
}

int Klb_LockFile::LockPinned() { return lock_open_file(LOCK_EX); }

int Klb_LockFile::RelockShared() {
  if (file_ && process_ == this_process()) return take(LOCK_SH);
  errno = ESTALE;
  return -1;
}

bool Klb_LockFile::IsInPlace() const {
  errno = ESTALE;
  if (file_ && stands_at_path()) return true;
  fail("Not the file that was locked:", "find the locked file again at", path_);
  return false;
}

int Klb_LockFile::TryLockExclusive() { return lock(LOCK_EX | LOCK_NB); }

int Klb_LockFile::UnlockShared() { return unlock(); }

int Klb_LockFile::UnlockExclusive() { return unlock(); }

// Leaves file_ empty after 0 when a reader goes without a lock file.
int Klb_LockFile::open_file() {
  // A pipe that stands there must not make us wait; a link might lead to a lock that we hold.
  int const flags = (read_only_ ? O_RDONLY : O_RDWR | O_CREAT) | O_NONBLOCK | O_NOFOLLOW;
  Util_FileDescriptor file = Util_FileSystem::Open(path_.c_str(), flags);
  struct stat status;
  if (!file && read_only_ && errno == EACCES) return 0;
  if (!file && read_only_ && errno == ENOENT && system_calls().Access(directory_.c_str(), F_OK) == 0) return 0;
  if (!file) return fail("Can't open lock file", "open the lock file", path_);
  if (system_calls().Fstat(file.Get(), &status) == -1)
    return fail("Can't look at lock file", "look at the lock file", path_);
  device_ = status.st_dev;
  inode_ = status.st_ino;
  process_ = this_process();
  file_ = std::move(file);
  return 0;
}

bool Klb_LockFile::stands_at_path() const {
  struct stat status;
  return system_calls().Stat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

int Klb_LockFile::lock(int operation) {
  if (path_.empty()) {
    errno = EBADF;
    return fail("A lock without a lock file", "lock", path_);
  }
  // A child of a fork has the parent's open file, on which the two don't exclude each other.
  if (process_ != this_process()) close_file();
  for (int attempt = 0; attempt < max_attempts; ++attempt) {
    if (!file_ && open_file() == -1) return -1;
    int const result = lock_open_file(operation);
    if (result != -1 || errno != ESTALE) return result;
  }
  errno = EAGAIN;
  return fail("The lock file doesn't stay", "keep the lock file", path_);
}

// 0, 1 if somebody else holds the lock and the operation doesn't wait, or -1: with ESTALE, and nothing is logged, when
// the file has lost its path meanwhile.
int Klb_LockFile::lock_open_file(int operation) {
  if (!file_) return 0; // as a reader goes without one
  int const result = take(operation);
  if (result != 0 || stands_at_path()) return result;
  close_file();
  errno = ESTALE;
  return -1;
}

// 0, 1 or -1, as above, wherever the file stands by now.
int Klb_LockFile::take(int operation) {
  int const result = flock_file(file_.Get(), operation);
  if (result == 0) {
    held_ = true;
    return 0;
  }
  release();
  return result == 1 ? 1 : fail("Can't lock", "lock", path_);
}

int Klb_LockFile::unlock() {
  // What a child of a fork finds held is its parent's.
  bool const ours = held_ && process_ == this_process();
  held_ = false;
  if (!ours || flock_file(file_.Get(), LOCK_UN) == 0) return 0;
  fail("Can't unlock", "unlock", path_);
  file_ = Util_FileDescriptor(); // which ends the lock all the same
  return -1;
}

// Closing alone wouldn't do: a child of a fork that still has the file open would go on holding. What was tried in
// vain keeps its cause.
void Klb_LockFile::release() {
  Klb_Quiet const quiet;
  int const error = errno;
  unlock();
  errno = error;
}

void Klb_LockFile::close_file() {
  release();
  file_ = Util_FileDescriptor();
}

Klb_LockGuard::Klb_LockGuard(Klb_LockFile& file, Mode mode) : mode_(mode) {
  if ((mode == Shared ? file.LockShared() : file.LockExclusive()) == 0) file_ = &file;
}

Klb_LockGuard::Klb_LockGuard(Klb_LockGuard&& other) noexcept
    : file_(std::exchange(other.file_, nullptr)), mode_(other.mode_) {}

Klb_LockGuard& Klb_LockGuard::operator=(Klb_LockGuard&& other) noexcept {
  if (this != &other) {
    Release();
    file_ = std::exchange(other.file_, nullptr);
    mode_ = other.mode_;
  }
  return *this;
}

void Klb_LockGuard::Release() {
  Klb_LockFile* const file = std::exchange(file_, nullptr);
  if (!file) return;
  Klb_Quiet const quiet;
  int const error = errno;
  if (mode_ == Shared)
    file->UnlockShared();
  else
    file->UnlockExclusive();
  errno = error;
}
