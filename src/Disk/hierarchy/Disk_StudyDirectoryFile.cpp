// The records of one study: its lock, its series as an object finds or makes them, and a fetch through them.
#include <Disk/Disk_StudyDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_LookAgain.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Replacements.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/structure/Disk_Structure.h"
#include "Disk/structure/Disk_StudyLock.h"

#include <infra/Util_FileSystem.h>

#include <cerrno>

Disk_StudyDirectoryFile::Disk_StudyDirectoryFile(Disk_FileID const& id, Disk_StoreParams store_params,
                                                 Disk_DicomDir* dicomdir, unsigned offset)
    : Disk_DirectoryFile(id, store_params, dicomdir), lock(structure->StudyLock(directory(), params.read_only)),
      first_series_offset(offset) {}
Disk_StudyDirectoryFile::~Disk_StudyDirectoryFile() = default;

int Disk_StudyDirectoryFile::LockExclusive() {
  return lock->Do(&Klb_LockFile::LockExclusive, "Error when trying to lock study exclusively\n");
}
int Disk_StudyDirectoryFile::Pin() {
  return lock->Do(&Klb_LockFile::Pin, "Error when trying to lock study exclusively\n");
}
int Disk_StudyDirectoryFile::LockPinned() { return lock->LockPinned(); }
bool Disk_StudyDirectoryFile::IsInPlace() const { return lock->IsInPlace(); }
int Disk_StudyDirectoryFile::LockShared() {
  return lock->Do(&Klb_LockFile::LockShared, "Error when trying to lock study shared\n");
}
int Disk_StudyDirectoryFile::RelockShared() { return lock->RelockShared(); }
int Disk_StudyDirectoryFile::UnlockExclusive() {
  return lock->Do(&Klb_LockFile::UnlockExclusive, "Error when trying to unlock study \n");
}
int Disk_StudyDirectoryFile::UnlockShared() {
  return lock->Do(&Klb_LockFile::UnlockShared, "Error when trying to unlock study\n");
}

int Disk_StudyDirectoryFile::Read() {
  static constexpr Disk_ReadTexts kTexts{"Read: Failed readind the records.\n",
                                         "Read(): Can't read study directory file.\n",
                                         "Read(): Can't create series directory record.\n"};
  return read_level(series_records, first_series_offset, kTexts);
}

int Disk_StudyDirectoryFile::Write(Disk_Replacements* together) {
  static constexpr Disk_WriteTexts kTexts{"Write: the offset of the series is 0.\n",
                                          "Write(): Bad series directory record.\n"};
  return write_level(series_records, first_series_offset, kTexts, together);
}

int Disk_StudyDirectoryFile::Count(int* series, int* images) {
  if (Disk_RefuseNull("Count", series, images) == -1 || Read() == -1) return -1;
  *series = *images = 0;
  for (Disk_SeriesDirectoryRecord* record : series_records) {
    ++*series;
    // one that counts nothing may have any number
    *images = Disk_Moved(
        *images, Disk_Counted(*record->GetRecordMsg(), kImagesOfSeries).value_or(std::numeric_limits<int>::max()));
  }
  return 0;
}

Disk_SeriesDirectoryRecord* Disk_StudyDirectoryFile::GetSeriesRecord(Dicom_UI const& series_uid) const {
  return Disk_FindRecord(*structure, series_records, kSeriesInstanceUid, series_uid.View());
}

void Disk_StudyDirectoryFile::GetSeriesFile(Disk_SeriesDirectoryRecord* series) {
  open_below(series_file, *series, kSeriesInstanceUid);
}

int Disk_StudyDirectoryFile::Store(IOD_Msg* msg, Disk_StudyDirectoryRecord* study, int* new_series, int* new_image,
                                   bool add_icon, int store_unmatching_images, int in_place, char* existing_file,
                                   int move_store, char* file_to_move, char* stored_file_name,
                                   Dicom_UI const* syntax_in_file) {
  return Disk_Guarded("Store", [&] {
    return Store({msg, add_icon, store_unmatching_images, in_place, existing_file, move_store, file_to_move,
                  stored_file_name, syntax_in_file},
                 study, new_series, new_image);
  });
}

