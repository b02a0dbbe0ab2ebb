#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Remove.h"
#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <cerrno>

struct Disk_RootDirectoryFile::DeleteRoad {
  Disk_RootDirectoryFile& root;

  int remove(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, bool* begun, Disk_Tally* tally,
             SCL_ResponseStatus& status);
  int remove_from_study(SCL_MoveIdentifier const& identifier, Dicom_UI const& study_uid,
                        SCL_QueryRetrieveLevel::Value level, Disk_Tally* tally, SCL_ResponseStatus& status);
  int count_removed(Disk_StudyDirectoryRecord* study, Disk_Removal const& removal, SCL_QueryRetrieveLevel::Value level);
  int delete_without_folder(Disk_StudyDirectoryRecord* study, SCL_ResponseStatus& status);
};

namespace {

/// The UID that a request of this level lacks, or null. Without it the request would take all that the others name.
char const* MissingUid(SCL_MoveIdentifier const& identifier, SCL_QueryRetrieveLevel::Value level) {
  bool const images = level == SCL_QueryRetrieveLevel::IMAGE;
  if (identifier.GetStudyInstanceUID() == UI_NULL) return "Study";
  if ((images || level == SCL_QueryRetrieveLevel::SERIES) && identifier.GetSeriesInstanceUID() == UI_NULL)
    return "Series";
  return images && identifier.GetSOPInstanceUID() == UI_NULL ? "SOP" : nullptr;
}

} // namespace

int Disk_RootDirectoryFile::Delete(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                   MXL_SubOperationsReport* report, SCL_ResponseStatus& status) {
  DISK_LOG(7, "Delete:\n");
  Klb_Operation const scope;
  if (!support_par.delete_supported) {
    DISK_LOG(5, "Delete: delete is not supported\n");
    return Klb_Note(Klb_Cause(DISK_FAILURE_UNSUPPORTED).Because("SetSupportPar hasn't allowed it"));
  }
  status = SCL_ResponseStatus::Failed;
  if (Disk_RefuseNull("Delete", report) == -1) return -1;
  Disk_Tally tally;
  bool begun = false; // from then on the report is this request's
  int const result =
      Disk_Guarded("Delete", [&] { return DeleteRoad{*this}.remove(identifier, model, &begun, &tally, status); });
  ResetStudyFile();
  int const told = begun ? Disk_Guarded("Delete", [&] { return tally.Tell(report); }) : 0;
  return scope.End(result == 0 ? told : result);
}

int Disk_RootDirectoryFile::DeleteRoad::remove(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                               bool* begun, Disk_Tally* tally, SCL_ResponseStatus& status) {
  if (model != 1) return DISK_FAIL(DISK_ERROR_INFORMATION_MODEL, "Delete: Unsupported information model.\n");
  if (root.refuse_read_only("Delete") == -1) return -1;
  Disk_FileSetHold file_set;
  if (root.lock(file_set, false) == -1) return DISK_FAIL("Delete: Can't lock file-set.\n");
  if (root.Read() == -1) return DISK_FAIL("Delete: Can't read root directory file.\n");
  *begun = true;
  Dicom_UI const studies_to_go = identifier.GetStudyInstanceUID();
  SCL_QueryRetrieveLevel::Value const level = identifier.GetQueryRetrieveLevel();
  if (studies_to_go.GetNValues() > 1 && level != SCL_QueryRetrieveLevel::STUDY)
    return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Delete: Multiple studies in messege while query level is nott study.\n");
  if (char const* const missing = MissingUid(identifier, level))
    return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Delete: no %s Instance UID says what is to go.\n", missing);
  int result = 0;
  for (int i = 0; i < studies_to_go.GetNValues() && result == 0; ++i) {
    status = SCL_ResponseStatus::Failed;
    result = remove_from_study(identifier, Dicom_UI(studies_to_go.ValueView(i)), level, tally, status);
  }
  if (file_set.Release() == 0) return result;
  status = SCL_ResponseStatus::Failed;
  return DISK_FAIL("Delete: Can't unlock file-set.\n");
}

