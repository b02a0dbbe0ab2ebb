#pragma once
#include "Disk/standard/Disk_Redo.h"

#include <Disk/Disk_StorageStrategy.h>

/// Takes the writes of one operation on a standard DICOMDIR, in whatever order they come, so that all or none of
/// them reach the file.
class Disk_WriteGather : public Disk_StorageStrategy {
public:
  int Write(void const* data, unsigned size) override;
  long LSeek(long offset, int whence) override;
  bool Flush() override { return true; }
  /// What is gathered belongs to an operation that is under way; the records in memory know of it.
  bool HasPendingData() override { return !redo.IsEmpty(); }
  int UpdateFromFile() override { return 0; }

  Disk_Redo redo;

private:
  std::uint32_t position_ = 0;
};