int Disk_StudyDirectoryFile::Store(Disk_StoreRequest const& request, Disk_StudyDirectoryRecord* study, int* new_series,
                                   int* new_image) {
  if (Disk_RefuseNull("Store", request.msg, new_series, new_image) == -1) return -1;
  if (structure->RefuseNoParent(study) == -1) return -1;
  dropped_id.clear();
  structure->TellStore("Store: standard DICOMDIR.\n");
  if (refuse_read_only("Store") == -1 || RefuseLink() == -1) return -1;
  if (Read() == -1) return DISK_FAIL("Store(): Can't read the study directory file.\n");
  MarkDirty();
  Dicom_UI const series_uid = request.msg->GetSeriesInstanceUID();
  Disk_SeriesDirectoryRecord* series = GetSeriesRecord(series_uid);
  if (!request.in_place && structure->PrepareFolder(*this, series_uid, series != nullptr) == -1) return -1;
  *new_series = series ? 0 : 1;
  if (series ? check_series_number(request, *series) == -1 : add_series(request, study, &series) == -1) return -1;

  GetSeriesFile(series);
  Disk_Replacements replacements;
  Disk_Replacements* const together = structure->Together(replacements);
  int stored = series_file->Store(request, series, new_image, together);
  if (stored == Disk_SeriesDirectoryFile::kFolderIsGone) {
    *new_series = 1;
    stored = drop_lost_series(series_uid) == -1 || add_series(request, study, &series) == -1 ? -1 : 0;
    if (stored == 0) {
      GetSeriesFile(series);
      stored = series_file->Store(request, series, new_image, together);
    }
  }
  if (stored != 0) return DISK_FAIL("Store(): Can't store.\n");
  if (structure->MarkUpdated(*series->GetRecordMsg()) == -1 ||
      (*new_image && Disk_CountUp(*structure, *series, kImagesOfSeries) == -1))
    return DISK_FAIL("Store(): Can't update series directory record.\n");
  if (Write(together) == 0 && replacements.Finish() == 0) return 0;
  return DISK_FAIL("Store(): Can't update the study directory file.\n");
}

/// A killed delete leaves a record whose folder is gone, and no object could ever be stored there. It is dropped, if
/// the study's file, read once more, still has it. 0 or -1.
int Disk_StudyDirectoryFile::drop_lost_series(Dicom_UI const& uid) {
  MarkDirty();
  if (Read() == -1) return -1;
  MarkDirty();
  Disk_SeriesDirectoryRecord* const series = GetSeriesRecord(uid);
  if (!series) return 0;
  Disk_FileID id(GetFileSetPrefix(), series->GetReferencedFileID(), 0);
  Disk_FileID const file = id;
  id.RemoveLastComponent();
  errno = EAGAIN; // unless it can't be told: it is there again
  if (!Disk_IsGone(id.Path())) {
    int const cause = errno;
    return DISK_FAIL(Klb_System(cause, "look for", id.Path()), "Store: Can't tell whether %s is there (errno=%d).\n",
                     id.Path().c_str(), cause);
  }
  DISK_LOG(4, "Store: series %s had no folder any more; it is made anew.\n", uid.CStr());
  Disk_RelaxedEpoch::Forget(file);
  dropped_id = file.GetID().GetText();
  return structure->TakeOut(series_records, series);
}

int Disk_StudyDirectoryFile::add_series(Disk_StoreRequest const& request, Disk_StudyDirectoryRecord* study,
                                        Disk_SeriesDirectoryRecord** series) {
  std::unique_ptr<Disk_SeriesDirectoryRecord> record(new (std::nothrow) Disk_SeriesDirectoryRecord());
  if (!record) Klb_Note(Klb_Cause(DISK_ERROR_NEW_RECORD).Because("out of memory"));
  if (!record || structure->Fill(*record, *request.msg) == -1)
    return DISK_FAIL("Store(): Can't create new series directory record.\n");
  if (NewSeries(study, record.get(), request) == -1) return DISK_FAIL("Store(): Can't create new series.\n");
  *series = record.release();
  return 0;
}

int Disk_StudyDirectoryFile::NewSeries(Disk_StudyDirectoryRecord* study, Disk_SeriesDirectoryRecord* series,
                                       Disk_StoreRequest const& request) {
  if (structure->InNamedFolder([&] { return new_series_directory(series, request); }) == -1) return -1;
  return structure->Add(series_records, study, series, &first_series_offset);
}

