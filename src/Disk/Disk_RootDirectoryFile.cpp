// Opens a file-set, takes its lock, reads and writes the patient and study records, and finds records among them.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/Disk_Operation.h"
#include "Disk/Disk_RecordIO.h"

#include <infra/I18n.h>

#include <utility>

namespace {

constexpr Dicom_Tag kStudyInstanceUid{0x0020, std::uint16_t(0x000D)};
constexpr Dicom_Tag kPatientId{0x0010, std::uint16_t(0x0020)};

} // namespace

Disk_RootDirectoryFile::Disk_RootDirectoryFile(char const* file_set_prefix, Disk_StoreParams store_params,
                                               long reserved, int* status, Disk_StorageStrategy* strategy)
    : Disk_DirectoryFile(Disk_FileID(file_set_prefix, Dicom_CS("DICOMDIR", status), 0), store_params, nullptr),
      reserved_kb(reserved) {
  DISK_LOG(7, "In Disk_RootDirectoryFile::Disk_RootDirectoryFile()\n");
  SetWritingStrategy(strategy);
  // without a status nobody would know of a failure: every operation fails then, as no lock was made
  if (Disk_RefuseNull("Disk_RootDirectoryFile", status) == 0) Construct(file_set_prefix, status);
}

Disk_RootDirectoryFile::Disk_RootDirectoryFile(wchar_t const* file_set_prefix, Disk_StoreParams store_params,
                                               long reserved, int* status, Disk_StorageStrategy* strategy)
    : Disk_RootDirectoryFile(file_set_prefix ? ToUTF8(file_set_prefix).data() : nullptr, store_params, reserved, status,
                             strategy) {}

Disk_RootDirectoryFile::~Disk_RootDirectoryFile() {
  if (!dicomdir || !dicomdir->UsesRedoFile()) return;
  int const code = KlbGError.Get();
  Disk_Guarded("~Disk_RootDirectoryFile", [&] {
    if (lock_manager.TryLockExclusive() != 0) return 0; // who has it may need the file
    dicomdir->RemoveRedoFile();
    return lock_manager.UnlockExclusive();
  });
  KlbGError.Set(code); // nobody asked for this
}

void Disk_RootDirectoryFile::Construct(char const* file_set_prefix, int* status) {
  if (*status == -1) {
    DISK_LOG(3, "Disk_RootDirectoryFile: Failed init the Dicom_CS.\n");
    return;
  }
  *status = Disk_RefuseNull("Disk_RootDirectoryFile", file_set_prefix);
  if (*status == 0) *status = Disk_Guarded("Disk_RootDirectoryFile", [&] { return construct(file_set_prefix); });
}

int Disk_RootDirectoryFile::construct(char const* file_set_prefix) {
  if ((!params.read_only && Recover(file_set_prefix) == -1) ||
      lock_manager.Init(file_set_prefix, params.read_only) == -1) {
    DISK_LOG(3, "Disk_RootDirectoryFile: Failed Init the lock.\n");
    return -1;
  }
  if (leave_epoch() == -1) return -1;
  epoch = std::make_unique<Disk_RelaxedEpoch>(file_set_prefix, params.standard_structure != 0);
  return params.standard_structure ? open_dicomdir(file_set_prefix) : 0;
}

/// Opens the standard DICOMDIR, or makes it, under the file-set's lock.
int Disk_RootDirectoryFile::open_dicomdir(char const* file_set_prefix) {
  Disk_FileSetHold file_set;
  if ((params.read_only ? file_set.Shared(lock_manager) : file_set.Exclusive(lock_manager)) == -1) {
    DISK_LOG(3, "Disk_RootDirectoryFile: Failed Init the lock.\n");
    return -1;
  }
  dicomdir = std::make_unique<Disk_DicomDir>();
  dicomdir->PassOverDamage(passes_over_damage());
  standard_dicomdir = dicomdir.get();
  if ((!params.read_only && Disk_DicomDir::Replay(file_set_prefix) == -1) ||
      dicomdir->Init(file_set_prefix, params.read_only, writing_strategy) == -1) {
    DISK_LOG(3, "Disk_RootDirectoryFile: Failed Init standard_dicomdir.\n");
    return -1;
  }
  return 0;
}

