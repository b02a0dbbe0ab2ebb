// Queries at image level, within one series.
#include <Disk/Disk_SeriesDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/query/Disk_RecordWalk.h"
#include "Disk/query/Disk_ResponseFilter.h"
#include "Disk/structure/Disk_Structure.h"

int Disk_SeriesDirectoryFile::Query(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results) {
  if (Disk_RefuseNull("Query", results) == -1) return -1;
  return Disk_Guarded("Query",
                      [&] { return query(Disk_RecordWalk(identifier, SCL_QueryRetrieveLevel::IMAGE), results); });
}

int Disk_SeriesDirectoryFile::Query(Disk_RecordWalk const& walk, Dicom_Sequence* results) {
  return Disk_Guarded("Query", [&] { return query(walk, results); });
}

int Disk_SeriesDirectoryFile::query(Disk_RecordWalk const& walk, Dicom_Sequence* results) {
  if (Read() == -1) return DISK_FAIL("Query(): Can't read series directory file.\n");
  for (Disk_InstanceDirectoryRecord* image : image_records)
    if (Disk_IsLive(*structure, *image) && Disk_QueryRecord(walk, *image, results) == -1) return -1;
  return 0;
}
