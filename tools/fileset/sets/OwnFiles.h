// The names that a file-set gives to its files and folders, and what stands in a folder that has no DICOMDIR.
#pragma once

#include <string>

enum class Contents {
  Nothing,      // at most `lost+found`, and what a killed first store leaves
  LostPrivate,  // of a private file-set without its DICOMDIR: VERSION, and folders with directory files
  LostStandard, // of a standard one: VERSION, and folders without directory files
  Other         // anything else
};

// What the directory holds besides a DICOMDIR. A directory that can't be listed holds Other.
Contents ContentsOf(std::string const& directory);

// Whether this library may have made the file or folder in a private file-set. Its kind and name tell that, and for a
// folder the names of all that it holds. Object files have generated names: I7000000.
bool CanBeOwn(std::string const& path, std::string const& file_set);
