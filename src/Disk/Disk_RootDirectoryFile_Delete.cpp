#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/Disk_Guard.h"
#include "Disk/Disk_Operation.h"
#include "Disk/Disk_RecordIO.h"
#include "Disk/Disk_Remove.h"

#include <cerrno>

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
  if (!support_par.delete_supported) {
    DISK_LOG(5, "Delete: delete is not supported\n");
    return -1;
  }
  status = SCL_ResponseStatus::Failed;
  if (Disk_RefuseNull("Delete", report) == -1) return -1;
  Disk_Tally tally;
  bool begun = false; // from then on the report is this request's
  int const result = Disk_Guarded("Delete", [&] { return remove(identifier, model, &begun, &tally, status); });
  ResetStudyFile();
  int const told = begun ? Disk_Guarded("Delete", [&] { return tally.Tell(report); }) : 0;
  return result == 0 ? told : result;
}

int Disk_RootDirectoryFile::remove(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, bool* begun,
                                   Disk_Tally* tally, SCL_ResponseStatus& status) {
  if (model != 1) {
    DISK_LOG(3, "Delete: Unsupported information model.\n");
    KlbGError.Set(DISK_ERROR_INFORMATION_MODEL);
    return -1;
  }
  if (refuse_read_only("Delete") == -1) return -1;
  Disk_FileSetHold file_set;
  if (lock(file_set, false) == -1) {
    DISK_LOG(3, "Delete: Can't lock file-set.\n");
    return -1;
  }
  if (Read() == -1) {
    DISK_LOG(3, "Delete: Can't read root directory file.\n");
    return -1;
  }
  *begun = true;
  Dicom_UI const studies_to_go = identifier.GetStudyInstanceUID();
  SCL_QueryRetrieveLevel::Value const level = identifier.GetQueryRetrieveLevel();
  if (studies_to_go.GetNValues() > 1 && level != SCL_QueryRetrieveLevel::STUDY) {
    DISK_LOG(3, "Delete: Multiple studies in messege while query level is nott study.\n");
    return -1;
  }
  if (char const* const missing = MissingUid(identifier, level)) {
    DISK_LOG(3, "Delete: no %s Instance UID says what is to go.\n", missing);
    return -1;
  }
  int result = 0;
  for (int i = 0; i < studies_to_go.GetNValues() && result == 0; ++i) {
    status = SCL_ResponseStatus::Failed;
    result = remove_from_study(identifier, Dicom_UI(studies_to_go.ValueView(i)), level, tally, status);
  }
  if (file_set.Release() == 0) return result;
  DISK_LOG(3, "Delete: Can't unlock file-set.\n");
  status = SCL_ResponseStatus::Failed;
  return -1;
}

/// Deletes in one study and writes the root. `status` becomes 0 once that is written, whatever failed below.
int Disk_RootDirectoryFile::remove_from_study(SCL_MoveIdentifier const& identifier, Dicom_UI const& study_uid,
                                              SCL_QueryRetrieveLevel::Value level, Disk_Tally* tally,
                                              SCL_ResponseStatus& status) {
  MarkDirty();
  DISK_LOG(7, "Delete Study UID:%s\n", study_uid.CStr());
  ResetStudyFile();
  auto const [patient, study] = find_study(study_uid);
  if (!study) {
    DISK_LOG(3, "Delete: Can't find study.\n");
    return -1;
  }
  if (support_par.honour_protection && !study->IsDeletable()) {
    DISK_LOG(4, "Delete: Study is protected thus cannot be deleted!\n");
    status = SCL_ResponseStatus::RefusedProtected;
    return -1;
  }
  if (level != SCL_QueryRetrieveLevel::STUDY && level != SCL_QueryRetrieveLevel::SERIES &&
      level != SCL_QueryRetrieveLevel::IMAGE) {
    DISK_LOG(3, "Delete: unknown Query/Retrieve Level.\n");
    KlbGError.Set(DISK_ERROR_LEVEL);
    return -1;
  }
  Operation operation(*this);
  if (!operation.begun) return -1;
  if (is_standard()) touched_patients.insert(patient);
  GetStudyFile(study);
  // held until the study's files are gone: who waits for it then finds no lock file at its path
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (!study_file || held.Exclusive(*study_file) == -1) {
    DISK_LOG(3, "Delete: Can't lock study .\n");
    return delete_without_folder(study, status); // whatever was to go from it
  }
  Disk_Removal removal;
  removal.series_uid = level >= SCL_QueryRetrieveLevel::SERIES ? identifier.GetSeriesInstanceUID() : UI_NULL;
  removal.image_uids = level == SCL_QueryRetrieveLevel::IMAGE ? identifier.GetSOPInstanceUID() : UI_NULL;
  int result = study_file->Delete(&removal);
  *tally += removal.tally;
  if ((result == 0 || removal.series_missing) && count_removed(study, removal, level) == -1) result = -1;
  // there a part of the records would be damage; without them the files are missing, which the next delete mends
  if (result == -1 && is_standard() && removal.tally.completed > 0) return -1;
  if (Write() == -1 || operation.Commit() == -1) {
    DISK_LOG(3, "Delete: Can't update the file.\n");
    return -1;
  }
  if (held.Release() == -1) DISK_LOG(3, "Delete: Can't unlock study.\n");
  if (result == -1) forget_records(); // they may be ahead of what was written
  status = SCL_ResponseStatus::Success;
  return result;
}

