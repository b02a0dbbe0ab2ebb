// A new file-set of the standard structure, for an exchange medium. Its records say in which transfer syntax each file
// is. To that end a file is written first, where the library would put it, and then stored in place. An interruption or
// a failure can leave a file that no record names.
#pragma once

#include "sets/FileSet.h"

#include <set>
#include <string>
#include <string_view>

class Medium {
public:
  explicit Medium(FileSet set) : set_(std::move(set)) {
    set_.root->SetDurability(Util_Durability::Relaxed); // until Sync
  }

  // Adds a file of `bytes`, which are the object's. Returns the cause of a failure, else an empty text.
  std::string Add(IOD_Msg& object, std::string_view bytes);
  // Whether Add failed because the disk is full.
  bool IsFull() const { return is_full_; }
  // Syncs the file-set. 0, or -1 with errno.
  int Sync() { return set_.root->Sync(); }

private:
  std::string failed(std::string const& cause);

  FileSet set_;
  std::set<std::string> added_; // the UIDs of each object
  bool is_full_ = false;
};
