#pragma once
#include <Disk/Disk_Error.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>

#include <cerrno>
#include <exception>
#include <functional>
#include <new>

/// How often a step of this thread failed for the lack of memory.
inline thread_local unsigned Disk_shortages = 0;

/// Makes a success of a failure where damage is to be passed over. A shortage of memory is no damage: it stays a
/// failure.
struct Disk_PassingOver {
  bool wanted;
  unsigned before = Disk_shortages;
  int Failed() const { return wanted && before == Disk_shortages ? 0 : -1; }
};

/// Runs a public operation: what it throws, which is nothing but the lack of memory, becomes a log line, an error
/// code and -1.
template <class Operation>
int Disk_Guarded(char const* name, Operation operation) noexcept {
  try {
    return operation();
  } catch (std::bad_alloc const&) {
    ++Disk_shortages;
    DISK_LOG(3, "%s: out of memory.\n", name);
    KlbGError.Set(DISK_ERROR_MEMORY);
  } catch (std::exception const& e) {
    DISK_LOG(3, "%s: %s\n", name, e.what());
  }
  return -1;
}

/// Runs a step that ends with 0 or -1. The lack of memory in it is a failure like others: this line, this code, and -1.
template <class Step>
int Disk_Allocating(char const* text, Step step, int code = DISK_ERROR_MEMORY) {
  try {
    return step();
  } catch (std::bad_alloc const&) {
    ++Disk_shortages;
    DISK_LOG_TEXT(3, text);
    KlbGError.Set(code);
    return -1;
  }
}

/// Runs a step that ends with 0 or -1. A failure, the lack of memory too, gives this line.
template <class Step>
int Disk_Try(char const* text, Step step) {
  return Disk_Allocating(text, [&] {
    int const result = step();
    if (result == -1) DISK_LOG_TEXT(3, text);
    return result;
  });
}

/// The pointers that an operation can't do without: 0; or -1, with a line and a code, when one is null.
template <class... Pointers>
int Disk_RefuseNull(char const* name, Pointers... pointers) {
  if ((... && (pointers != nullptr))) return 0;
  DISK_LOG(3, "%s: an argument is NULL.\n", name);
  KlbGError.Set(DISK_ERROR_SYSTEM + EINVAL);
  return -1;
}

/// Whether the caller of a long operation wants it to end here. Sets the error 210000 + EINTR then.
inline bool Disk_IsStopped(std::function<bool()> const& stop) {
  if (!stop || !stop()) return false;
  DISK_LOG(5, "Stopped by the caller.\n");
  KlbGError.Set(DISK_ERROR_SYSTEM + EINTR);
  return true;
}

/// Runs a step that ends with 0 or -1; the system call that failed in it, or the lack of memory, gives the error code.
template <class Step>
int Disk_WithCause(Step step) {
  errno = 0;
  int const result = Disk_Allocating("The cause: out of memory.\n", step);
  if (result == 0 || errno == 0) return result;
  KlbGError.Set(errno == ENOMEM ? int(DISK_ERROR_MEMORY) : DISK_ERROR_SYSTEM + errno);
  DISK_LOG(3, "The cause: errno=%d.\n", errno);
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
