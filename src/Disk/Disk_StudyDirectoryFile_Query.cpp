#include <Disk/Disk_StudyDirectoryFile.h>

#include "Disk/Disk_Guard.h"
#include "Disk/Disk_RecordWalk.h"
#include "Disk/Disk_ResponseFilter.h"
#include "Disk/Disk_Structure.h"

namespace {

constexpr Disk_WalkLevel kSeriesLevel{SCL_QueryRetrieveLevel::SERIES,
                                      false,
                                      false,
                                      false,
                                      "Query(): Can't create query response identifier.\n",
                                      "Query(): Can't find the tag of an element.\n",
                                      "Query(): Can't un-resolve tag.\n",
                                      "Query(): Can't allocate message element.\n",
                                      "Query(): Can't add attribute to the result message.\n"};
constexpr Disk_WalkLevel kImageLevel{SCL_QueryRetrieveLevel::IMAGE,
                                     false,
                                     true,
                                     true,
                                     "Query(): Can't create query response identifier.\n",
                                     "Query(): Can't find the tag of an element.\n",
                                     "Query(): Can't \"un-resolve\" tag.\n",
                                     "Query(): Can't allocate message element.\n",
                                     "Query(): Can't add attribute to the result message.\n"};
constexpr char kCantAppend[] = "Query(): Can't add a result to the sequence of results.\n";
constexpr Dicom_Tag kSeriesInstanceUid{0x0020, std::uint16_t(0x000E)};

/// Runs the walk over one record and appends the response, if there is one.
int QueryRecord(Disk_RecordWalk const& walk, Disk_DirectoryRecord const& record, Dicom_Sequence* results) {
  SCL_QueryRspIdentifier* response = nullptr;
  if (walk.Run(*record.GetRecordMsg(), &response) == -1) return -1;
  return response ? Disk_AppendResponse(std::unique_ptr<Dicom_Msg>(response), results, kCantAppend) : 0;
}

} // namespace

int Disk_StudyDirectoryFile::Query(SCL_QueryRetrieveLevel::Value level, SCL_QueryIdentifier const& identifier,
                                   Dicom_Sequence* results) {
  if (Disk_RefuseNull("Query", results) == -1) return -1;
  return Disk_Guarded("Query", [&] { return query(level, identifier, results); });
}

int Disk_StudyDirectoryFile::query(SCL_QueryRetrieveLevel::Value level, SCL_QueryIdentifier const& identifier,
                                   Dicom_Sequence* results) {
  if (Read() == -1) {
    DISK_LOG(3, "Query(): Can't read study directory file.\n");
    return -1;
  }
  Disk_RecordWalk const walk(identifier, kSeriesLevel);
  for (Disk_SeriesDirectoryRecord* series : series_records) {
    if (!Disk_IsLive(*structure, *series)) continue;
    Disk_PassingOver const damage{passes_over_damage()};
    int result = -1;
    if (level == SCL_QueryRetrieveLevel::SERIES) {
      result = QueryRecord(walk, *series, results);
    } else if (level == SCL_QueryRetrieveLevel::IMAGE) {
      result = query_images(series, identifier, results);
    } else {
      DISK_LOG(3, "Query(): unknown Query/Retrieve Level.\n");
      KlbGError.Set(DISK_ERROR_LEVEL);
    }
    if (result == -1 && damage.Failed() == -1) return -1;
  }
  return 0;
}

int Disk_StudyDirectoryFile::query_images(Disk_SeriesDirectoryRecord* series, SCL_QueryIdentifier const& identifier,
                                          Dicom_Sequence* results) {
  constexpr char kNoUid[] = "Query(): Can't get series instance UID.\n";
  Dicom_UI const uid = series->GetRecordMsg()->GetSeriesInstanceUID();
  if (uid == UI_NULL) {
    DISK_LOG_TEXT(3, kNoUid);
    return -1;
  }
  if (!uid.Match(identifier.GetSeriesInstanceUID())) return 0;
  Dicom_Sequence local;
  GetSeriesFile(series);
  if (series_file->Query(identifier, &local) == -1) {
    DISK_LOG(3, "Query(): Can't query lower level.\n");
    return -1;
  }
  return Disk_TakeItemsOver(local, *results, kSeriesInstanceUid, uid, kNoUid, kCantAppend);
}

int Disk_SeriesDirectoryFile::Query(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results) {
  if (Disk_RefuseNull("Query", results) == -1) return -1;
  return Disk_Guarded("Query", [&] { return query(identifier, results); });
}

int Disk_SeriesDirectoryFile::query(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results) {
  if (Read() == -1) {
    DISK_LOG(3, "Query(): Can't read series directory file.\n");
    return -1;
  }
  Disk_RecordWalk const walk(identifier, kImageLevel);
  for (Disk_InstanceDirectoryRecord* image : image_records)
    if (Disk_IsLive(*structure, *image) && QueryRecord(walk, *image, results) == -1) return -1;
  return 0;
}
