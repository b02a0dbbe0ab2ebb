// A directory that vanishes with all it holds at the end of its scope.
#pragma once

#include "Files.h"

#include <cstdlib>
#include <unistd.h>

class TempDirectory {
public:
  // In memory where that is wanted and the system has such a place: syncs cost nothing there.
  explicit TempDirectory(bool in_memory = false) {
    bool const can = in_memory && access("/dev/shm", W_OK) == 0;
    std::string name = (can ? "/dev/shm" : std::filesystem::temp_directory_path()) / "disk_test_XXXXXX";
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
