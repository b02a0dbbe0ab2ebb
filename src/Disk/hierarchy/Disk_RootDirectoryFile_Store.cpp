// Stores one object: finds or makes its patient and study, compares the object with them, hands it down to the study,
// and writes the root last. The private structure gives the file-set's lock up while it works in a known study.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <cerrno>
#include <string_view>

struct Disk_RootDirectoryFile::StoreRoad {
  Disk_RootDirectoryFile& root;

  static constexpr int kStudyIsGone = -2; // from the folder where it was found

  int store(Disk_StoreRequest const& request);
  int find_in_place(Disk_StoreRequest const& request) const;
  int lock_for_store(Disk_FileSetHold& file_set);
  int store_beside_others(Disk_StoreRequest const& request, Disk_FileSetHold& file_set);
  int try_beside_others(Disk_StoreRequest const& request, Disk_FileSetHold& file_set);
  int pin_study(Disk_StudyDirectoryRecord** study);
  int limit_counts(Disk_StudyDirectoryRecord& study);
  int store_alone(Disk_StoreRequest const& request);
  int store_below(Disk_StoreRequest const& request, Disk_StudyDirectoryRecord* study, bool is_pinned, int* new_series,
                  int* new_image);
  int check_identifiers(IOD_Msg const& msg) const;
  int add_study(Disk_StoreRequest const& request, Disk_PatientDirectoryRecord** patient,
                Disk_StudyDirectoryRecord** study);
  int new_patient_record(IOD_Msg const& msg, Disk_PatientDirectoryRecord** patient);
  /// `reference` is null when the object's patient is unknown.
  int check_match(Disk_StoreRequest const& request, Disk_DirectoryRecord const* reference,
                  Disk_StudyDirectoryRecord const& study) const;

  int new_study_directory(Disk_StudyDirectoryRecord* study, int in_place, char const* existing_file);
  int directory_in_place(char const* existing_file, Disk_FileID* id) const;
  int study_directory(Disk_StudyDirectoryRecord const& study, int in_place, char const* existing_file, Disk_FileID* id);
};

int Disk_RootDirectoryFile::Store(Disk_StoreRequest const& request) {
  return Disk_Guarded("Store", [&] { return StoreRoad{*this}.store(request); });
}

int Disk_RootDirectoryFile::Store(IOD_Msg* msg, bool add_icon, int store_unmatching_images, int in_place,
                                  char* existing_file, int move_store, char* file_to_move, char* stored_file_name,
                                  Dicom_UI const* syntax_in_file) {
  return Store({msg, add_icon, store_unmatching_images, in_place, existing_file, move_store, file_to_move,
                stored_file_name, syntax_in_file});
}

int Disk_RootDirectoryFile::StoreRoad::store(Disk_StoreRequest const& request) {
  if (!request.msg)
    return DISK_FAIL(Klb_Cause(DISK_FAILURE_ARGUMENT).Because("there is no object"),
                     "Disk_RootDirectoryFile::Store : StoredObject is NULL\n");
  IOD_Msg& msg = *request.msg;
  root.structure->TellStore("Store: standard DICOMDIR.\n");
  DISK_LOG_TEXT(6, root.Lowercase() ? "Store: Lowercase.\n" : "Store: Uppercase.\n");
  if (check_identifiers(msg) == -1) return -1;
  // its file couldn't be written: better told now than when directories are made
  if (!request.in_place && !request.move_store && msg.GetSOPClassUID() == UI_NULL) {
    DISK_FAIL(DISK_FAILURE_ARGUMENT, "Can't get SOP Class UID.\n");
    return DISK_FAIL("Store: Can't store.\n");
  }
  if (root.refuse_read_only("Store") == -1 || find_in_place(request) == -1) return -1;
  root.ResetStudyFile(); // one that a failure left may have no lock

  Disk_FileSetHold file_set;
  if (lock_for_store(file_set) == -1) return -1;
  if ((root.structure->LocksStudies() ? store_beside_others(request, file_set) : store_alone(request)) == -1) return -1;
  if (file_set.Release() == -1) return DISK_FAIL("Store: Can't unlock file-set.\n");
  root.KeepStudyFile();
  return 0;
}

