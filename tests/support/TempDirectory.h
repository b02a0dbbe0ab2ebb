// A directory that vanishes with all it holds at the end of its scope.
#pragma once

#include "Files.h"

#include <cstdlib>
#include <unistd.h>

/// Those that are made from now on are in memory, where the system has such a place: syncs cost nothing there.
inline void PreferMemory() {
  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
}

class TempDirectory {
public:
  TempDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "disk_test_XXXXXX").string();
    if (!mkdtemp(name.data())) std::abort();
    path_ = name;
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(TempDirectory const&) = delete;
  TempDirectory& operator=(TempDirectory const&) = delete;

  std::string const& Path() const { return path_; }
  std::string operator/(std::string const& name) const { return path_ + "/" + name; }

  // Writes a file into the directory, with the folders above it, and gives its full name.
  std::string Write(std::string const& name, std::string const& content) const {
    std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path());
    WriteFile(*this / name, content);
    return *this / name;
  }

  std::string Read(std::string const& name) const { return ReadFile(*this / name); }

private:
  std::string path_;
};