/// Deletes in one study and writes the root. `status` becomes 0 once that is written, whatever failed below.
int Disk_RootDirectoryFile::DeleteRoad::remove_from_study(SCL_MoveIdentifier const& identifier,
                                                          Dicom_UI const& study_uid,
                                                          SCL_QueryRetrieveLevel::Value level, Disk_Tally* tally,
                                                          SCL_ResponseStatus& status) {
  root.MarkDirty();
  DISK_LOG(7, "Delete Study UID:%s\n", study_uid.CStr());
  root.ResetStudyFile();
  auto const [patient, study] = root.records->FindStudy(*root.structure, study_uid);
  if (!study) return DISK_FAIL(DISK_FAILURE_NOT_FOUND, "Delete: Can't find study.\n");
  if (root.support_par.honour_protection && !study->IsDeletable()) {
    DISK_LOG(4, "Delete: Study is protected thus cannot be deleted!\n");
    status = SCL_ResponseStatus::RefusedProtected;
    return Klb_Note(Klb_Cause(DISK_FAILURE_PROTECTED).Because("the study is protected"));
  }
  if (level != SCL_QueryRetrieveLevel::STUDY && level != SCL_QueryRetrieveLevel::SERIES &&
      level != SCL_QueryRetrieveLevel::IMAGE)
    return DISK_FAIL(DISK_ERROR_LEVEL, "Delete: unknown Query/Retrieve Level.\n");
  Operation operation(root);
  if (!operation.begun) return -1;
  root.records->touched_patients.insert(patient);
  Klb_Attempt const attempt;
  root.GetStudyFile(study);
  // held until the study's files are gone: who waits for it then finds no lock file at its path
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (!root.study_file || held.Exclusive(*root.study_file) == -1) {
    DISK_FAIL("Delete: Can't lock study .\n");
    int const result = delete_without_folder(study, status); // whatever was to go from it
    if (result == 0) attempt.Forget();
    return result;
  }
  Disk_Removal removal;
  removal.series_uid = level >= SCL_QueryRetrieveLevel::SERIES ? identifier.GetSeriesInstanceUID() : UI_NULL;
  removal.image_uids = level == SCL_QueryRetrieveLevel::IMAGE ? identifier.GetSOPInstanceUID() : UI_NULL;
  int result = root.study_file->Delete(&removal);
  *tally += removal.tally;
  if ((result == 0 || removal.series_missing) && count_removed(study, removal, level) == -1) result = -1;
  // where all of it or nothing is to be written, nothing is, and the next delete mends that files are missing
  if (result == -1 && root.structure->IsAtomic() && removal.tally.completed > 0) return -1;
  if (root.Write() == -1 || operation.Commit() == -1) return DISK_FAIL("Delete: Can't update the file.\n");
  if (held.Release() == -1) DISK_FAIL("Delete: Can't unlock study.\n");
  if (result == -1) root.forget_records(); // they may be ahead of what was written
  status = SCL_ResponseStatus::Success;
  return result;
}

/// What a delete leaves that was killed when the study's folder was gone and its record wasn't. 0 when that was it.
int Disk_RootDirectoryFile::DeleteRoad::delete_without_folder(Disk_StudyDirectoryRecord* study,
                                                              SCL_ResponseStatus& status) {
  Dicom_UI const uid = study->GetRecordMsg()->GetStudyInstanceUID();
  if (root.DeleteCorruptedEntry(study) == -1 || root.GetStudyRecord(uid)) return -1;
  if (root.Write() == -1) return DISK_FAIL("Delete: Can't update the file.\n");
  DISK_LOG(4, "Delete: the study's directory was gone, its record is gone too.\n");
  status = SCL_ResponseStatus::Success;
  return 0;
}

/// Brings the study's record up to date after a removal, or removes the study when nothing of it is left. If something
/// that was to go was gone already, the delete before may have been interrupted, and left the record as it was: then
/// the record follows what is left.
int Disk_RootDirectoryFile::DeleteRoad::count_removed(Disk_StudyDirectoryRecord* study, Disk_Removal const& removal,
                                                      SCL_QueryRetrieveLevel::Value level) {
  IOD_Msg& record = *study->GetRecordMsg();
  bool const mends = removal.series_missing || removal.tally.missing > 0;
  if (std::optional<int> const images = Disk_Counted(record, kImagesOfStudy)) {
    int const lowered = mends ? 0 : Disk_Moved(*images, -std::int64_t(removal.tally.completed));
    if (root.structure->SetCounter(*study, kImagesOfStudy, std::max(lowered, removal.images_left)) == -1)
      return DISK_FAIL("Delete(): Can't update study directory record.\n");
  }
  if (root.structure->DropModalities(record, removal, mends) == -1)
    return DISK_FAIL("Delete: Can't update modality study directory record.\n");
  int const known = Disk_Counted(record, kSeriesOfStudy).value_or(0);
  int remaining = Disk_Raised(known, removal.series_before, "study") - removal.series_removed;
  bool const is_consistent = known == removal.series_removed;
  // too high is what a killed delete leaves
  if (mends || removal.series_left == 0) remaining = removal.series_left;
  if (root.structure->SetCounter(*study, kSeriesOfStudy, remaining) == -1) return -1;
  if (remaining != 0 && level != SCL_QueryRetrieveLevel::STUDY) return 0;
  if (!is_consistent && level == SCL_QueryRetrieveLevel::STUDY)
    DISK_LOG(4, "Delete: Warning: inconsistent db. Un-empty study is deleted\n");
  return root.DeleteStudy(study);
}

int Disk_RootDirectoryFile::DeleteStudy(Disk_StudyDirectoryRecord* study) {
  Disk_FileID const id(GetFileSetPrefix(), study->GetReferencedFileID(), 0);
  Dicom_UI const uid = study->GetRecordMsg()->GetStudyInstanceUID();
  if (DeleteStudyFromList(study) == -1) return DISK_FAIL("DeleteStudy: error in DeleteStudyFromList\n");
  structure->RemoveStudyFolder(*this, id, uid);
  return 0;
}

int Disk_RootDirectoryFile::DeleteStudyFromList(Disk_StudyDirectoryRecord* study) {
  DISK_LOG(7, "In DeleteStudyFromList\n");
  return structure->TakeOut(*records, GetPatientRecord(study->GetRecordMsg()->GetStudyInstanceUID()), study);
}