/// Refuses an object in place whose file is missing, before anything is made for it. A path that isn't below the prefix
/// is refused later, where the new record gets its file ID.
int Disk_RootDirectoryFile::StoreRoad::find_in_place(Disk_StoreRequest const& request) const {
  std::string_view const prefix = root.GetFileSetPrefix(), given = request.existing_file ? request.existing_file : "";
  if (!request.in_place || request.move_store || given.size() <= prefix.size() + 1) return 0;
  int status = 0;
  std::string const file = Disk_FileID(root.GetFileSetPrefix(), request.existing_file, &status, 0).Path();
  struct stat found {};
  if (file.empty() || Util_FileSystemInterface::Current().Stat(file.c_str(), &found) == 0) return 0;
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "find", file), "Store: Can't find %s (errno=%d).\n", file.c_str(), cause);
}

/// Takes the file-set's lock and brings the records up to date.
int Disk_RootDirectoryFile::StoreRoad::lock_for_store(Disk_FileSetHold& file_set) {
  if (root.lock(file_set, false) == -1) return DISK_FAIL("Store: Can't lock file-set.\n");
  if (root.Read() == -1) return DISK_FAIL("Store: Can't read root directory file.\n");
  return 0;
}

/// Where studies have locks of their own: that of the file-set is given up while one works in a known study.
int Disk_RootDirectoryFile::StoreRoad::store_beside_others(Disk_StoreRequest const& request,
                                                           Disk_FileSetHold& file_set) {
  constexpr int kMostTries = 100; // as others may delete the study and make it anew again and again
  for (int i = 0; i < kMostTries; ++i) {
    int const result = try_beside_others(request, file_set);
    if (result != kStudyIsGone) return result;
    root.ResetStudyFile();
    if (lock_for_store(file_set) == -1) return -1;
  }
  return DISK_FAIL(Klb_Cause(DISK_ERROR_SYSTEM + EAGAIN), "Store: the study doesn't stay.\n");
}

/// 0; -1; or kStudyIsGone, with nothing done and no lock held.
int Disk_RootDirectoryFile::StoreRoad::try_beside_others(Disk_StoreRequest const& request, Disk_FileSetHold& file_set) {
  Dicom_UI const study_uid = request.msg->GetStudyInstanceUID();
  Disk_StudyDirectoryRecord* study = root.GetStudyRecord(study_uid);
  // a known study has its own lock: other studies go on meanwhile
  if (study && pin_study(&study) == -1) return DISK_FAIL("Store: Can't lock study .\n");
  bool const new_study = !study;
  Disk_PatientDirectoryRecord* patient = nullptr;
  if (new_study) {
    root.MarkDirty(); // a failure from here on makes the next Read load the records again
    if (add_study(request, &patient, &study) == -1) return -1;
    root.GetStudyFile(study);
    DISK_LOG(7, "Store: locking the study.\n");
  }
  long const version = root.file_version;
  if (!new_study && file_set.Release() == -1) return DISK_FAIL("Store: Can't unlock file-set.\n");
  int new_series = 0, new_image = 0;
  if (int const result = store_below(request, study, !new_study, &new_series, &new_image); result != 0) return result;
  if (!new_study) {
    if (lock_for_store(file_set) == -1) return -1;
    errno = 0;
    // one that was made anew lacks the object
    study = root.study_file->IsInPlace() ? root.GetStudyRecord(study_uid) : nullptr;
    if (!study) {
      Klb_Cause const cause = Klb_System(errno == 0 ? ESTALE : errno, "find the study's record again");
      return DISK_FAIL(cause, "Problem reading study record of study <%s>\n", study_uid.CStr());
    }
  }
  bool const others_wrote = !new_study && (root.file_version != version || root.study_file->HasDropped());
  root.MarkDirty();
  if (root.structure->UpdateStudy(*study, *request.msg, new_series, new_image) == -1 ||
      (others_wrote && limit_counts(*study) == -1))
    return DISK_FAIL("Store: Failed updating the zentara details.\n");
  if (root.Write() == 0) return 0;
  return DISK_FAIL("Store: Can't update the file.\n");
}

