// Fetches one object, by its file ID or by its UIDs, and notes the access in the study's record.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/files/Disk_Tags.h"
#include "Disk/hierarchy/Disk_Operation.h"

#include <Disk/Disk_ObjectFile.h>

#include <atomic>

struct Disk_RootDirectoryFile::FetchRoad {
  Disk_RootDirectoryFile& root;

  int get_one(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object,
              Disk_AsyncFile* async);
  int fetch_again(Dicom_UI const& study_uid, SCL_MoveIdentifier const& identifier, IOD_Msg** object);
  int fetch_by_uids(Dicom_UI const& study_uid, SCL_MoveIdentifier const& identifier, IOD_Msg** object, bool* reached);
  void note_access(Dicom_UI const& study_uid, bool may_write);
  bool is_another_study(Dicom_UI const& study_uid) const;
};

namespace {

std::atomic<int> s_fetches{0}; // feeds a log line only

} // namespace

int Disk_RootDirectoryFile::GetOne(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object,
                                   Disk_AsyncFile* async) {
  if (Disk_RefuseNull("GetOne", object) == -1) return -1;
  return Disk_Guarded("GetOne", [&] { return FetchRoad{*this}.get_one(identifier, model, object, async); });
}

int Disk_RootDirectoryFile::FetchRoad::get_one(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                               IOD_Msg** object, Disk_AsyncFile* async) {
  DISK_LOG(7, "GetOne: [%d]\n", ++s_fetches);
  Dicom_UI const study_uid = identifier.GetStudyInstanceUID();
  if (model != 1) return DISK_FAIL(DISK_ERROR_INFORMATION_MODEL, "GetOne(): Unsupported information model.\n");
  Disk_FileSetHold file_set;
  bool const may_write = root.structure->NotesAccess() && is_another_study(study_uid);
  if (root.lock(file_set, true, may_write) == -1) return DISK_FAIL("GetOne(): Can't lock file-set.\n");
  int result = -1;
  if (identifier.Has(kReferencedFileID)) {
    Disk_FileID const id = root.object_id(identifier.Value<Dicom_CS>(kReferencedFileID));
    result = Disk_ObjectFile(id, root.params).Get(object, async);
  } else {
    bool reached = false;
    result = fetch_by_uids(study_uid, identifier, object, &reached);
    if (!reached) return -1;
  }
  note_access(study_uid, may_write);
  if (file_set.Release() == -1) return DISK_FAIL("GetOne(): Can't unlock file-set.\n");
  return result;
}

/// From the study and the series that the fetch before has left in memory, when nothing has changed in the series. 1
/// when it may have, or when it is about another one; then nothing is logged.
int Disk_RootDirectoryFile::FetchRoad::fetch_again(Dicom_UI const& study_uid, SCL_MoveIdentifier const& identifier,
                                                   IOD_Msg** object) {
  if (!root.kept_study_file || !root.has_records()) return 1;
  Disk_StudyDirectoryRecord const* const study = root.GetStudyRecord(study_uid);
  if (!study || !study->GetRecordMsg()->TextEquals(kReferencedFileID, root.kept_study_file->GetFileID().View()))
    return 1;
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (held.SharedAgain(*root.kept_study_file) == -1) return 1;
  int const result =
      root.kept_study_file->GetKnown(identifier.GetSeriesInstanceUID(), identifier.GetSOPInstanceUID(), object);
  if (held.Release() == -1) {
    DISK_LOG(3, "GetOne(): Can't unlock study.\n");
    root.kept_study_file.reset();
  }
  return result;
}

/// `*reached` tells whether the study was reached; only then does the fetch count as an access.
int Disk_RootDirectoryFile::FetchRoad::fetch_by_uids(Dicom_UI const& study_uid, SCL_MoveIdentifier const& identifier,
                                                     IOD_Msg** object, bool* reached) {
  root.ResetStudyFile(); // one that a failure left may have no lock
  int const again = fetch_again(study_uid, identifier, object);
  if (again != 1) {
    *reached = true;
    return again;
  }
  if (root.Read() == -1) return DISK_FAIL("GetOne(): Can't read root directory file.\n");
  Disk_StudyDirectoryRecord* study = root.GetStudyRecord(study_uid);
  if (!study) return DISK_FAIL(DISK_FAILURE_NOT_FOUND, "GetOne(): Can't find study.\n");
  root.GetStudyFile(study);
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (!root.study_file || held.Shared(*root.study_file) == -1) return DISK_FAIL("GetOne(): Can't lock study.\n");
  *reached = true;
  int const result = root.study_file->GetOne(identifier.GetSeriesInstanceUID(), identifier.GetSOPInstanceUID(), object);
  if (held.Release() == -1)
    DISK_LOG(3, "GetOne(): Can't unlock study.\n");
  else
    root.KeepStudyFile();
  root.ResetStudyFile();
  return result;
}

/// Whether the study isn't the one that was fetched from last, of which the access is noted.
bool Disk_RootDirectoryFile::FetchRoad::is_another_study(Dicom_UI const& study_uid) const {
  return study_uid != UI_NULL && !(study_uid == root.current_study_uid);
}

/// Brings the study's access date up to date. Nothing that goes wrong here fails the fetch.
void Disk_RootDirectoryFile::FetchRoad::note_access(Dicom_UI const& study_uid, bool may_write) {
  if (!is_another_study(study_uid)) return;
  root.current_study_uid = study_uid;
  root.Read();
  if (!root.GetStudyRecord(study_uid)) {
    DISK_LOG(3, "Can not update the last access time of study. Study not found (uid: <%s>).\n", study_uid.CStr());
    return;
  }
  if (!may_write || root.params.read_only) return;

  // The file-set is locked shared, so nobody stores; of several fetches at this step one writes, and the others
  // leave it to that one. Whoever writes looks at the records once more first.
  Klb_LockFile turn;
  if (turn.Init(root.GetFileSetPrefix(), root.own_version_path.c_str(), 1) == -1 || turn.TryLockExclusive() != 0)
    return;
  if (turn.GetFd() == -1) return; // without VERSION nobody has the turn
  if (root.Read() == -1) return;
  Disk_StudyDirectoryRecord* study = root.GetStudyRecord(study_uid);
  if (!study) return;
  Dicom_DT const now(GetCurrentDate(), GetTickCount(), nullptr);
  Dicom_DT const last = study->GetRecordMsg()->Value<Dicom_DT>(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE);
  if (last != DT_NULL && !(last < now)) return;
  root.MarkDirty();
  if (study->GetRecordMsg()->Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE, now) == 0) root.Write();
}