int Disk_RootDirectoryFile::lock(Disk_FileSetHold& hold, bool shared, bool writes) {
  if (leave_epoch() == -1) return -1;
  if (writes && !hold.durability.HasBegun()) begin_durability(hold);
  if ((shared ? hold.Shared(lock_manager) : hold.Exclusive(lock_manager)) == -1) return -1;
  if (!is_standard()) return 0;
  auto const follow = [this](int change) {
    if (change == 1) forget_records();
    return change != -1;
  };
  if (!follow(dicomdir->FollowPath(params.read_only, writing_strategy))) return -1;
  if (params.read_only ? !follow(dicomdir->LayRedoOver()) : complete_redo(hold, shared) == -1) return -1;
  if (!follow(dicomdir->GoBy(writing_strategy))) return -1;
  if (!params.read_only && !dicomdir->IsCurrent()) forget_records();
  return 0;
}

int Disk_RootDirectoryFile::complete_redo(Disk_FileSetHold& hold, bool shared) {
  constexpr int kMostTries = 100; // completing takes the lock exclusively, and others get in between
  for (int i = 0; dicomdir->HasRedo(); ++i) {
    if (i == kMostTries) {
      DISK_LOG(3, "The redo record of %s doesn't go.\n", GetFileSetPrefix());
      KlbGError.Set(DISK_ERROR_SYSTEM + EAGAIN);
      return -1;
    }
    if (shared && hold.Exclusive(lock_manager) == -1) return -1;
    if (Disk_DicomDir::Replay(GetFileSetPrefix()) == -1) return -1;
    forget_records();
    if (shared && hold.Shared(lock_manager) == -1) return -1;
  }
  return 0;
}

/// An operation that can't take part in a relaxed epoch, on a full disk for instance, is durable.
void Disk_RootDirectoryFile::begin_durability(Disk_FileSetHold& hold) {
  Util_Durability durability = Util_FileSystem::GetDurability();
  bool const needs_epoch = epoch && !params.read_only && !keeps_image();
  if (durability == Util_Durability::Relaxed && needs_epoch && hold.epoch.Shared(*epoch) == -1) {
    DISK_LOG(4, "No relaxed operation is possible here (errno=%d), so this one is durable.\n", errno);
    durability = Util_Durability::Full;
  }
  hold.durability.Begin(durability);
}

/// Private directory files are written without a strategy.
bool Disk_RootDirectoryFile::keeps_image() const {
  return params.standard_structure && Disk_DicomDir::KeepsImage(writing_strategy);
}

/// What a strategy writes that keeps its data is no part of an epoch: one that is open ends when the strategy is new.
int Disk_RootDirectoryFile::leave_epoch() {
  if (params.read_only || !keeps_image() || (dicomdir && dicomdir->GoesBy(writing_strategy))) return 0;
  return Disk_RelaxedEpoch::IsOpen(GetFileSetPrefix()) == 0 ? 0 : Sync();
}

int Disk_RootDirectoryFile::Sync() {
  return Disk_Guarded("Sync", [&] {
    if (params.read_only && Disk_RelaxedEpoch::IsOpen(GetFileSetPrefix()) == 0) return 0;
    if (refuse_read_only("Sync") == -1) return -1;
    if (Disk_RelaxedEpoch::End(GetFileSetPrefix()) == 0) return 0;
    int const cause = errno;
    DISK_LOG(3, "Sync: Can't sync %s (errno=%d).\n", GetFileSetPrefix(), cause);
    KlbGError.Set(DISK_ERROR_SYSTEM + cause);
    return -1;
  });
}

int Disk_RootDirectoryFile::Recover(char const* file_set_prefix) {
  return Disk_Guarded("Recover", [&] { return Disk_RelaxedEpoch::Recover(file_set_prefix); });
}

/// What is in memory may not be what stands in the file: all is read again when it is needed.
void Disk_RootDirectoryFile::forget_records() {
  MarkDirty();
  study_file.reset();
  kept_study_file.reset();
}

int Disk_RootDirectoryFile::Read() {
  if (may_keep_records()) return 0;
  MarkDirty(); // until all is read: what fails on the way must not leave a part of it as the whole
  lasting_folder.clear();
  patients.clearAndDestroy();
  studies.Clear();
  if ((is_standard() ? read_standard() : read_private()) == -1) return -1;
  is_loaded = true;
  return 0;
}

