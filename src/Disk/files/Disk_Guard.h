#pragma once
#include "infra/Klb_Failure.h"

#include <Disk/Disk_Error.h>

#include <cerrno>
#include <exception>
#include <functional>
#include <new>

/// How often a step of this thread failed for the lack of memory.
inline thread_local unsigned Disk_shortages = 0;

/// Makes a success of a failure where damage is to be passed over, and tells of it. A shortage of memory is no damage:
/// it stays a failure.
class Disk_PassingOver {
public:
  explicit Disk_PassingOver(bool wanted) : wanted_(wanted) {}
  bool IsDamage() const { return before_ == Disk_shortages; }
  int Failed() const {
    if (!wanted_ || !IsDamage()) return -1;
    attempt_.PassOver();
    return 0;
  }

private:
  bool const wanted_;
  unsigned const before_ = Disk_shortages;
  Klb_Attempt const attempt_;
};

/// Runs a public operation. The only exception it can throw is `std::bad_alloc`; that becomes a log line, error 211001
/// and -1.
template <class Operation>
int Disk_Guarded(char const* name, Operation operation) noexcept {
  Klb_Operation const scope;
  int result = -1;
  try {
    result = operation();
  } catch (std::bad_alloc const&) {
    ++Disk_shortages;
    DISK_FAIL(Klb_Cause(DISK_ERROR_MEMORY).Because("out of memory"), "%s: out of memory.\n", name);
  } catch (std::exception const& e) {
    DISK_FAIL("%s: %s\n", name, e.what());
  }
  return scope.End(result);
}

/// Runs a step that ends with 0 or -1. The lack of memory in it is a failure like others: this line, this code, and -1.
template <class Step>
int Disk_Allocating(char const* text, Step step, int code = DISK_ERROR_MEMORY) {
  try {
    return step();
  } catch (std::bad_alloc const&) {
    ++Disk_shortages;
    return DISK_FAIL_TEXT(Klb_Cause(code).Because("out of memory"), text);
  }
}

/// Runs a step that ends with 0 or -1. A failure, the lack of memory too, gives this line.
template <class Step>
int Disk_Try(char const* text, Step step) {
  return Disk_Allocating(text, [&] {
    int const result = step();
    if (result == -1) DISK_FAIL_TEXT(text);
    return result;
  });
}

/// The pointers that an operation can't do without: 0; or -1, with a line and a code, when one is null.
template <class... Pointers>
int Disk_RefuseNull(char const* name, Pointers... pointers) {
  if ((... && (pointers != nullptr))) return 0;
  return DISK_FAIL(Klb_Cause(DISK_ERROR_SYSTEM + EINVAL), "%s: an argument is NULL.\n", name);
}

/// Whether the caller of a long operation wants it to end here. Sets the error 210000 + EINTR then.
inline bool Disk_IsStopped(std::function<bool()> const& stop) {
  if (!stop || !stop()) return false;
  DISK_LOG(5, "Stopped by the caller.\n");
  Klb_Note(Klb_Cause(DISK_ERROR_SYSTEM + EINTR).Because("stopped by the caller"));
  return true;
}

/// Runs a step that ends with 0 or -1; the system call that failed in it, or the lack of memory, gives the error code.
template <class Step>
int Disk_WithCause(Step step) {
  Klb_Operation const scope;
  errno = 0;
  int const result = Disk_Allocating("The cause: out of memory.\n", step);
  if (result == 0 || errno == 0) return scope.End(result);
  int const code = errno == ENOMEM ? int(DISK_ERROR_MEMORY) : DISK_ERROR_SYSTEM + errno;
  DISK_FAIL(Klb_Cause(code).Because(Klb_SystemText(errno)), "The cause: errno=%d.\n", errno);
  return result;
}

/// Holds a lock for a scope, or until it is released, which tells its result. `Lock` has LockShared and its like.
template <class Lock>
class [[nodiscard]] Disk_Hold {
public:
  Disk_Hold() = default;
  ~Disk_Hold() { Release(); }
  Disk_Hold(Disk_Hold const&) = delete;
  Disk_Hold& operator=(Disk_Hold const&) = delete;

  int Shared(Lock& lock) { return take(lock, lock.LockShared(), true); }
  int Exclusive(Lock& lock) { return take(lock, lock.LockExclusive(), false); }
  int SharedAgain(Lock& lock) { return take(lock, lock.RelockShared(), true); }
  int Pinned(Lock& lock) { return take(lock, lock.LockPinned(), false); }
  bool IsHeld() const { return lock_ != nullptr; }
  /// 0, also when nothing is held, or -1.
  int Release() {
    if (!lock_) return 0;
    int const result = shared_ ? lock_->UnlockShared() : lock_->UnlockExclusive();
    lock_ = nullptr;
    return result;
  }

private:
  int take(Lock& lock, int result, bool shared) {
    if (result == -1) return -1;
    lock_ = &lock;
    shared_ = shared;
    return 0;
  }

  Lock* lock_ = nullptr;
  bool shared_ = false;
};
