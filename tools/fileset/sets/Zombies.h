// Files and folders of a file-set that no record names. Crashes, other programs and lost records leave them.
#pragma once

#include "sets/FileSet.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

class Report;

struct Zombie {
  std::string path;
  bool is_folder = false;
  std::vector<std::string> holds; // what a folder holds, at all depths; each entry before its own folder
  std::uint64_t bytes = 0;
  std::string stays; // not empty: why it isn't removed
};

using Zombies = std::vector<Zombie>;

// Drops the records of studies whose folder a killed delete has removed; each is told.
void DropLostStudies(FileSet& set, Report& report);

// In the order of the scan. 0, or -1 (reported). A study that can't be scanned is reported and left out.
int FindZombies(FileSet& set, Report& report, Zombies* zombies);

// Removes those of `zombies` that don't stay and that no record names meanwhile. Links aren't followed. Failures are
// reported. Returns the paths that are gone.
std::vector<std::string> RemoveZombies(Zombies const& zombies, FileSet& set, Report& report);

// What the records of a file-set name.
struct Recorded {
  std::set<std::string> paths; // of object and directory files
  std::set<std::string> uids;  // SOP Instance UIDs of the object files that exist
};

// 0, or -1 (reported) when not all records can be read.
int ReadRecorded(FileSet& set, Report& report, Recorded* recorded);