/// A delete that came while the file-set was given up has counted what the study's file holds, with what a store had
/// just brought: its counts aren't to be raised for that once more.
int Disk_RootDirectoryFile::StoreRoad::limit_counts(Disk_StudyDirectoryRecord& study) {
  int series = 0, images = 0;
  if (root.study_file->Count(&series, &images) == -1) return -1;
  auto const limit = [&](Disk_Counter const& counter, int most) {
    if (Disk_Counted(*study.GetRecordMsg(), counter).value_or(0) <= most) return 0;
    int const result = root.structure->SetCounter(study, counter, most);
    if (result == -1) DISK_FAIL("Store: Can't update study directory record.\n");
    return result;
  };
  return limit(kImagesOfStudy, images) == -1 ? -1 : limit(kSeriesOfStudy, series);
}

/// Makes `study_file` that of a known study, and pins it. A killed delete leaves a record whose folder is gone, and
/// nobody could ever store there again: such a record is dropped, and `*study` becomes null. 0 or -1.
int Disk_RootDirectoryFile::StoreRoad::pin_study(Disk_StudyDirectoryRecord** study) {
  Dicom_UI const uid = (*study)->GetRecordMsg()->GetStudyInstanceUID();
  Klb_Attempt const attempt;
  root.GetStudyFile(*study);
  DISK_LOG(7, "Store: locking the study.\n");
  if (root.study_file && root.study_file->Pin() == 0) return 0;
  if (!root.has_lost_folder(**study)) return -1;
  attempt.Forget();
  root.ResetStudyFile();
  root.MarkDirty(); // the records may be older than what the folder looks like
  if (root.Read() == -1) return -1;
  *study = root.GetStudyRecord(uid);
  if (!*study) return 0;
  if (!root.has_lost_folder(**study)) {
    root.GetStudyFile(*study);
    return root.study_file ? root.study_file->Pin() : -1;
  }
  root.MarkDirty();
  root.dropped_id = (*study)->GetReferencedFileID().GetText();
  if (root.DeleteCorruptedEntry(*study) == -1 || root.GetStudyRecord(uid)) return -1;
  DISK_LOG(4, "Store: study %s had no folder any more; it is made anew.\n", uid.CStr());
  *study = nullptr;
  return 0;
}

/// Under the file-set's lock throughout.
int Disk_RootDirectoryFile::StoreRoad::store_alone(Disk_StoreRequest const& request) {
  root.MarkDirty();
  if (root.structure->CheckPatients(*root.records) == -1) return -1;
  Operation operation(root);
  if (!operation.begun) return -1;
  IOD_Msg const& msg = *request.msg;
  auto [owner, study] = root.records->FindStudy(*root.structure, msg.GetStudyInstanceUID());
  bool const new_study = !study;
  if (!request.in_place && root.structure->PrepareFolder(root, msg.GetStudyInstanceUID(), !new_study) == -1) return -1;
  Disk_PatientDirectoryRecord* patient = root.GetPatientRecord(msg.GetPatientID(), msg.GetIssuerOfPatientID());
  if (new_study) {
    if (add_study(request, &patient, &study) == -1) return -1;
    owner = patient;
  } else {
    if (check_match(request, patient, *study) == -1) return -1;
    if (patient && patient->GetRecordMsg()->GetPatientID() != owner->GetRecordMsg()->GetPatientID())
      DISK_LOG(4, "Store: the study of the object belongs to another patient, but the image is stored\n");
  }
  root.records->touched_patients.insert(owner);
  root.GetStudyFile(study);
  DISK_LOG(7, "Store: locking the study.\n");
  int new_series = 0, new_image = 0;
  if (store_below(request, study, false, &new_series, &new_image) == -1) return -1;
  if (root.structure->UpdateStudy(*study, msg, new_series, new_image) == -1)
    return DISK_FAIL("Store: Failed updating the standard DICOMDIR details.\n");
  if (root.Write() == 0 && operation.Commit() == 0) return 0;
  return DISK_FAIL("Store: Can't update the file.\n");
}

