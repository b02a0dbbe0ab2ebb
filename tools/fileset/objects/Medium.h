// A new file-set of the standard structure for an exchange medium, whose records tell of each file the syntax that it
// is in. The file is placed first, where the library would, and then stored in place. An interruption or a failure can
// leave a file that no record names.
#pragma once

#include "sets/FileSet.h"

#include <set>
#include <string>
#include <string_view>

class EngineLog;

class Medium {
public:
  Medium(FileSet set, EngineLog& log) : set_(std::move(set)), log_(log) {
    set_.root->SetDurability(Util_Durability::Relaxed); // until Sync
  }

  // Makes a file of these bytes, which are the object's. Empty when it is part of the file-set, else the cause.
  std::string Add(IOD_Msg& object, std::string_view bytes);
  // Whether that failed as the disk is full.
  bool IsFull() const { return is_full_; }
  // Brings all to the disk. 0, or -1 with errno.
  int Sync() { return set_.root->Sync(); }

private:
  std::string failed();

  FileSet set_;
  EngineLog& log_;
  std::set<std::string> added_; // the UIDs of each object
  bool is_full_ = false;
};
