// Files as a whole, and what a folder holds.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

inline std::string ReadFile(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(std::filesystem::path const& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

/// The content of all files below a folder, by their relative names.
inline std::map<std::string, std::string> ReadFiles(std::filesystem::path const& folder) {
  std::map<std::string, std::string> files;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder))
    if (entry.is_regular_file()) files[entry.path().lexically_relative(folder).string()] = ReadFile(entry.path());
  return files;
}