/// The part of a store below the root, under the study's lock. A study that was pinned when the file-set was locked may
/// be kStudyIsGone by now.
int Disk_RootDirectoryFile::StoreRoad::store_below(Disk_StoreRequest const& request, Disk_StudyDirectoryRecord* study,
                                                   bool is_pinned, int* new_series, int* new_image) {
  Disk_Hold<Disk_StudyDirectoryFile> held;
  int const locked = !root.study_file ? -1
                     : is_pinned      ? held.Pinned(*root.study_file)
                                      : held.Exclusive(*root.study_file);
  if (locked == -1) {
    if (root.study_file && is_pinned && errno == ESTALE) return kStudyIsGone;
    return DISK_FAIL("Store: Can't lock study .\n");
  }
  if (is_pinned && check_match(request, study, *study) == -1) return -1;
  if (root.study_file->Store(request, study, new_series, new_image) == -1) return DISK_FAIL("Store: Can't store.\n");
  if (held.Release() == 0) return 0;
  return DISK_FAIL("Store: Can't unlock file-set.\n");
}

int Disk_RootDirectoryFile::StoreRoad::check_identifiers(IOD_Msg const& msg) const {
  char const* const missing = msg.GetStudyInstanceUID() == UI_NULL    ? "Store: Missing Study Instance UID.\n"
                              : msg.GetSeriesInstanceUID() == UI_NULL ? "Store: Missing Series Instance UID.\n"
                              : msg.GetSOPInstanceUID() == UI_NULL    ? "Store: Missing SOP Instance UID.\n"
                              : msg.GetPatientID() == LO_NULL         ? "Store: Missing Patient ID.\n"
                                                                      : nullptr;
  if (missing) return DISK_FAIL_TEXT(DISK_FAILURE_ARGUMENT, missing);
  DISK_LOG(6, "Store: Storing instance of study %s\n", msg.GetStudyInstanceUID().CStr());
  DISK_LOG(6, "Store: Storing instance of series %s\n", msg.GetSeriesInstanceUID().CStr());
  DISK_LOG(6, "Store: Instance UID %s\n", msg.GetSOPInstanceUID().CStr());
  return 0;
}

int Disk_RootDirectoryFile::StoreRoad::add_study(Disk_StoreRequest const& request,
                                                 Disk_PatientDirectoryRecord** patient,
                                                 Disk_StudyDirectoryRecord** study) {
  IOD_Msg const& msg = *request.msg;
  *patient = root.GetPatientRecord(msg.GetPatientID(), msg.GetIssuerOfPatientID());
  if (!*patient && new_patient_record(msg, patient) == -1) return -1;
  std::unique_ptr<Disk_StudyDirectoryRecord> record(new (std::nothrow) Disk_StudyDirectoryRecord());
  if (!record) Klb_Note(Klb_Cause(DISK_ERROR_MEMORY).Because("out of memory"));
  if (!record || root.structure->Fill(*record, msg) == -1)
    return DISK_FAIL("Store: Can't create new study directory record.\n");
  if (root.NewStudy(*patient, record.get(), request.in_place, request.existing_file) == -1)
    return DISK_FAIL("Store: Can't create new study.\n");
  *study = record.release();
  if (root.structure->MarkNew(**study) == -1) return DISK_FAIL("Store: Can't set protection flag.\n");
  return 0;
}

int Disk_RootDirectoryFile::StoreRoad::new_patient_record(IOD_Msg const& msg, Disk_PatientDirectoryRecord** patient) {
  std::unique_ptr<Disk_PatientDirectoryRecord> record(new (std::nothrow) Disk_PatientDirectoryRecord());
  if (!record) Klb_Note(Klb_Cause(DISK_ERROR_MEMORY).Because("out of memory"));
  if (!record || root.structure->Fill(*record, msg) == -1)
    return DISK_FAIL("Store: Can't create new patient directory record.\n");
  if (root.NewPatient(record.get()) == -1) return DISK_FAIL("Store: Can't create new patient.\n");
  *patient = record.release();
  return 0;
}

