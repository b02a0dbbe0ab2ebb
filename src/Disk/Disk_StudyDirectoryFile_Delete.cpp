#include <Disk/Disk_StudyDirectoryFile.h>

#include "Disk/Disk_Guard.h"
#include "Disk/Disk_LookAgain.h"
#include "Disk/Disk_Remove.h"
#include "Disk/Disk_Structure.h"

#include <Disk/Disk_ObjectFile.h>
#include <dicom/IOD_Image.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <unistd.h>
#include <vector>

namespace {

std::atomic<bool> s_deletes_cine_files{true};

/// The records of a list that are in use, so that the list may change while they are walked.
template <class T>
std::vector<T*> InUse(Disk_Structure const& structure, Disk_RecordList<T> const& records) {
  std::vector<T*> found;
  for (T* record : records)
    if (structure.IsInUse(*record)) found.push_back(record);
  return found;
}

/// Images of this type come with a second file, the cine file.
bool IsAccompanied(IOD_Msg const& record) {
  static Dicom_CS const s_accompanied =
      IOD_Image::DERIVED | IOD_Image::SECONDARY | IOD_Image::ITINERARY | IOD_Image::CINE;
  return record.GetImageType() == s_accompanied;
}

} // namespace

void Disk_SetDeletesCineFiles(bool wanted) { s_deletes_cine_files = wanted; }
bool Disk_DeletesCineFiles() { return s_deletes_cine_files; }

