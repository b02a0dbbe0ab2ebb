#include "MeasuredFolders.h"

#include <cerrno>
#include <ctime>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystemInterface.h>

namespace {

using Entry = Util_FileSystemInterface::Entry;

constexpr std::chrono::milliseconds longest_step{2500}; // of a file system's times
constexpr std::time_t long_ago = 3600;                  // more than clocks of two machines differ
constexpr size_t most_folders = 1 << 20;

Util_FileSystemInterface& system_calls() { return Util_FileSystemInterface::Current(); }

bool same(timespec const& a, timespec const& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

bool same(struct stat const& a, struct stat const& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && same(a.st_mtim, b.st_mtim) && same(a.st_ctim, b.st_ctim);
}

// The size of a regular file; nothing for what isn't one any more.
std::uint64_t size_of(std::string const& path) {
  struct stat status;
  bool const is_file = system_calls().Lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
  return is_file ? static_cast<std::uint64_t>(status.st_size) : 0;
}

} // namespace

int MeasuredFolders::Measure(std::string const& path, std::uint64_t* bytes) {
  std::lock_guard hold(mutex_);
  if (folders_.size() > most_folders) folders_.clear();
  *bytes = 0;
  std::vector<std::string> open;
  if (visit(path, true, bytes, &open) == -1) return -1;
  while (!open.empty()) {
    std::string const next = std::move(open.back());
    open.pop_back();
    if (visit(next, false, bytes, &open) == -1 && errno != ENOENT)
      DISK_LOG(4, "Can't measure directory %s: errno %d\n", next.c_str(), errno);
  }
  return 0;
}

int MeasuredFolders::visit(std::string const& path, bool is_top, std::uint64_t* bytes,
                           std::vector<std::string>* below) {
  struct stat status;
  int const result = is_top ? system_calls().Stat(path.c_str(), &status) : system_calls().Lstat(path.c_str(), &status);
  if (result == -1) {
    folders_.erase(path);
    return -1;
  }
  Folder& folder = folders_[path];
  bool const is_new = !same(folder.status, status);
  if (is_new || !folder.believed) {
    auto const now = Clock::now();
    if (is_new) folder.first_seen = now;
    folder.status = status;
    folder.believed =
        now - folder.first_seen >= longest_step || (status.st_mtim.tv_sec < std::time(nullptr) - long_ago &&
                                                    status.st_ctim.tv_sec < std::time(nullptr) - long_ago);
    if (list(path, &folder) == -1) {
      int const cause = errno;
      folders_.erase(path);
      errno = cause;
      return -1;
    }
  }
  *bytes += folder.bytes;
  for (std::string const& name : folder.growing)
    *bytes += size_of(path + "/" + name);
  for (std::string const& name : folder.folders)
    below->push_back(path + "/" + name);
  return 0;
}

int MeasuredFolders::list(std::string const& path, Folder* folder) {
  folder->bytes = 0;
  folder->folders.clear();
  folder->growing.clear();
  std::vector<Entry> entries;
  if (system_calls().List(path.c_str(), entries) == -1) return -1;
  for (Entry& entry : entries) {
    if (entry.type == Entry::Directory)
      folder->folders.push_back(std::move(entry.name));
    else if (entry.name == "DICOMDIR" || entry.name == "dicomdir")
      folder->growing.push_back(std::move(entry.name));
    else if (entry.type == Entry::Regular)
      folder->bytes += size_of(path + "/" + entry.name);
  }
  return 0;
}
