#include <cerrno>
#include <climits>
#include <cstdint>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystemInterface.h>

namespace {

using Entry = Util_FileSystemInterface::Entry;

Util_FileSystemInterface& system_calls() { return Util_FileSystemInterface::Current(); }

// Adds the sizes of the files in `path` to `bytes`, and the directories in it to `open`.
int measure(std::string const& path, uint64_t& bytes, std::vector<std::string>& open) {
  std::vector<Entry> entries;
  if (system_calls().List(path.c_str(), entries) == -1) return -1;
  for (Entry const& entry : entries) {
    std::string name = path + "/" + entry.name;
    struct stat status;
    if (entry.type == Entry::Directory)
      open.push_back(std::move(name));
    else if (entry.type == Entry::Regular && system_calls().Lstat(name.c_str(), &status) == 0)
      bytes += static_cast<uint64_t>(status.st_size);
  }
  return 0;
}

// blocks * size / 1024, without an overflow on the way.
long to_kb(uint64_t blocks, uint64_t size) {
  uint64_t kb;
  if (__builtin_mul_overflow(blocks / 1024, size, &kb)) return LONG_MAX;
  if (__builtin_add_overflow(kb, blocks % 1024 * size / 1024, &kb)) return LONG_MAX;
  return kb > LONG_MAX ? LONG_MAX : static_cast<long>(kb);
}

} // namespace

long Klb_FileSystemUtils::GetDirSize(char const* path) {
  uint64_t bytes = 0;
  std::vector<std::string> open;
  if (measure(path, bytes, open) == -1) return -1;
  while (!open.empty()) {
    std::string const next = std::move(open.back());
    open.pop_back();
    if (measure(next, bytes, open) == -1 && errno != ENOENT)
      DISK_LOG(4, "Can't measure directory %s: errno %d\n", next.c_str(), errno);
  }
  return static_cast<long>(bytes / 1024 + (bytes % 1024 != 0));
}

int Klb_FileSystemUtils::FindDiskSizes(char const* path, long* total_kb, long* free_kb) {
  struct statvfs status;
  if (system_calls().Statvfs(path, &status) == -1) return -1;
  *total_kb = to_kb(status.f_blocks, status.f_frsize);
  *free_kb = to_kb(status.f_bavail, status.f_frsize);
  return 0;
}

int Klb_FileSystemUtils::GetFreeSpace(char const* path, double* bytes) {
  struct statvfs status;
  if (system_calls().Statvfs(path, &status) == -1) return -1;
  *bytes = static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
  return 0;
}