int Disk_StudyDirectoryFile::Delete(Disk_Removal* removal) {
  if (Disk_RefuseNull("Delete", removal) == -1) return -1;
  DISK_LOG(7, "Delete:\n");
  if (refuse_read_only("Delete") == -1 || RefuseLink() == -1) return -1;
  if (Read() == -1) {
    DISK_LOG(3, "Delete(): Can't read study directory file.\n");
    return -1;
  }
  MarkDirty();
  std::vector<Disk_SeriesDirectoryRecord*> going = InUse(*structure, series_records);
  removal->series_before = int(going.size());
  if (removal->series_uid != UI_NULL) {
    Disk_SeriesDirectoryRecord* const series = GetSeriesRecord(removal->series_uid);
    if (!series && !going.empty()) {
      DISK_LOG(3, "Delete(): Can't find series.\n");
      removal->series_missing = !structure->IsAtomic();
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
  DISK_LOG(3, "Delete(): Can't update the file.\n");
  return -1;
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
  for (Disk_SeriesDirectoryRecord* left : InUse(*structure, series_records)) {
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
  if (!known && structure->MustCount(kImagesOfSeries, Disk_Road::Delete)) {
    DISK_LOG(3, "DeleteImagesOfSeries(): Can't update series directory record.\n");
    return -1;
  }
  // an image that has no record any more was counted until now, if its delete was interrupted
  int const before = own.missing > 0 ? records : Disk_Raised(known.value_or(0), records, "series");
  int const count = before - int(own.completed);
  if (structure->SetCounter(*series, kImagesOfSeries, count) == -1) return -1;
  DISK_LOG(7, "DeleteImagesOfSeries: ImagesInSeries %d\n", count);
  // a counter that a killed delete left too high keeps no series without images
  *removed = count == 0 || int(own.completed) == records;
  if (*removed && count != 0 && !structure->IsAtomic()) ++tally->missing; // the study's counter is too high as well
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
  std::string const folder = file.substr(0, file.rfind('/'));
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

int Disk_SeriesDirectoryFile::Delete(Dicom_UI const& image_uids, Disk_Tally* tally, int* records) {
  if (Disk_RefuseNull("Delete", tally, records) == -1) return -1;
  DISK_LOG(7, "Delete:\n");
  if (refuse_read_only("Delete") == -1) return -1;
  if (Read() == -1) {
    DISK_LOG(3, "Delete(): Can't read series directory file.\n");
    return -1;
  }
  MarkDirty();
  std::vector<Disk_InstanceDirectoryRecord*> going = InUse(*structure, image_records);
  *records = int(going.size());
  bool const all = image_uids == UI_NULL;
  if (!all) going.clear();
  for (int i = 0; !all && i < image_uids.GetNValues(); ++i) {
    Disk_InstanceDirectoryRecord* const image = GetImageRecord(Dicom_UI(image_uids.ValueView(i)));
    if (image && std::find(going.begin(), going.end(), image) == going.end()) {
      going.push_back(image);
      continue;
    }
    ++tally->failed;
    tally->missing += !image && !structure->IsAtomic();
  }
  std::map<std::string, std::string> folders; // of the files that go, with one of them
  for (Disk_InstanceDirectoryRecord* image : going) {
    std::string const path = object_id(image->GetReferencedFileID()).Path();
    if (!path.empty()) folders[path.substr(0, path.rfind('/'))] = path;
    // a series that goes takes all its images with it, also one whose file can't be removed
    if (DeleteImage(*image) == -1 && !all) {
      ++tally->failed;
      continue;
    }
    ++tally->completed;
    if (structure->TakeOut(image_records, image) == 0) continue;
    DISK_LOG_TEXT(3, all ? "Delete: Failed setting the record in use flag.\n"
                         : "Delete: Faile setting the record in use flag.\n");
    return -1;
  }
  // the files are gone for good before their records go, where these don't bring their own folder to the disk
  for (auto const& [folder, path] : folders)
    if (!structure->SyncsWithRecords(path, GetFileID().Path()) &&
        Util_FileSystemInterface::Current().Access(folder.c_str(), F_OK) == 0 && sync_directory_of(path) == -1)
      return -1;
  if (Write() == 0) return 0;
  DISK_LOG(3, "Delete(): Can't update the file.\n");
  return -1;
}

int Disk_SeriesDirectoryFile::Delete(Dicom_UI image_uids, MXL_SubOperationsReport* report) {
  if (Disk_RefuseNull("Delete", report) == -1) return -1;
  Disk_Tally tally{report->Get(MXL_SubOperationsReport::Completed), report->Get(MXL_SubOperationsReport::Failed)};
  int records = 0;
  int const result = Disk_Guarded("Delete", [&] { return Delete(image_uids, &tally, &records); });
  tally.Tell(report);
  return result;
}

int Disk_SeriesDirectoryFile::DeleteImage(Disk_InstanceDirectoryRecord const& image) const {
  Dicom_CS const referenced = image.GetReferencedFileID();
  Disk_FileID const id = object_id(referenced);
  if (IsAccompanied(*image.GetRecordMsg())) DeleteCineFile(id, referenced);
  std::string const path = id.Path();
  if (path.empty()) {
    DISK_LOG(3, "DeleteImage(): Illegal file name.\n");
    KlbGError.Set(DISK_ERROR_FILE_NAME);
    return -1;
  }
  if (Util_FileSystemInterface::Current().Unlink(path.c_str()) == 0) return 0;
  if (errno == ENOENT) {
    DISK_LOG(4, "DeleteImage(): Warning: can't delete file %s (does not exist)\n", path.c_str());
    return 0;
  }
  int const cause = errno;
  DISK_LOG(3, "DeleteImage(): Can't delete a file %s (errno=%d).\n", path.c_str(), cause);
  KlbGError.Set(DISK_ERROR_SYSTEM + cause);
  return -1;
}

/// The object names the file, which may stand anywhere. Who stores what strangers send turns this off.
void Disk_SeriesDirectoryFile::DeleteCineFile(Disk_FileID const& id, Dicom_CS const& referenced) const {
  IOD_Msg* object = nullptr;
  if (Disk_ObjectFile(id, params).Get(&object, nullptr) == -1) {
    DISK_LOG(4, "DeleteImage: Can't build IOD_Msg out of %s, thus can't delete cine file\n", referenced.CStr());
    return;
  }
  std::unique_ptr<IOD_Msg> const owner(object);
  std::string const name = object->GetInputFileName().GetText();
  DISK_LOG(7, "DeleteImage: %s is an accompanied image\n", referenced.CStr());
  if (name.empty() || !Disk_DeletesCineFiles()) return;
  DISK_LOG(5, "DeleteImage: deleting the cine file %s\n", name.c_str());
  if (Util_FileSystemInterface::Current().Unlink(name.c_str()) == 0) return;
  if (errno == ENOENT)
    DISK_LOG(4, "DeleteImage(): Warning: Cannot delete unexisting file %s\n", name.c_str());
  else
    DISK_LOG(3, "DeleteImage(): Can't delete a file %s (errno=%d).\n", name.c_str(), errno);
}
