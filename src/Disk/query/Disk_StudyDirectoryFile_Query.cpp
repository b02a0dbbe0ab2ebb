// Queries at series and image level, within one study.
#include <Disk/Disk_StudyDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/query/Disk_RecordWalk.h"
#include "Disk/query/Disk_ResponseFilter.h"
#include "Disk/structure/Disk_Structure.h"

int Disk_StudyDirectoryFile::Query(SCL_QueryRetrieveLevel::Value level, SCL_QueryIdentifier const& identifier,
                                   Dicom_Sequence* results) {
  if (Disk_RefuseNull("Query", results) == -1) return -1;
  return Disk_Guarded("Query", [&] {
    Disk_RecordWalk walk(identifier, level);
    return query(walk, results);
  });
}

int Disk_StudyDirectoryFile::Query(Disk_RecordWalk& walk, Dicom_Sequence* results) {
  return Disk_Guarded("Query", [&] { return query(walk, results); });
}

int Disk_StudyDirectoryFile::query(Disk_RecordWalk& walk, Dicom_Sequence* results) {
  if (Read() == -1) return DISK_FAIL("Query(): Can't read study directory file.\n");
  for (Disk_SeriesDirectoryRecord* series : series_records) {
    if (!Disk_IsLive(*structure, *series)) continue;
    Disk_PassingOver const damage{passes_over_damage()};
    int result = -1;
    if (walk.Level() == SCL_QueryRetrieveLevel::SERIES) {
      result = Disk_QueryRecord(walk, *series, results);
    } else if (walk.Level() == SCL_QueryRetrieveLevel::IMAGE) {
      result = query_images(walk, series, results);
    } else {
      DISK_FAIL(DISK_ERROR_LEVEL, "Query(): unknown Query/Retrieve Level.\n");
    }
    if (result == -1 && damage.Failed() == -1) return -1;
  }
  return 0;
}

int Disk_StudyDirectoryFile::query_images(Disk_RecordWalk& walk, Disk_SeriesDirectoryRecord* series,
                                          Dicom_Sequence* results) {
  Dicom_UI const uid = series->GetRecordMsg()->GetSeriesInstanceUID();
  if (uid == UI_NULL) return DISK_FAIL("Query(): Can't get series instance UID.\n");
  if (!uid.Match(walk.SeriesUid())) return 0;
  Disk_LowerResponses responses(*results);
  if (walk.StampSeries(uid) == -1) return -1;
  GetSeriesFile(series);
  if (series_file->Query(walk, results) == -1) return DISK_FAIL("Query(): Can't query lower level.\n");
  responses.Keep();
  return 0;
}
