#include "MeasuredFolders.h"
#include "NeverDestroyed.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <infra/I18n.h>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_FileSystemInterface.h>

namespace {

Util_FileSystemInterface& system_calls() { return Util_FileSystemInterface::Current(); }

// blocks * size / 1024, without an overflow on the way.
long to_kb(uint64_t blocks, uint64_t size) {
  uint64_t kb;
  if (__builtin_mul_overflow(blocks / 1024, size, &kb)) return LONG_MAX;
  if (__builtin_add_overflow(kb, blocks % 1024 * size / 1024, &kb)) return LONG_MAX;
  return kb > LONG_MAX ? LONG_MAX : static_cast<long>(kb);
}

} // namespace

long Klb_FileSystemUtils::GetDirSize(char const* path) {
  static NeverDestroyed<MeasuredFolders> measured;
  uint64_t bytes = 0;
  if ((*measured).Measure(path, &bytes) == -1) return -1;
  return static_cast<long>(bytes / 1024 + (bytes % 1024 != 0));
}

long Klb_FileSystemUtils::GetDirSize(RWWString const& path) { return GetDirSize(ToUTF8(path.data()).data()); }

int Klb_FileSystemUtils::FindDiskSizes(char const* path, long* total_kb, long* free_kb) {
  struct statvfs status;
  if (system_calls().Statvfs(path, &status) == -1) return -1;
  *total_kb = to_kb(status.f_blocks, status.f_frsize);
  *free_kb = to_kb(status.f_bavail, status.f_frsize);
  return 0;
}

int Klb_FileSystemUtils::FindDiskSizes(RWWString const& path, unsigned* total_kb, unsigned* free_kb) {
  long total = 0, free = 0;
  if (FindDiskSizes(ToUTF8(path.data()).data(), &total, &free) == -1) return -1;
  *total_kb = unsigned(std::min<long>(total, UINT_MAX));
  *free_kb = unsigned(std::min<long>(free, UINT_MAX));
  return 0;
}

int Klb_FileSystemUtils::GetFreeSpace(char const* path, double* bytes) {
  struct statvfs status;
  if (system_calls().Statvfs(path, &status) == -1) return -1;
  *bytes = static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
  return 0;
}
