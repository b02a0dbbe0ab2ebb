// What commands share that make objects part of a file-set.
#pragma once

#include "sets/FileSet.h"

#include <memory>
#include <string>

// The object in a file; or null, and `*problem` tells why: also for a DICOMDIR, which is no object. `*was_read`, which
// may be null, tells whether the file could be read, whatever is in it.
std::unique_ptr<IOD_Msg> ReadObject(std::string const& path, std::string* problem, bool* was_read = nullptr);

inline constexpr char kIsDicomDir[] = "a DICOMDIR: a directory of objects, not an object";

// Whether that is why the last operation of this thread failed; its code has to have been 0 before.
bool RanOutOfMemory();
// The same for the space on the disk, or what the user may have of it; so will what comes behind.
bool RanOutOfDisk();
inline constexpr char kDiskIsFull[] = ": the disk is full, so it ends here";

struct StoreHow {
  bool icon = false, accept_mismatch = false;
  std::string file_to_move; // not empty: the object's file, which is renamed to its place instead of a new one written
};

// Empty when the object is stored, else the cause. `*stored_as`, which may be null, becomes the place of a moved file.
std::string StoreObject(IOD_Msg& object, StoreHow const& how, FileSet& set, EngineLog& log,
                        std::string* stored_as = nullptr);
