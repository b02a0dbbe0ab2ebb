#pragma once
#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/structure/Disk_Structure.h"

#include <Disk/Disk_RootDirectoryFile.h>

/// The file-set's lock, and from the first time that it is taken to the end of the operation that operation's
/// durability, with a hold of the relaxed epoch where it is relaxed.
struct Disk_FileSetHold : Disk_Hold<Klb_LockFile> {
  Disk_Hold<Disk_RelaxedEpoch> epoch;
  Util_FileSystem::DurabilityScope durability;
};

/// One operation that writes. Unless it is committed, nothing of it stays that would be damage, and records in memory
/// that have what the file hasn't are forgotten.
struct Disk_RootDirectoryFile::Operation {
  explicit Operation(Disk_RootDirectoryFile& owner) : root(owner), begun(owner.structure->Begin() == 0) {}
  ~Operation() {
    if (!committed && root.structure->Discard()) root.forget_records();
  }
  int Commit() {
    committed = root.structure->Commit(root.writing_strategy) == 0;
    return committed ? 0 : -1;
  }
  Disk_RootDirectoryFile& root;
  bool const begun;
  bool committed = false;
};
