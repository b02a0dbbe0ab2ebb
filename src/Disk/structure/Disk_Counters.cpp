// How the counters of studies and series are read, with the attribute that is ours where that of the standard is
// missing.
#include "Disk/structure/Disk_Counters.h"

#include "Disk/files/Disk_Tags.h"
#include "Disk/structure/Disk_Structure.h"

Disk_Counter const kImagesOfSeries{kSeriesRelatedImages, &Dicom_Dictionary::KOLBA_NUMBER_OF_IMAGES};
Disk_Counter const kSeriesOfStudy{kStudyRelatedSeries, &Dicom_Dictionary::KOLBA_NUMBER_OF_SERIES};
Disk_Counter const kImagesOfStudy{kStudyRelatedImages, nullptr};

std::optional<int> Disk_Counted(IOD_Msg const& record, Disk_Counter const& counter) {
  Dicom_IS const related = record.Value<Dicom_IS>(counter.related);
  if (related != IS_NULL) return int(related);
  Dicom_UL const ours = counter.ours ? record.Value<Dicom_UL>(*counter.ours) : UL_NULL;
  if (ours == UL_NULL) return std::nullopt;
  return Disk_Moved(0, std::uint32_t(ours));
}

int Disk_CountUp(Disk_Structure const& structure, Disk_DirectoryRecord& record, Disk_Counter const& counter) {
  std::optional<int> const before = Disk_Counted(*record.GetRecordMsg(), counter);
  if (!before && structure.MustCount(counter, Disk_Road::Store)) return -1;
  return structure.SetCounter(record, counter, Disk_Moved(before.value_or(0), 1));
}