/// A new series gets a directory of its own, also when its first object stands in the file-set already.
int Disk_StudyDirectoryFile::new_series_directory(Disk_SeriesDirectoryRecord* series,
                                                  Disk_StoreRequest const& request) {
  int status = 0;
  if (request.in_place) Disk_FileID(GetFileSetPrefix(), request.existing_file, &status, 0);
  Disk_FileID id =
      status == -1 ? Disk_FileID() : GenerateReferencedFileID(series->GetRecordMsg()->GetSeriesNumber(), &status);
  if (status == -1) return DISK_FAIL("NewSeries(): Can't generate a file ID.\n");
  std::string const path = id.Path();
  if (make_directory(path) == -1) {
    int const cause = errno;
    if (cause != EEXIST)
      return DISK_FAIL(Klb_System(cause, "create the folder", path),
                       "NewSeries(): Can't create a new directory (errno=%d)\n", cause);
    DISK_LOG(6, "NewSeries: directory %s already exist.\n", path.c_str());
  }
  if (id.AddComponent(Disk_Names::kDirectoryFile) == -1)
    return DISK_FAIL("NewSeries(): Can't add component to file-id.\n");
  Disk_SeriesDirectoryFile file(id, params, standard_dicomdir, 0);
  file.MarkUnnamed();
  if (file.Write() == -1) return DISK_FAIL("NewSeries(): Can't write new directory file.\n");
  return series->SetReferencedFileID(id.GetID());
}

bool Disk_StudyDirectoryFile::is_named(std::string const& id) const {
  std::string const file = id + std::string("\\") + Disk_Names::kDirectoryFile;
  return file == dropped_id ||
         series_records.Find(kReferencedFileID, file, [](Disk_SeriesDirectoryRecord const&) { return true; });
}

Disk_FileID Disk_StudyDirectoryFile::GenerateReferencedFileID(Dicom_IS const& series_number, int* status) const {
  constexpr std::size_t kNumberLength = 6;
  return unique_file_id("S" + name_part(series_number.View(), kNumberLength) + "0", status);
}

int Disk_StudyDirectoryFile::check_series_number(Disk_StoreRequest const& request,
                                                 Disk_SeriesDirectoryRecord const& series) const {
  Dicom_IS const mine = series.GetRecordMsg()->GetSeriesNumber(), its = request.msg->GetSeriesNumber();
  if (mine == its) return 0;
  if (request.store_unmatching_images) {
    DISK_LOG(5, "Store: Series number does not match the series UID, but the image is stored\n");
    return 0;
  }
  if (int(mine) == int(its)) {
    DISK_LOG(5,
             "Store: Series number string does not match the series UID, but the integer value is equal - saving.\n");
    return 0;
  }
  DISK_LOG(3, "Store: Series number does not match the series UID.\n");
  return DISK_FAIL(DISK_ERROR_SERIES_NUMBER_MISMATCH, "Series number is %d, but must be %d.\n", int(its), int(mine));
}

int Disk_StudyDirectoryFile::GetOne(Dicom_UI const& series_uid, Dicom_UI const& sop_instance_uid, IOD_Msg** object) {
  if (Disk_RefuseNull("GetOne", object) == -1) return -1;
  if (Read() == -1) return DISK_FAIL("GetOne(): Can't read the study directory file.\n");
  Disk_SeriesDirectoryRecord* series = GetSeriesRecord(series_uid);
  if (!series) return DISK_FAIL(DISK_FAILURE_NOT_FOUND, "GetOne(): Can't find series.\n");
  return Disk_Guarded("GetOne", [&] {
    GetSeriesFile(series);
    return series_file->GetOne(sop_instance_uid, object);
  });
}

/// That the series' directory file is the one that is known suffices: it goes before anything above it does, and before
/// the study's lock file.
int Disk_StudyDirectoryFile::GetKnown(Dicom_UI const& series_uid, Dicom_UI const& sop_instance_uid,
                                      IOD_Msg** object) const {
  Disk_SeriesDirectoryRecord const* const series = series_file && has_records() ? GetSeriesRecord(series_uid) : nullptr;
  if (!series || !series->GetRecordMsg()->TextEquals(kReferencedFileID, series_file->GetFileID().View())) return 1;
  return series_file->GetKnown(sop_instance_uid, object);
}
