// Fetches one object, by its file ID or by its UIDs, and notes the access in the study's record.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/Disk_Operation.h"

#include <Disk/Disk_ObjectFile.h>

#include <atomic>

namespace {

constexpr Dicom_Tag kFileId{0x0004, std::uint16_t(0x1500)};

std::atomic<int> s_fetches{0}; // feeds a log line only

} // namespace

int Disk_RootDirectoryFile::GetOne(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object,
                                   Disk_AsyncFile* async) {
  if (Disk_RefuseNull("GetOne", object) == -1) return -1;
  return Disk_Guarded("GetOne", [&] { return get_one(identifier, model, object, async); });
}

int Disk_RootDirectoryFile::get_one(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object,
                                    Disk_AsyncFile* async) {
  DISK_LOG(7, "GetOne: [%d]\n", ++s_fetches);
  Dicom_UI const study_uid = identifier.GetStudyInstanceUID();
  if (model != 1) {
    DISK_LOG(3, "GetOne(): Unsupported information model.\n");
    KlbGError.Set(DISK_ERROR_INFORMATION_MODEL);
    return -1;
  }
  Disk_FileSetHold file_set;
  bool const may_write = structure->NotesAccess() && is_another_study(study_uid);
  if (lock(file_set, true, may_write) == -1) {
    DISK_LOG(3, "GetOne(): Can't lock file-set.\n");
    return -1;
  }
  int result = -1;
  if (identifier.Has(kFileId)) {
    Disk_FileID const id = object_id(identifier.Value<Dicom_CS>(kFileId));
    result = Disk_ObjectFile(id, params).Get(object, async);
  } else {
    bool reached = false;
    result = fetch_by_uids(study_uid, identifier, object, &reached);
    if (!reached) return -1;
  }
  note_access(study_uid);
  if (file_set.Release() == -1) {
    DISK_LOG(3, "GetOne(): Can't unlock file-set.\n");
    return -1;
  }
  return result;
}

/// From the study and the series that the fetch before has left in memory, when nothing has changed in the series. 1
/// when it may have, or when it is about another one; then nothing is logged.
int Disk_RootDirectoryFile::fetch_again(Dicom_UI const& study_uid, SCL_MoveIdentifier const& identifier,
                                        IOD_Msg** object) {
  if (!kept_study_file || !has_records()) return 1;
  Disk_StudyDirectoryRecord const* const study = GetStudyRecord(study_uid);
  if (!study || !study->GetRecordMsg()->TextEquals(kFileId, kept_study_file->GetFileID().View())) return 1;
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (held.SharedAgain(*kept_study_file) == -1) return 1;
  int const result =
      kept_study_file->GetKnown(identifier.GetSeriesInstanceUID(), identifier.GetSOPInstanceUID(), object);
  if (held.Release() == -1) {
    DISK_LOG(3, "GetOne(): Can't unlock study.\n");
    kept_study_file.reset();
  }
  return result;
}

/// `*reached` tells whether the study was reached; only then does the fetch count as an access.
int Disk_RootDirectoryFile::fetch_by_uids(Dicom_UI const& study_uid, SCL_MoveIdentifier const& identifier,
                                          IOD_Msg** object, bool* reached) {
  ResetStudyFile(); // one that a failure left may have no lock
  int const again = fetch_again(study_uid, identifier, object);
  if (again != 1) {
    *reached = true;
    return again;
  }
  if (Read() == -1) {
    DISK_LOG(3, "GetOne(): Can't read root directory file.\n");
    return -1;
  }
  Disk_StudyDirectoryRecord* study = GetStudyRecord(study_uid);
  if (!study) {
    DISK_LOG(3, "GetOne(): Can't find study.\n");
    return -1;
  }
  GetStudyFile(study);
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (!study_file || held.Shared(*study_file) == -1) {
    DISK_LOG(3, "GetOne(): Can't lock study.\n");
    return -1;
  }
  *reached = true;
  int const result = study_file->GetOne(identifier.GetSeriesInstanceUID(), identifier.GetSOPInstanceUID(), object);
  if (held.Release() == -1)
    DISK_LOG(3, "GetOne(): Can't unlock study.\n");
  else
    KeepStudyFile();
  ResetStudyFile();
  return result;
}

/// Whether the study isn't the one that was fetched from last, of which the access is noted.
bool Disk_RootDirectoryFile::is_another_study(Dicom_UI const& study_uid) const {
  return study_uid != UI_NULL && !(study_uid == current_study_uid);
}

/// Brings the study's access date up to date. Nothing that goes wrong here fails the fetch.
void Disk_RootDirectoryFile::note_access(Dicom_UI const& study_uid) {
  if (!is_another_study(study_uid)) return;
  current_study_uid = study_uid;
  Read();
  if (!GetStudyRecord(study_uid)) {
    DISK_LOG(3, "Can not update the last access time of study. Study not found (uid: <%s>).\n", study_uid.CStr());
    return;
  }
  if (!structure->NotesAccess() || params.read_only) return;

  // The file-set is locked shared, so nobody stores; of several fetches at this step one writes, and the others
  // leave it to that one. Whoever writes looks at the records once more first.
  Klb_LockFile turn;
  if (turn.Init(GetFileSetPrefix(), own_version_path.c_str(), 1) == -1 || turn.TryLockExclusive() != 0) return;
  if (turn.GetFd() == -1) return; // without VERSION nobody has the turn
  if (Read() == -1) return;
  Disk_StudyDirectoryRecord* study = GetStudyRecord(study_uid);
  if (!study) return;
  Dicom_DT const now(GetCurrentDate(), GetTickCount(), nullptr);
  Dicom_DT const last = study->GetRecordMsg()->Value<Dicom_DT>(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE);
  if (last != DT_NULL && !(last < now)) return;
  MarkDirty();
  if (study->GetRecordMsg()->Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE, now) == 0) Write();
}