int Disk_RootDirectoryFile::NewPatient(Disk_PatientDirectoryRecord* patient) {
  return structure->Add(*records, patient);
}

int Disk_RootDirectoryFile::NewStudy(Disk_PatientDirectoryRecord* patient, Disk_StudyDirectoryRecord* study,
                                     int in_place, char const* existing_file) {
  DISK_LOG(7, "NewStudy:\n");
  if (structure->InNamedFolder([&] { return StoreRoad{*this}.new_study_directory(study, in_place, existing_file); }) ==
      -1)
    return -1;
  return structure->Add(*records, patient, study);
}

int Disk_RootDirectoryFile::StoreRoad::new_study_directory(Disk_StudyDirectoryRecord* study, int in_place,
                                                           char const* existing_file) {
  Disk_FileID id;
  if (study_directory(*study, in_place, existing_file, &id) == -1) return -1;
  if (id.AddComponent(Disk_Names::kDirectoryFile) == -1)
    return DISK_FAIL("NewStudy(): Can't add component to file-id.\n");
  Disk_StudyDirectoryFile file(id, root.params, root.standard_dicomdir, 0);
  file.MarkUnnamed();
  if ((in_place && file.RefuseLink() == -1) || file.Write() == -1)
    return DISK_FAIL("NewStudy(): Can't write new directory file.\n");
  return study->SetReferencedFileID(id.GetID());
}

/// The directory of a new study: that above the series of an object in place, or a new one.
int Disk_RootDirectoryFile::StoreRoad::study_directory(Disk_StudyDirectoryRecord const& study, int in_place,
                                                       char const* existing_file, Disk_FileID* id) {
  int status = 0;
  IOD_Msg const& record = *study.GetRecordMsg();
  if (in_place)
    status = directory_in_place(existing_file, id);
  else
    *id = root.GenerateReferencedFileID(record.GetStudyID(), record.GetStudyInstanceUID(), &status);
  if (status == -1) return DISK_FAIL("NewStudy(): Can't generate a file ID.\n");
  std::string const path = id->Path();
  if (in_place || root.make_directory(path) == 0) return 0;
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "create the folder", path),
                   "NewStudy(): Can't create a new directory %s (errno=%d)\n", path.c_str(), cause);
}

/// The folder two levels above an object. A directory file is written into it, so it must not be the file-set's own,
/// nor that of another study or in there.
int Disk_RootDirectoryFile::StoreRoad::directory_in_place(char const* existing_file, Disk_FileID* id) const {
  int status = 0;
  std::string const prefix = root.GetFileSetPrefix();
  std::string path = Disk_FileID(prefix.c_str(), existing_file, &status, 0).Path();
  if (status == -1) return -1;
  for (int i = 0; i < 2 && path.size() > prefix.size(); ++i)
    path.resize(path.rfind('/'));
  bool is_free = path.size() > prefix.size();
  for (Disk_PatientDirectoryRecord* patient : root.records->patients)
    for (Disk_StudyDirectoryRecord* study : patient->GetStudyRecords()) {
      std::string const other = Disk_FileID(prefix.c_str(), study->GetReferencedFileID(), 0).Path();
      std::size_t const end = other.empty() ? 0 : other.rfind('/') + 1;
      if (end > prefix.size() + 1 && (path + "/").starts_with(other.substr(0, end))) is_free = false;
    }
  if (is_free) {
    *id = Disk_FileID(prefix.c_str(), path.c_str(), &status, 0);
    return status;
  }
  return DISK_FAIL(DISK_ERROR_FILE_NAME, "%s can't be in place as the first object of a study.\n", existing_file);
}

bool Disk_RootDirectoryFile::is_named(std::string const& id) const {
  std::string const file = id + std::string("\\") + Disk_Names::kDirectoryFile;
  for (Disk_PatientDirectoryRecord* patient : records->patients)
    for (Disk_StudyDirectoryRecord* study : patient->GetStudyRecords())
      if (study->GetRecordMsg()->TextEquals(kReferencedFileID, file)) return true;
  return file == dropped_id;
}

