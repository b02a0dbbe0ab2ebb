// Reads and stores one object, for all commands that store.
#pragma once

#include "sets/FileSet.h"

#include <memory>
#include <string>

// Reads the object in a file. Null after a failure, and `*problem` says why; a DICOMDIR is no object. `*was_read`,
// which may be null, becomes whether the file could be read, whatever is in it.
std::unique_ptr<IOD_Msg> ReadObject(std::string const& path, std::string* problem, bool* was_read = nullptr);

inline constexpr char kIsDicomDir[] = "a DICOMDIR: a directory of objects, not an object";

// Whether the last operation of this thread failed for lack of memory. The error code must have been 0 before it.
bool RanOutOfMemory();
// The same for space on the disk or in the user's quota. Further operations will fail too.
bool RanOutOfDisk();
inline constexpr char kDiskIsFull[] = ": the disk is full, so it ends here";

struct StoreHow {
  bool icon = false, accept_mismatch = false;
  std::string file_to_move; // if not empty, this file of the object is renamed to its place, and none written
};

// Stores an object. Returns the cause of a failure, else an empty text. `*stored_as`, which may be null, becomes the
// path of a moved file.
std::string StoreObject(IOD_Msg& object, StoreHow const& how, FileSet& set, std::string* stored_as = nullptr);
