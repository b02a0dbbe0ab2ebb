// Deletes series of a study, or images of them, and tells what is left.
#include <Disk/Disk_StudyDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_LookAgain.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_Remove.h"
#include "Disk/structure/Disk_Structure.h"

#include <cerrno>
#include <fcntl.h>
#include <vector>

int Disk_StudyDirectoryFile::Delete(Disk_Removal* removal) {
  if (Disk_RefuseNull("Delete", removal) == -1) return -1;
  DISK_LOG(7, "Delete:\n");
  if (refuse_read_only("Delete") == -1 || RefuseLink() == -1) return -1;
  if (Read() == -1) return DISK_FAIL("Delete(): Can't read study directory file.\n");
  MarkDirty();
  std::vector<Disk_SeriesDirectoryRecord*> going = Disk_InUse(*structure, series_records);
  removal->series_before = int(going.size());
  if (removal->series_uid != UI_NULL) {
    Disk_SeriesDirectoryRecord* const series = GetSeriesRecord(removal->series_uid);
    if (!series && !going.empty()) {
      DISK_FAIL(DISK_FAILURE_NOT_FOUND, "Delete(): Can't find series.\n");
      removal->series_missing = structure->CountMissing(removal->tally);
      count_left(removal);
      return -1;
    }
    if (series) going = {series}; // else a delete was killed when the last series was gone: the study is to follow
  }
  for (Disk_SeriesDirectoryRecord* series : going) {
    bool removed = false;
    if (DeleteImagesOfSeries(series, removal->image_uids, &removal->tally, &removed) == -1) return -1;
    if (removed && removal->series_uid != UI_NULL) removal->modality = series->GetRecordMsg()->GetModality();
    removal->series_removed += removed;
    if ((removed || removal->series_uid == UI_NULL) && structure->TakeOut(series_records, series) == -1) return -1;
  }
  count_left(removal);
  if (structure->SyncRemoved(*this, *removal) == -1) return -1;
  if (Write() == 0) return 0;
  return DISK_FAIL("Delete(): Can't update the file.\n");
}

int Disk_StudyDirectoryFile::Delete(Dicom_UI series_uid, Dicom_UI image_uids, MXL_SubOperationsReport* report,
                                    int* removed_series, Dicom_CS& modality) {
  if (Disk_RefuseNull("Delete", report, removed_series) == -1) return -1;
  Disk_Removal removal;
  removal.series_uid = series_uid;
  removal.image_uids = image_uids;
  int const result = Disk_Guarded("Delete", [&] { return Delete(&removal); });
  *removed_series = removal.series_removed;
  modality = removal.modality;
  removal.tally.Tell(report);
  return result;
}

void Disk_StudyDirectoryFile::count_left(Disk_Removal* removal) const {
  for (Disk_SeriesDirectoryRecord* left : Disk_InUse(*structure, series_records)) {
    ++removal->series_left;
    removal->images_left =
        Disk_Moved(removal->images_left, Disk_Counted(*left->GetRecordMsg(), kImagesOfSeries).value_or(0));
    removal->modalities_left.insert(left->GetRecordMsg()->GetModality().GetText());
  }
}

int Disk_StudyDirectoryFile::DeleteImagesOfSeries(Disk_SeriesDirectoryRecord* series, Dicom_UI const& image_uids,
                                                  Disk_Tally* tally, bool* removed) {
  GetSeriesFile(series);
  if (series_file->RefuseLink() == -1) return -1;
  if (FindCorruptedEntry(series)) {
    structure->RemoveSeriesFolder(*this, *series);
    ++tally->missing; // nobody can tell how many images there were
    *removed = true;
    return 0;
  }
  Disk_Tally own;
  int records = 0;
  int const result = series_file->Delete(image_uids, &own, &records);
  *tally += own;
  if (result == -1) return -1;
  std::optional<int> const known = Disk_Counted(*series->GetRecordMsg(), kImagesOfSeries);
  // a record that another system wrote may count nothing: its list does
  if (!known && structure->MustCount(kImagesOfSeries, Disk_Road::Delete))
    return DISK_FAIL("DeleteImagesOfSeries(): Can't update series directory record.\n");
  // an image that has no record any more was counted until now, if its delete was interrupted
  int const before = own.missing > 0 ? records : Disk_Raised(known.value_or(0), records, "series");
  int const count = before - int(own.completed);
  if (structure->SetCounter(*series, kImagesOfSeries, count) == -1) return -1;
  DISK_LOG(7, "DeleteImagesOfSeries: ImagesInSeries %d\n", count);
  // a counter that a killed delete left too high keeps no series without images
  *removed = count == 0 || int(own.completed) == records;
  if (*removed && count != 0) structure->CountMissing(*tally); // the study's counter is too high as well
  if (*removed) structure->RemoveSeriesFolder(*this, *series);
  return 0;
}

/// A series whose directory or directory file is gone that its record names.
bool Disk_StudyDirectoryFile::FindCorruptedEntry(Disk_SeriesDirectoryRecord const* series) const {
  DISK_LOG(7, "in FindCorruptedEntry\n");
  if (!structure->NamesFolders()) return false;
  std::string const file = Disk_FileID(GetFileSetPrefix(), series->GetReferencedFileID(), 0).Path();
  if (file.empty()) {
    DISK_LOG(4, "FindCorruptedEntry: Warning: can't remove component from file-id.\n");
    return true;
  }
  struct stat status {};
  std::string const folder = Disk_Names::FolderOf(file);
  if (Util_FileSystemInterface::Current().Stat((folder + "/.").c_str(), &status) == -1) {
    bool const gone = errno == ENOENT && Disk_IsGone(folder);
    DISK_LOG_TEXT(3, gone ? "FindCorruptedEntry: directory not found, entry will be deleted\n"
                          : "FindCorruptedEntry: unexpected error accessing study's directory, entry not deleted\n");
    return gone;
  }
  if (Util_FileSystem::Open(file.c_str(), O_RDONLY | O_NONBLOCK)) return false;
  bool const gone = errno == ENOENT && Disk_IsGone(file);
  DISK_LOG_TEXT(3, gone ? "FindCorruptedEntry: DIRFILE not found, entry will be deleted\n"
                        : "FindCorruptedEntry: unexpected error accessing study's DIRFILE, entry not deleted\n");
  return gone;
}
