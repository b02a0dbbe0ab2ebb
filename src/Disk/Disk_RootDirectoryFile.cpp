#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/Disk_Guard.h"
#include "Disk/Disk_RecordIO.h"

#include <infra/I18n.h>

namespace {

constexpr Dicom_Tag kStudyInstanceUid{0x0020, std::uint16_t(0x000D)};

} // namespace

Disk_RootDirectoryFile::Disk_RootDirectoryFile(char const* file_set_prefix, Disk_StoreParams store_params,
                                               long reserved, int* status, Disk_StorageStrategy* strategy)
    : Disk_DirectoryFile(Disk_FileID(file_set_prefix, Dicom_CS("DICOMDIR", status), 0), store_params, nullptr),
      reserved_kb(reserved) {
  DISK_LOG(7, "In Disk_RootDirectoryFile::Disk_RootDirectoryFile()\n");
  SetWritingStrategy(strategy);
  Construct(file_set_prefix, status);
}

Disk_RootDirectoryFile::Disk_RootDirectoryFile(wchar_t const* file_set_prefix, Disk_StoreParams store_params,
                                               long reserved, int* status, Disk_StorageStrategy* strategy)
    : Disk_RootDirectoryFile(ToUTF8(file_set_prefix).data(), store_params, reserved, status, strategy) {}

Disk_RootDirectoryFile::~Disk_RootDirectoryFile() = default;

void Disk_RootDirectoryFile::Construct(char const* file_set_prefix, int* status) {
  if (*status == -1) {
    DISK_LOG(3, "Disk_RootDirectoryFile: Failed init the Dicom_CS.\n");
    return;
  }
  if (lock_manager.Init(file_set_prefix, params.read_only) == -1) {
    DISK_LOG(3, "Disk_RootDirectoryFile: Failed Init the lock.\n");
    *status = -1;
    return;
  }
  if (params.standard_structure) {
    DISK_LOG(3, "Disk_RootDirectoryFile: the standard structure isn't supported.\n");
    *status = -1;
  }
}

int Disk_RootDirectoryFile::Read() {
  if (IsUpToDate()) return 0;
  patients.clearAndDestroy();
  Dicom_Sequence* sequence = nullptr;
  IOD_Msg* msg = nullptr;
  int found = 0;
  if (Disk_DirectoryFile::Read(&sequence, &found, &msg) == -1) {
    DISK_LOG(3, "Read(): Can't read root directory file.\n");
    return -1;
  }
  std::unique_ptr<IOD_Msg> const owner(msg);
  if (!found) return 0;
  int const result = read_records(*sequence);
  if (result == -1) MarkDirty();
  return result;
}

/// The root file is flat: each study belongs to the patient that stands last before it.
int Disk_RootDirectoryFile::read_records(Dicom_Sequence& sequence) {
  Disk_PatientDirectoryRecord* patient = nullptr;
  return Disk_TakeItems(sequence, [&](Dicom_Msg const& item) { return read_record(item, &patient); });
}

int Disk_RootDirectoryFile::read_record(Dicom_Msg const& item, Disk_PatientDirectoryRecord** patient) {
  Dicom_Tag const type_tag(0x0004, 0x1430);
  int status = 0;
  if (item.TextEquals(type_tag, IOD_Image::PATIENT.View())) {
    auto record = std::make_unique<Disk_PatientDirectoryRecord>(&item, status);
    if (status == -1) {
      DISK_LOG(3, "Read(): Can't create patient directory record.\n");
      return -1;
    }
    *patient = record.get();
    patients.append(record.release());
    return 0;
  }
  if (!item.TextEquals(type_tag, IOD_Image::STUDY.View())) {
    DISK_LOG(3, "Read(): Illegal directory record type in root directory.\n");
    KlbGError.Set(DISK_ERROR_RECORD_TYPE);
    return -1;
  }
  auto record = std::make_unique<Disk_StudyDirectoryRecord>(&item, status);
  if (status == -1 || !*patient) {
    DISK_LOG(3, "Read(): Can't create study directory record.\n");
    KlbGError.Set(DISK_ERROR_STUDY_RECORD);
    return -1;
  }
  (*patient)->GetStudyRecords().append(record.release());
  return 0;
}

int Disk_RootDirectoryFile::Write() {
  DISK_LOG(7, "Write:\n");
  Dicom_Sequence sequence;
  for (Disk_PatientDirectoryRecord* patient : patients) {
    if (!patient) {
      DISK_LOG(3, "Write(): Bad patient directory record.\n");
      KlbGError.Set(DISK_ERROR_NULL_RECORD);
      return -1;
    }
    if (sequence.Append(patient->GetRecordMsg(), false) == -1) {
      DISK_LOG(3, "Write(): Can't add message to sequence.\n");
      return -1;
    }
    if (Disk_AppendRecords(patient->GetStudyRecords(), sequence, "Write(): Bad study directory record.\n") == -1)
      return -1;
  }
  return Disk_DirectoryFile::Write(sequence);
}

Disk_PatientDirectoryRecord* Disk_RootDirectoryFile::GetPatientRecord(Dicom_LO const& patient_id,
                                                                      Dicom_LO const& issuer) const {
  for (Disk_PatientDirectoryRecord* patient : patients) {
    IOD_Msg const& record = *patient->GetRecordMsg();
    if (Disk_IsLive(*patient, is_standard()) && record.GetPatientID() == patient_id &&
        record.GetIssuerOfPatientID() == issuer)
      return patient;
  }
  return nullptr;
}

Disk_PatientDirectoryRecord* Disk_RootDirectoryFile::GetPatientRecord(Dicom_UI const& study_uid) const {
  for (Disk_PatientDirectoryRecord* patient : patients)
    if (Disk_IsLive(*patient, is_standard()) && GetStudyRecord(*patient, study_uid)) return patient;
  return nullptr;
}

Disk_StudyDirectoryRecord* Disk_RootDirectoryFile::GetStudyRecord(Disk_PatientDirectoryRecord const& patient,
                                                                  Dicom_UI const& study_uid) const {
  return Disk_FindRecord(patient.GetStudyRecords(), is_standard(), kStudyInstanceUid, study_uid.View());
}

Disk_StudyDirectoryRecord* Disk_RootDirectoryFile::GetStudyRecord(Dicom_UI const& study_uid) const {
  Disk_PatientDirectoryRecord const* patient = GetPatientRecord(study_uid);
  return patient ? GetStudyRecord(*patient, study_uid) : nullptr;
}

void Disk_RootDirectoryFile::GetStudyFile(Disk_StudyDirectoryRecord* study) {
  Disk_FileID const id(GetFileSetPrefix(), study->GetReferencedFileID(), 0);
  if (!study_file || !(study_file->GetFileID() == id))
    study_file = std::make_unique<Disk_StudyDirectoryFile>(id, params, standard_dicomdir, 0);
  study_file->SetWritingStrategy(writing_strategy);
}

void Disk_RootDirectoryFile::ResetStudyFile() {
  if (!is_standard()) study_file.reset();
}
