// The code of the last failure that means something to a caller. Each thread has its own; it stays until the
// next Set, a success doesn't clear it.
#pragma once

#include <infra/Disk_Export.h>

#include <cerrno>

enum Klb_ErrorBase {
  KLB_ERR_SYSTEM = 210000, ///< plus errno: a system call failed
  KLB_ERR_DISK = 211000    // plus a number that the file-set engine gives a meaning
};

class DISK_EXPORT Klb_GError {
public:
  constexpr Klb_GError() = default;
  Klb_GError(Klb_GError const&) = delete;
  Klb_GError& operator=(Klb_GError const&) = delete;

  void Set(int code) noexcept;
  void SetSystem(int error = errno) noexcept { Set(KLB_ERR_SYSTEM + error); }
  int Get() const noexcept; ///< 0 before the first Set of this thread
};

DISK_EXPORT extern Klb_GError KlbGError;
