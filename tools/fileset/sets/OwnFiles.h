// The names that a file-set gives to its files and folders, and what stands in a folder that has no DICOMDIR.
#pragma once

#include <string>

enum class Contents {
  Nothing,      // but `lost+found`, and what a first store leaves that was killed
  LostPrivate,  // a file-set whose DICOMDIR is gone: there is its VERSION, and folders with directory files
  LostStandard, // the same of the standard structure: folders without directory files
  Other         // something that isn't a file-set's
};

// What is in the directory besides a DICOMDIR. One that can't be listed counts as Other.
Contents ContentsOf(std::string const& directory);

// Whether this library can have made the file or folder in a private file-set, by its kind, its name, and the names of
// all that a folder holds. Object files have generated names: I7000000.
bool CanBeOwn(std::string const& path, std::string const& file_set);