/// What a delete leaves that was killed when the study's folder was gone and its record wasn't. 0 when that was it.
int Disk_RootDirectoryFile::delete_without_folder(Disk_StudyDirectoryRecord* study, SCL_ResponseStatus& status) {
  Dicom_UI const uid = study->GetRecordMsg()->GetStudyInstanceUID();
  if (is_standard() || DeleteCorruptedEntry(study) == -1 || GetStudyRecord(uid)) return -1;
  if (Write() == -1) {
    DISK_LOG(3, "Delete: Can't update the file.\n");
    return -1;
  }
  DISK_LOG(4, "Delete: the study's directory was gone, its record is gone too.\n");
  status = SCL_ResponseStatus::Success;
  return 0;
}

/// Brings the study's record up to date after a removal, or removes the study when nothing of it is left. If something
/// that was to go was gone already, the delete before may have been interrupted, and left the record as it was: then
/// the record follows what is left.
int Disk_RootDirectoryFile::count_removed(Disk_StudyDirectoryRecord* study, Disk_Removal const& removal,
                                          SCL_QueryRetrieveLevel::Value level) {
  IOD_Msg& record = *study->GetRecordMsg();
  bool const mends = removal.series_missing || removal.tally.missing > 0;
  Dicom_IS const images = record.GetNumberOfStudyRelatedImages();
  if (images != IS_NULL) {
    int const lowered = mends ? 0 : Disk_Moved(images, -std::int64_t(removal.tally.completed));
    int const left = std::max(lowered, removal.images_left);
    if (set_counter(*study, Dicom_Tag(0x0020, 0x1208), left) == -1) {
      DISK_LOG(3, "Delete(): Can't update study directory record.\n");
      return -1;
    }
  }
  if (!is_standard() && ((removal.series_removed > 0 && drop_modality(record, removal) == -1) ||
                         (mends && keep_modalities(record, removal) == -1))) {
    DISK_LOG(3, "Delete: Can't update modality study directory record.\n");
    return -1;
  }
  int const known = Disk_CountedSeries(record).value_or(0);
  int remaining = Disk_Raised(known, removal.series_before, "study") - removal.series_removed;
  bool const is_consistent = known == removal.series_removed;
  // too high is what a killed delete leaves
  if (mends || removal.series_left == 0) remaining = removal.series_left;
  if (set_counter(*study, Dicom_Tag(0x0020, 0x1206), remaining) == -1) return -1;
  if (!is_standard() && record.SetNumberOfSeries(Disk_OwnCounter(remaining)) == -1) return -1;
  if (remaining != 0 && level != SCL_QueryRetrieveLevel::STUDY) return 0;
  if (!is_consistent && level == SCL_QueryRetrieveLevel::STUDY)
    DISK_LOG(4, "Delete: Warning: inconsistent db. Un-empty study is deleted\n");
  return DeleteStudy(study);
}

/// A counter of a record; in the standard structure the record keeps its length.
int Disk_DirectoryFile::set_counter(Disk_DirectoryRecord& record, Dicom_Tag const& tag, int value) const {
  if (is_standard()) return record.GetRecordMsg()->Text(tag).empty() ? 0 : Disk_SetCounter(record, tag, value);
  return record.GetRecordMsg()->Set(tag, Dicom_IS(value, true));
}

int Disk_RootDirectoryFile::drop_modality(IOD_Msg& record, Disk_Removal const& removal) {
  if (removal.modality == CS_NULL || removal.modalities_left.count(removal.modality.View()) > 0) return 0;
  if (record.SetMultiModality(record.GetMultiModality().RmSubElement(removal.modality)) == -1) return -1;
  return record.SetModalitiesInStudy(record.GetModalitiesInStudy().RmSubElement(removal.modality));
}

