// The sizes of directory trees, remembered folder by folder.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

// A folder's own change time tells whether something was added to it, replaced or removed since it was listed.
// But times have steps, on some file systems of two seconds: what changes within the step in which it was
// listed leaves the time as it was. So what a listing found is believed from the second one on, if that is later
// than such a step and finds the same time, or if the time was long ago already. Our own clock is compared with
// itself only, as the file system may be another machine's.
//
// A DICOMDIR that grows in its place leaves no trace in its folder; its size is asked for each time.
class MeasuredFolders {
public:
  // The bytes of all regular files at and below `path`. 0, or -1 with errno when `path` itself can't be listed.
  int Measure(std::string const& path, std::uint64_t* bytes);

private:
  using Clock = std::chrono::steady_clock;
  struct Folder {
    struct stat status {};
    Clock::time_point first_seen; // with this change time
    bool believed = false;
    std::uint64_t bytes = 0;
    std::vector<std::string> folders, growing; // names in it
  };

  int visit(std::string const& path, bool is_top, std::uint64_t* bytes, std::vector<std::string>* below);
  static int list(std::string const& path, Folder* folder);

  std::mutex mutex_;
  std::unordered_map<std::string, Folder> folders_; // by path
};