Disk_FileID Disk_RootDirectoryFile::GenerateReferencedFileID(Dicom_SH const& study_id, Dicom_UI const& study_uid,
                                                             int* status) const {
  DISK_LOG(7, "GenerateReferencedFileID:\n");
  constexpr std::size_t kIdLength = 6;
  std::string_view const text = study_id == SH_NULL ? study_uid.View() : study_id.View();
  return unique_file_id("S" + name_part(sanitized(text), kIdLength) + "0", status, 7);
}

namespace {

struct Mismatch {
  char const* tolerated;
  char const* refused;
  char const* values; // the object's, then the stored one
  char const* attribute;
  int code;
};

constexpr Mismatch kName{"Store: Patient's name doesn't match the study UID, but the image is stored\n",
                         "Store: Patient's name does not match the study UID.\n",
                         "Patient Name is %s, but must be %s\n", "Patient's Name", DISK_ERROR_PATIENT_MISMATCH};
constexpr Mismatch kId{"Store: Patient ID doesn't match the study UID, but the image is stored\n",
                       "Store: Patient ID does not match the study UID.\n", "Patient ID is %s, but must be %s\n",
                       "Patient ID", DISK_ERROR_PATIENT_MISMATCH};
constexpr Mismatch kStudyId{"Store: Study ID doesn't match the study UID, but the image is stored.\n",
                            "Store: Study ID does not match the study UID of old images of the same study.\n",
                            "Study ID is %s, but must be %s. Store cant be done...\n", "Study ID",
                            DISK_ERROR_STUDY_ID_MISMATCH};

/// Logs a mismatch. 0 when it is tolerated, otherwise -1.
int Mismatched(Mismatch const& mismatch, Dicom_StringType const& its, Dicom_StringType const& stored, bool tolerate) {
  if (tolerate) {
    DISK_LOG_TEXT(5, mismatch.tolerated);
    return 0;
  }
  DISK_LOG_TEXT(3, mismatch.refused);
  std::string const why =
      std::string(mismatch.attribute) + " is " + its.GetText() + ", but must be " + stored.GetText();
  return DISK_FAIL(Klb_Cause(mismatch.code).Because(why), mismatch.values, its.CStr(), stored.CStr());
}

int Compare(Mismatch const& mismatch, Dicom_StringType const& its, Dicom_StringType const& stored, bool tolerate) {
  return its.View() == stored.View() ? 0 : Mismatched(mismatch, its, stored, tolerate);
}

} // namespace

int Disk_RootDirectoryFile::StoreRoad::check_match(Disk_StoreRequest const& request,
                                                   Disk_DirectoryRecord const* reference,
                                                   Disk_StudyDirectoryRecord const& study) const {
  IOD_Msg const& msg = *request.msg;
  bool const tolerate = request.store_unmatching_images != 0;
  if (reference) {
    IOD_Msg const& known = *reference->GetRecordMsg();
    if (Compare(kName, msg.GetPatientsName(), known.GetPatientsName(), tolerate) == -1) return -1;
    if (Compare(kId, msg.GetPatientID(), known.GetPatientID(), tolerate) == -1) return -1;
  } else { // no patient has the object's ID and issuer, so the study's doesn't
    IOD_Msg const& known = *root.GetPatientRecord(msg.GetStudyInstanceUID())->GetRecordMsg();
    if (Mismatched(kId, msg.GetPatientID(), known.GetPatientID(), tolerate) == -1)
      return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Issuer of Patient ID is '%s', and '%s' of the study's patient.\n",
                       msg.GetIssuerOfPatientID().CStr(), known.GetIssuerOfPatientID().CStr());
  }
  if (Compare(kStudyId, msg.GetStudyID(), study.GetRecordMsg()->GetStudyID(), tolerate) == 0) return 0;
  DISK_LOG(4, "Store can be more tolerant, if the parameter store_unmatching_images is TRUE within all_clients\n");
  return -1;
}