/// Takes away the modalities that no series has any more.
int Disk_RootDirectoryFile::keep_modalities(IOD_Msg& record, Disk_Removal const& removal) {
  auto const kept = [&removal](Dicom_CS values) {
    for (int i = values.GetNValues() - 1; i >= 0; --i) {
      Dicom_CS const value{values.ValueView(i)};
      if (removal.modalities_left.count(value.View()) == 0) values = values.RmSubElement(value);
    }
    return values;
  };
  if (record.SetMultiModality(kept(record.GetMultiModality())) == -1) return -1;
  return record.SetModalitiesInStudy(kept(record.GetModalitiesInStudy()));
}

int Disk_RootDirectoryFile::DeleteStudy(Disk_StudyDirectoryRecord* study) {
  Disk_FileID id(GetFileSetPrefix(), study->GetReferencedFileID(), 0);
  if (DeleteStudyFromList(study) == -1) {
    DISK_LOG(3, "DeleteStudy: error in DeleteStudyFromList\n");
    return -1;
  }
  if (is_standard()) return 0;
  constexpr char kCantDelete[] = "DeleteStudy(): Warning: Can't delete file %s (errno=%d).\n";
  Disk_RemoveFile(id.Path(), 3, "DeleteStudy(): Warning: Can't delete a file %s (errno=%d).\n");
  Disk_RelaxedEpoch::Forget(id);
  id.RemoveLastComponent();
  std::string const folder = id.Path();
  if (folder.empty() || folder == GetFileSetPrefix()) {
    DISK_LOG(4, "DeleteStudy(): Warning: can't remove component from file-id.\n");
    return 0;
  }
  Disk_RemoveFile(folder + "/VERSION", 3, kCantDelete);
  Disk_RemoveFile(folder + "/LOCKFILE", 3, kCantDelete);
  Disk_RemoveDirectory(folder, 3, "DeleteStudy(): Warning: can't remove directory %s (errno=%d)\n");
  return 0;
}

int Disk_RootDirectoryFile::DeleteStudyFromList(Disk_StudyDirectoryRecord* study) {
  DISK_LOG(7, "In DeleteStudyFromList\n");
  if (is_standard()) return standard_delete_study(study);
  Disk_PatientDirectoryRecord* const patient = GetPatientRecord(study->GetRecordMsg()->GetStudyInstanceUID());
  if (!patient) {
    DISK_LOG(3, "DeleteStudy(): Can't find patient directory record.\n");
    return -1;
  }
  studies.Clear();
  delete patient->GetStudyRecords().remove(study);
  if (patient->GetStudyRecords().isEmpty()) delete patients.remove(patient);
  DISK_LOG(7, "Exiting DeleteStudyFromList\n");
  return 0;
}

int Disk_RootDirectoryFile::standard_delete_study(Disk_StudyDirectoryRecord* study) {
  Dicom_UI const uid = study->GetRecordMsg()->GetStudyInstanceUID();
  Disk_PatientDirectoryRecord* const patient = GetPatientRecord(uid);
  if (!patient) {
    DISK_LOG(3, "standard_delete_study: Can't find patient directory record.\n");
    return -1;
  }
  if (study->SetOutOfUse() == -1) {
    DISK_LOG(3, "standard_delete_study: Failed setting the Record In Use Flag in study.\n");
    return -1;
  }
  if (patient->GetStudyRecords().CountRecordsInUse() == 0 && patient->SetOutOfUse() == -1) {
    DISK_LOG(3, "standard_delete_study: Failed setting the Record In Use Flag in patient.\n");
    return -1;
  }
  remove_hash_directory(uid, "standard_delete_study");
  return 0;
}

/// The directory of a study or series of the standard structure. What else stands in it stays, and it too.
void Disk_DirectoryFile::remove_hash_directory(Dicom_UI const& uid, char const* who) {
  lasting_folder.clear();
  std::string const folder = GenerateFileID(uid).Path();
  if (Util_FileSystemInterface::Current().Access(folder.c_str(), 0) == -1) {
    DISK_LOG(6, "%s: dir %s doesn't exist.\n", who, folder.c_str());
    return;
  }
  std::string const version = std::string(who) + ": Warning: Can't delete file %s (errno=%d).\n";
  std::string const directory = std::string(who) + ": Warning: can't remove directory %s (errno=%d)\n";
  if (Disk_RemoveFile(folder + "/VERSION", 4, version.c_str()) == -1) return;
  Disk_RemoveDirectory(folder, 4, directory.c_str());
}