int Disk_RootDirectoryFile::read_private() {
  Dicom_Sequence* sequence = nullptr;
  IOD_Msg* msg = nullptr;
  int found = 0;
  if (Disk_DirectoryFile::Read(&sequence, &found, &msg) == -1) {
    DISK_LOG(3, "Read(): Can't read root directory file.\n");
    return -1;
  }
  std::unique_ptr<IOD_Msg> const owner(msg);
  if (!found) return 0;
  long const version = std::exchange(file_version, 0);
  if (read_records(*sequence) == -1) return -1;
  file_version = version;
  return 0;
}

int Disk_RootDirectoryFile::read_standard() {
  dicomdir->ForgetClaims();
  touched_patients.clear();
  if (dicomdir->RefreshOffsetEnd() == -1) {
    DISK_LOG(3, "Read: Failed refreshing the end offset.\n");
    return -1;
  }
  unsigned const first = dicomdir->GetOffsetOfTheFirstDirectoryRecord();
  if (first == 0) {
    DISK_LOG(3, "Read: the offset of the patient record doesn't exist.\n");
    return -1;
  }
  if (first == dicomdir->GetOffsetEnd()) return 0;
  DISK_LOG(7, "Read: the patient offset is %d.\n", int(first));
  if (patients.ReadRecords(*dicomdir, first) == -1) {
    DISK_LOG(3, "Read: Failed reading the records.\n");
    return -1;
  }
  reaches_patients = false;
  for (Disk_PatientDirectoryRecord* patient : patients)
    reaches_patients = reaches_patients || patient->GetDirectoryRecordType() == IOD_Image::PATIENT;
  ReadFileVersion();
  return 0;
}

/// The root file is flat: each study belongs to the patient that stands last before it.
int Disk_RootDirectoryFile::read_records(Dicom_Sequence& sequence) {
  Disk_PatientDirectoryRecord* patient = nullptr;
  return Disk_TakeItems(sequence, [&](std::unique_ptr<Dicom_Msg> item) {
    Disk_PassingOver const damage{passes_over_damage()};
    return read_record(std::move(item), &patient) == 0 ? 0 : damage.Failed();
  });
}

int Disk_RootDirectoryFile::read_record(std::unique_ptr<Dicom_Msg> item, Disk_PatientDirectoryRecord** patient) {
  Dicom_Tag const type_tag(0x0004, 0x1430);
  if (item->TextEquals(type_tag, IOD_Image::PATIENT.View())) {
    constexpr char kCantCreate[] = "Read(): Can't create patient directory record.\n";
    if (Disk_TakeRecord(std::move(item), patients, kCantCreate, DISK_ERROR_MEMORY) == -1) return -1;
    *patient = static_cast<Disk_PatientDirectoryRecord*>(patients.last());
    return 0;
  }
  if (!item->TextEquals(type_tag, IOD_Image::STUDY.View())) {
    DISK_LOG(3, "Read(): Illegal directory record type in root directory.\n");
    KlbGError.Set(DISK_ERROR_RECORD_TYPE);
    return -1;
  }
  constexpr char kCantCreate[] = "Read(): Can't create study directory record.\n";
  if (!*patient) DISK_LOG_TEXT(3, kCantCreate);
  if (*patient &&
      Disk_TakeRecord(std::move(item), (*patient)->GetStudyRecords(), kCantCreate, DISK_ERROR_STUDY_RECORD) == 0)
    return 0;
  KlbGError.Set(DISK_ERROR_STUDY_RECORD);
  return -1;
}

int Disk_RootDirectoryFile::Write() {
  DISK_LOG(7, "Write:\n");
  if (is_standard()) {
    int const result = standard_write();
    if (result == -1) DISK_LOG(3, "Write: Failed write to standard DICOMDIR.\n");
    return result;
  }
  Dicom_Sequence sequence;
  sequence.Reserve(patients.entries() + study_index().Size());
  for (Disk_PatientDirectoryRecord* patient : patients) {
    if (Disk_AppendRecord(patient, sequence, "Write(): Bad patient directory record.\n") == -1) return -1;
    if (Disk_AppendRecords(patient->GetStudyRecords(), sequence, "Write(): Bad study directory record.\n") == -1)
      return -1;
  }
  return Disk_DirectoryFile::Write(sequence);
}

