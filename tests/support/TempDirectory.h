// A directory that vanishes with all it holds at the end of its scope.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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

  // Writes a file into the directory and gives its full name.
  std::string Write(std::string const& name, std::string const& content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }

  std::string Read(std::string const& name) const {
    std::ifstream file(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

private:
  std::string path_;
};
