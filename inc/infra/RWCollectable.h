// Base of everything that the RW collections hold.
#pragma once
#include <infra/Disk_Export.h>

class DISK_EXPORT RWCollectable {
public:
  virtual ~RWCollectable() = default;

  /// Whether the two are the same for a search; identity unless a class knows better.
  virtual bool isEqual(RWCollectable const* other) const { return this == other; }
};