int Disk_RootDirectoryFile::standard_write() {
  if (dicomdir->Write(writing_strategy) == -1) {
    DISK_LOG(3, "Write: Failed writing the standard DICOMDIR prefix.\n");
    return -1;
  }
  unsigned const first = dicomdir->GetOffsetOfTheFirstDirectoryRecord();
  if (first == 0) {
    DISK_LOG(3, "standard_write: the offset of the patient records doesn't exist.\n");
    return -1;
  }
  if (dicomdir->WriteRecords(patients, first, writing_strategy) == -1) {
    DISK_LOG(3, "standard_write: Failed writing the patient records.\n");
    return -1;
  }
  for (Disk_PatientDirectoryRecord* patient : touched_patients) {
    unsigned const below = patient->GetOffsetOfReferencedLowerLevelDirectoryEntity();
    if (below == 0) {
      DISK_LOG(3, "standard_write: the offset of the study records doesn't exist.\n");
      return -1;
    }
    if (dicomdir->WriteRecords(patient->GetStudyRecords(), below, writing_strategy) == -1) {
      DISK_LOG(3, "standard_write: Failed writing the study records.\n");
      return -1;
    }
  }
  touched_patients.clear();
  if (UpdateFileVersion() == 0) return 0;
  DISK_LOG(3, "standard_write: Failed update the file version.\n");
  return -1;
}

Disk_PatientDirectoryRecord* Disk_RootDirectoryFile::GetPatientRecord(Dicom_LO const& patient_id,
                                                                      Dicom_LO const& issuer) const {
  return patients.Find(kPatientId, patient_id.View(), [&](Disk_PatientDirectoryRecord const& patient) {
    return Disk_IsLive(patient, is_standard()) && patient.GetRecordMsg()->GetIssuerOfPatientID() == issuer;
  });
}

Disk_PatientDirectoryRecord* Disk_RootDirectoryFile::GetPatientRecord(Dicom_UI const& study_uid) const {
  return find_study(study_uid).patient;
}

Disk_StudyDirectoryRecord* Disk_RootDirectoryFile::GetStudyRecord(Dicom_UI const& study_uid) const {
  Disk_PatientDirectoryRecord const* const patient = GetPatientRecord(study_uid);
  return patient ? GetStudyRecord(*patient, study_uid) : nullptr;
}

Disk_StudyDirectoryRecord* Disk_RootDirectoryFile::GetStudyRecord(Disk_PatientDirectoryRecord const& patient,
                                                                  Dicom_UI const& study_uid) const {
  auto const is_of_patient = [&](Disk_StudyIndex::Entry const& entry) {
    return entry.patient == &patient && Disk_IsLive(*entry.study, is_standard());
  };
  return study_index().Find(study_uid.View(), is_of_patient).study;
}

/// Over all patients.
Disk_StudyIndex::Entry Disk_RootDirectoryFile::find_study(Dicom_UI const& study_uid) const {
  return study_index().Find(study_uid.View(), [this](Disk_StudyIndex::Entry const& entry) {
    return Disk_IsLive(*entry.patient, is_standard()) && Disk_IsLive(*entry.study, is_standard());
  });
}

Disk_StudyIndex const& Disk_RootDirectoryFile::study_index() const {
  if (studies.IsEmpty()) {
    Disk_StudyIndex index; // one that memory doesn't suffice for mustn't pass for the whole
    for (Disk_PatientDirectoryRecord* patient : patients)
      for (Disk_StudyDirectoryRecord* study : patient->GetStudyRecords())
        index.Add(patient, study);
    studies = std::move(index);
  }
  return studies;
}

void Disk_RootDirectoryFile::GetStudyFile(Disk_StudyDirectoryRecord* study) {
  if (kept_study_file && !study_file && kept_study_file->RefuseLink() == 0) study_file = std::move(kept_study_file);
  open_below(study_file, *study, kStudyInstanceUid);
}

void Disk_RootDirectoryFile::ResetStudyFile() {
  if (!is_standard()) study_file.reset();
}

/// The next operation is often about the same study. Its records are read again then if others have written them.
void Disk_RootDirectoryFile::KeepStudyFile() {
  if (!is_standard()) kept_study_file = std::move(study_file);
}
