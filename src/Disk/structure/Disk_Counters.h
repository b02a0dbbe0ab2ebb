// The counters in the records of studies and series: where they stand, and how they move.
#pragma once
#include <Disk/Disk_DirectoryRecord.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

class Disk_Structure;

/// One counter. Ours is what an earlier record of the private structure counts in; null where there is none.
struct Disk_Counter {
  Dicom_Tag related;
  Dicom_Tag const* ours;
};
extern Disk_Counter const kImagesOfSeries, kSeriesOfStudy, kImagesOfStudy;

/// Who moves it.
enum class Disk_Road { Store, Delete };

/// A number moved by `step`. It stops at the limits of its type.
inline int Disk_Moved(int count, std::int64_t step) {
  using Limits = std::numeric_limits<int>;
  return int(std::clamp<std::int64_t>(count + step, Limits::min(), Limits::max()));
}

/// What a record counts: in the attribute of the standard or, where that is missing, in ours. Nothing without both.
std::optional<int> Disk_Counted(IOD_Msg const& record, Disk_Counter const& counter);
/// Counts one more. 0; or -1, also for a record that doesn't count and must.
int Disk_CountUp(Disk_Structure const& structure, Disk_DirectoryRecord& record, Disk_Counter const& counter);
