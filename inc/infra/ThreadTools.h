// Mutual exclusion of threads.
#pragma once

#include <infra/Disk_Export.h>

#include <mutex>

/// A lock that isn't recursive: a thread that acquires it twice waits for itself.
class DISK_EXPORT RWMutexLock {
public:
  RWMutexLock() = default;
  RWMutexLock(RWMutexLock const&) = delete;
  RWMutexLock& operator=(RWMutexLock const&) = delete;

  void acquire() { mutex_.lock(); }
  void release() { mutex_.unlock(); }

private:
  std::mutex mutex_;
};

class DISK_EXPORT Mutex : public RWMutexLock {};

/// Holds a mutex for a scope. The flag says that the holder is going to write; a Mutex has one kind of hold
/// for both.
class [[nodiscard]] DISK_EXPORT ThreadAPI_LockGuard {
public:
  ThreadAPI_LockGuard(Mutex& mutex, bool /*write*/) : mutex_(mutex) { mutex_.acquire(); }
  ~ThreadAPI_LockGuard() { mutex_.release(); }
  ThreadAPI_LockGuard(ThreadAPI_LockGuard const&) = delete;
  ThreadAPI_LockGuard& operator=(ThreadAPI_LockGuard const&) = delete;

private:
  Mutex& mutex_;
};
