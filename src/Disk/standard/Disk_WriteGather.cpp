// Collects the writes of one operation on a DICOMDIR in memory, until they are committed together.
#include "Disk/standard/Disk_WriteGather.h"

#include <limits>

int Disk_WriteGather::Write(void const* data, unsigned size) {
  if (size > std::numeric_limits<std::uint32_t>::max() - position_) return -1;
  redo.Add(position_, {static_cast<char const*>(data), size});
  position_ += size;
  return int(size);
}

long Disk_WriteGather::LSeek(long offset, int whence) {
  if (whence != 0 || offset < 0 || offset > long(std::numeric_limits<std::uint32_t>::max())) return -1;
  position_ = std::uint32_t(offset);
  return offset;
}
