// Opens a file-set, takes its lock, reads and writes the patient and study records, and finds records among them.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/check/Disk_Recovery.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <infra/I18n.h>

Disk_RootDirectoryFile::Disk_RootDirectoryFile(char const* file_set_prefix, Disk_StoreParams store_params,
                                               long reserved, int* status, Disk_StorageStrategy* strategy)
    : Disk_DirectoryFile(Disk_FileID(file_set_prefix, Dicom_CS(Disk_Names::kDicomdir, status), 0), store_params,
                         nullptr),
      records(std::make_unique<Disk_RootRecords>()), reserved_kb(reserved) {
  structure = Disk_Structure::OfRoot(store_params);
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
  int const code = KlbGError.Get();
  Klb_Quiet const quiet;
  Disk_Guarded("~Disk_RootDirectoryFile", [&] {
    structure->Close(lock_manager);
    return 0;
  });
  KlbGError.Set(code); // nobody asked for this
}

void Disk_RootDirectoryFile::Construct(char const* file_set_prefix, int* status) {
  if (*status == -1) {
    DISK_FAIL(DISK_FAILURE_ARGUMENT, "Disk_RootDirectoryFile: Failed init the Dicom_CS.\n");
    return;
  }
  *status = Disk_RefuseNull("Disk_RootDirectoryFile", file_set_prefix);
  if (*status == 0) *status = Disk_Guarded("Disk_RootDirectoryFile", [&] { return construct(file_set_prefix); });
}

int Disk_RootDirectoryFile::construct(char const* file_set_prefix) {
  if ((!params.read_only && Recover(file_set_prefix) == -1) ||
      lock_manager.Init(file_set_prefix, params.read_only) == -1)
    return DISK_FAIL("Disk_RootDirectoryFile: Failed Init the lock.\n");
  if (leave_epoch() == -1) return -1;
  epoch = std::make_unique<Disk_RelaxedEpoch>(file_set_prefix, structure->Name(), Disk_Recover);
  int const result = structure->Open(file_set_prefix, params, writing_strategy, lock_manager);
  standard_dicomdir = structure->DicomDir();
  return result;
}

int Disk_RootDirectoryFile::lock(Disk_FileSetHold& hold, bool shared, bool writes) {
  if (leave_epoch() == -1) return -1;
  if (writes && !hold.durability.HasBegun()) begin_durability(hold);
  if ((shared ? hold.Shared(lock_manager) : hold.Exclusive(lock_manager)) == -1) return -1;
  bool stale = false;
  int const result =
      structure->TakeOver(GetFileSetPrefix(), params, writing_strategy, hold, lock_manager, shared, &stale);
  if (stale) forget_records();
  return result;
}

/// An operation that can't take part in a relaxed epoch, on a full disk for instance, is durable.
void Disk_RootDirectoryFile::begin_durability(Disk_FileSetHold& hold) {
  Util_Durability durability = own_durability.value_or(Util_FileSystem::GetProcessDurability());
  bool const needs_epoch = epoch && !params.read_only && !structure->KeepsImage(writing_strategy);
  Klb_Attempt const attempt;
  if (durability == Util_Durability::Relaxed && needs_epoch && hold.epoch.Shared(*epoch) == -1) {
    attempt.Forget();
    DISK_LOG(4, "No relaxed operation is possible here (errno=%d), so this one is durable.\n", errno);
    durability = Util_Durability::Full;
  }
  hold.durability.Begin(durability);
}

/// What a strategy writes that keeps its data is no part of an epoch: one that is open ends when the strategy is new.
int Disk_RootDirectoryFile::leave_epoch() {
  if (params.read_only || !structure->KeepsImage(writing_strategy) || structure->GoesBy(writing_strategy)) return 0;
  return Disk_RelaxedEpoch::IsOpen(GetFileSetPrefix()) == 0 ? 0 : Sync();
}

int Disk_RootDirectoryFile::Sync() {
  return Disk_Guarded("Sync", [&] {
    if (params.read_only && Disk_RelaxedEpoch::IsOpen(GetFileSetPrefix()) == 0) return 0;
    if (refuse_read_only("Sync") == -1) return -1;
    if (Disk_RelaxedEpoch::End(GetFileSetPrefix()) == 0) return 0;
    int const cause = errno;
    return DISK_FAIL(Klb_System(cause, "sync", GetFileSetPrefix()), "Sync: Can't sync %s (errno=%d).\n",
                     GetFileSetPrefix(), cause);
  });
}

int Disk_RootDirectoryFile::Recover(char const* file_set_prefix) {
  return Disk_Guarded("Recover", [&] { return Disk_Recover(file_set_prefix); });
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
  records->Clear();
  if (structure->LoadRoot(*this, *records) == -1) return -1;
  is_loaded = true;
  return 0;
}

int Disk_RootDirectoryFile::Write() {
  DISK_LOG(7, "Write:\n");
  return structure->SaveRoot(*this, *records);
}

Disk_PatientDirectoryRecord* Disk_RootDirectoryFile::GetPatientRecord(Dicom_LO const& patient_id,
                                                                      Dicom_LO const& issuer) const {
  return records->FindPatient(*structure, patient_id, issuer);
}

Disk_PatientDirectoryRecord* Disk_RootDirectoryFile::GetPatientRecord(Dicom_UI const& study_uid) const {
  return records->FindStudy(*structure, study_uid).patient;
}

Disk_StudyDirectoryRecord* Disk_RootDirectoryFile::GetStudyRecord(Dicom_UI const& study_uid) const {
  return records->FindStudy(*structure, study_uid).study;
}

Disk_StudyDirectoryRecord* Disk_RootDirectoryFile::GetStudyRecord(Disk_PatientDirectoryRecord const& patient,
                                                                  Dicom_UI const& study_uid) const {
  auto const is_of_patient = [&](Disk_StudyIndex::Entry const& entry) {
    return entry.patient == &patient && Disk_IsLive(*structure, *entry.study);
  };
  return records->Index().Find(study_uid.View(), is_of_patient).study;
}

void Disk_RootDirectoryFile::GetStudyFile(Disk_StudyDirectoryRecord* study) {
  if (kept_study_file && !study_file && structure->MayReuse(*kept_study_file)) study_file = std::move(kept_study_file);
  open_below(study_file, *study, kStudyInstanceUid);
}

/// Where studies have locks of their own; elsewhere it stays.
void Disk_RootDirectoryFile::ResetStudyFile() {
  if (structure->LocksStudies()) study_file.reset();
}

/// The next operation is often about the same study. Its records are read again then if others have written them.
void Disk_RootDirectoryFile::KeepStudyFile() {
  if (structure->LocksStudies()) kept_study_file = std::move(study_file);
}
