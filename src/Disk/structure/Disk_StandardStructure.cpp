#include "Disk/structure/Disk_StandardStructure.h"
#include "infra/Klb_Failure.h"

#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Remove.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/files/Disk_VersionFile.h"
#include "Disk/structure/Disk_RootRecords.h"
#include "Disk/structure/Disk_StudyLock.h"

#include <Disk/Disk_DicomDir.h>
#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_StorageStrategy.h>
#include <dicom/IOD_Image.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <tuple>
#include <unistd.h>

namespace {

/// Makes a filled record the last of its chain and reserves its place in the DICOMDIR. `link` is called with the place
/// if the record is the first one. 0, and the list owns the record; or -1 with the message of the step that failed.
template <class T, class Link>
int AddToChain(Disk_DicomDir& dicomdir, Disk_RecordList<T>& records, T* record, Link link, char const* cant_link,
               char const* cant_add) {
  unsigned const offset = dicomdir.GetOffsetEnd();
  if (records.isEmpty() && link(offset) == -1) return DISK_FAIL_TEXT(cant_link);
  if (dicomdir.Reserve(*record->GetRecordMsg()) == 0 && records.AddNewRecord(record, offset) == 0) return 0;
  return DISK_FAIL_TEXT(cant_add);
}

/// Makes `offset` the start of the chain below a record.
int LinkBelow(Disk_DirectoryRecord& parent, unsigned offset) {
  if (parent.SetOffsetOfReferencedLowerLevelDirectoryEntity(Dicom_UL(offset)) == -1) return -1;
  parent.SetChanged(true);
  return 0;
}

/// Writes `value` into a counter of a record, whose length stays. Another system's record may have no room for the
/// digits. 0, or -1.
int SetInLength(Disk_DirectoryRecord& record, Dicom_Tag const& tag, int value) {
  IOD_Msg& msg = *record.GetRecordMsg();
  record.SetChanged(true);
  unsigned const length = msg.GetDumpLen();
  for (bool const fixed_width : {true, false}) {
    if (msg.Set(tag, Dicom_IS(value, fixed_width)) == -1) return -1;
    if (msg.GetDumpLen() == length) return 0;
  }
  return -1;
}

/// What Modalities In Study gains the dummy element loses.
int AddModality(IOD_Msg& record, Dicom_CS const& modality, char const** failure) {
  Dicom_CS const modalities = record.GetModalitiesInStudy();
  if (!record.Has(Dicom_Dictionary::KOLBA_DUMMY_DICOMDIR_DATA) || modalities.Match(modality)) return 0;
  Dicom_CS const merged = modalities | modality;
  if (record.SetModalitiesInStudy(merged) == -1) return -1;
  int const length = (int(merged.GetLength()) + 1) & ~1; // as it stands in the file
  int const rest = Disk_StudyDirectoryRecord::kReservoirSize - length;
  if (rest < 0) {
    *failure = "update_standard_details: Can't update study directory record, incorrect size.\n";
    return -1;
  }
  int status = 0;
  Dicom_OB const dummy(Disk_StudyDirectoryRecord::dummy_data_reservoir, std::size_t(rest), 0, &status);
  return status == -1 ? -1 : record.Set(Dicom_Dictionary::KOLBA_DUMMY_DICOMDIR_DATA, dummy);
}

/// The directory of a study or series. What else stands in it stays, and it too.
void RemoveHashDirectory(std::string const& folder, char const* who) {
  if (Util_FileSystemInterface::Current().Access(folder.c_str(), 0) == -1) {
    DISK_LOG(6, "%s: dir %s doesn't exist.\n", who, folder.c_str());
    return;
  }
  std::string const version = std::string(who) + ": Warning: Can't delete file %s (errno=%d).\n";
  std::string const directory = std::string(who) + ": Warning: can't remove directory %s (errno=%d)\n";
  if (Disk_RemoveFile(Disk_Names::In(folder, Disk_Names::kVersion), 4, version.c_str()) == -1) return;
  Disk_RemoveDirectory(folder, 4, directory.c_str());
}

} // namespace

Disk_StandardStructure::Disk_StandardStructure() : dicomdir_(nullptr) {}
Disk_StandardStructure::Disk_StandardStructure(Disk_DicomDir* dicomdir) : dicomdir_(dicomdir) {}
Disk_StandardStructure::~Disk_StandardStructure() = default;

// The file-set

int Disk_StandardStructure::Open(char const* prefix, Disk_StoreParams params, Disk_StorageStrategy* strategy,
                                 Klb_LockFile& lock) {
  Disk_Hold<Klb_LockFile> file_set;
  if ((params.read_only ? file_set.Shared(lock) : file_set.Exclusive(lock)) == -1)
    return DISK_FAIL("Disk_RootDirectoryFile: Failed Init the lock.\n");
  own_ = std::make_unique<Disk_DicomDir>();
  dicomdir_ = own_.get();
  dicomdir_->PassOverDamage(params.read_only && params.pass_over_damage);
  if ((!params.read_only && Disk_DicomDir::Replay(prefix) == -1) ||
      dicomdir_->Init(prefix, params.read_only, strategy) == -1)
    return DISK_FAIL("Disk_RootDirectoryFile: Failed Init standard_dicomdir.\n");
  return 0;
}

char const* Disk_StandardStructure::Name() const { return "standard"; }
Disk_DicomDir* Disk_StandardStructure::DicomDir() const { return dicomdir_; }

void Disk_StandardStructure::Close(Klb_LockFile& lock) {
  if (!dicomdir_ || !dicomdir_->UsesRedoFile()) return;
  if (lock.TryLockExclusive() != 0) return; // who has it may need the file
  dicomdir_->RemoveRedoFile();
  lock.UnlockExclusive();
}

int Disk_StandardStructure::TakeOver(char const* prefix, Disk_StoreParams params, Disk_StorageStrategy* strategy,
                                     Disk_Hold<Klb_LockFile>& hold, Klb_LockFile& lock, bool shared, bool* stale) {
  auto const follow = [stale](int change) {
    *stale = *stale || change == 1;
    return change != -1;
  };
  if (!follow(dicomdir_->FollowPath(params.read_only, strategy))) return -1;
  if (params.read_only ? !follow(dicomdir_->LayRedoOver()) : complete_redo(prefix, hold, lock, shared, stale) == -1)
    return -1;
  if (!follow(dicomdir_->GoBy(strategy))) return -1;
  *stale = *stale || (!params.read_only && !dicomdir_->IsCurrent());
  return 0;
}

int Disk_StandardStructure::complete_redo(char const* prefix, Disk_Hold<Klb_LockFile>& hold, Klb_LockFile& lock,
                                          bool shared, bool* stale) {
  constexpr int kMostTries = 100; // completing takes the lock exclusively, and others get in between
  for (int i = 0; dicomdir_->HasRedo(); ++i) {
    if (i == kMostTries)
      return DISK_FAIL(Klb_System(EAGAIN, "complete the redo record of", prefix), "The redo record of %s doesn't go.\n",
                       prefix);
    if (shared && hold.Exclusive(lock) == -1) return -1;
    if (Disk_DicomDir::Replay(prefix) == -1) return -1;
    *stale = true;
    if (shared && hold.Shared(lock) == -1) return -1;
  }
  return 0;
}

bool Disk_StandardStructure::KeepsImage(Disk_StorageStrategy* strategy) const {
  return Disk_DicomDir::KeepsImage(strategy);
}
bool Disk_StandardStructure::GoesBy(Disk_StorageStrategy* strategy) const {
  return dicomdir_ && dicomdir_->GoesBy(strategy);
}
bool Disk_StandardStructure::HasPending(Disk_StorageStrategy* strategy) const {
  return strategy && strategy->HasPendingData();
}
int Disk_StandardStructure::Lowercase() const { return dicomdir_ && dicomdir_->IsLowercase() ? 1 : 0; }

int Disk_StandardStructure::RequirePrivate(char const* text) const {
  return DISK_FAIL_TEXT(DISK_FAILURE_UNSUPPORTED, text);
}
void Disk_StandardStructure::TellStore(char const* text) const { DISK_LOG_TEXT(6, text); }

// An operation: all of it gathers, and is written by the commit

int Disk_StandardStructure::Begin() { return dicomdir_->Begin(); }
int Disk_StandardStructure::Commit(Disk_StorageStrategy* strategy) { return dicomdir_->Commit(strategy); }
bool Disk_StandardStructure::Discard() {
  dicomdir_->Discard();
  return true;
}
bool Disk_StandardStructure::CountMissing(Disk_Tally&) const { return false; }
bool Disk_StandardStructure::IsAtomic() const { return true; }
std::unique_ptr<Disk_StudyLock> Disk_StandardStructure::StudyLock(Disk_FileID const&, bool) const {
  return std::make_unique<Disk_StudyLock>();
}
bool Disk_StandardStructure::LocksStudies() const { return false; }
Disk_Replacements* Disk_StandardStructure::Together(Disk_Replacements&) const { return nullptr; }

// Reading and writing

int Disk_StandardStructure::LoadRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) {
  dicomdir_->ForgetClaims();
  if (dicomdir_->RefreshOffsetEnd() == -1) return DISK_FAIL("Read: Failed refreshing the end offset.\n");
  unsigned const first = dicomdir_->GetOffsetOfTheFirstDirectoryRecord();
  if (first == 0) return DISK_FAIL(DISK_FAILURE_DAMAGED, "Read: the offset of the patient record doesn't exist.\n");
  if (first == dicomdir_->GetOffsetEnd()) return 0;
  DISK_LOG(7, "Read: the patient offset is %d.\n", int(first));
  if (records.patients.ReadRecords(*dicomdir_, first) == -1) return DISK_FAIL("Read: Failed reading the records.\n");
  records.reaches_patients = false;
  for (Disk_PatientDirectoryRecord* patient : records.patients)
    records.reaches_patients = records.reaches_patients || patient->GetDirectoryRecordType() == IOD_Image::PATIENT;
  root.ReadFileVersion();
  return 0;
}

int Disk_StandardStructure::SaveRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) {
  int const result = write_root(root, records);
  if (result == -1) DISK_FAIL("Write: Failed write to standard DICOMDIR.\n");
  return result;
}

int Disk_StandardStructure::write_root(Disk_DirectoryFile& root, Disk_RootRecords& records) {
  Disk_StorageStrategy* const strategy = root.GetWritingStrategy();
  if (dicomdir_->Write(strategy) == -1) return DISK_FAIL("Write: Failed writing the standard DICOMDIR prefix.\n");
  unsigned const first = dicomdir_->GetOffsetOfTheFirstDirectoryRecord();
  if (first == 0)
    return DISK_FAIL(DISK_FAILURE_DAMAGED, "standard_write: the offset of the patient records doesn't exist.\n");
  if (dicomdir_->WriteRecords(records.patients, first, strategy) == -1)
    return DISK_FAIL("standard_write: Failed writing the patient records.\n");
  for (Disk_PatientDirectoryRecord* patient : records.touched_patients) {
    unsigned const below = patient->GetOffsetOfReferencedLowerLevelDirectoryEntity();
    if (below == 0)
      return DISK_FAIL(DISK_FAILURE_DAMAGED, "standard_write: the offset of the study records doesn't exist.\n");
    if (dicomdir_->WriteRecords(patient->GetStudyRecords(), below, strategy) == -1)
      return DISK_FAIL("standard_write: Failed writing the study records.\n");
  }
  records.touched_patients.clear();
  if (root.UpdateFileVersion() == 0) return 0;
  return DISK_FAIL("standard_write: Failed update the file version.\n");
}

int Disk_StandardStructure::Load(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned first,
                                 Disk_ReadTexts const& texts) {
  if (first == 0 || first == dicomdir_->GetOffsetEnd()) return 0;
  if (records.ReadRecords(*dicomdir_, first) == -1) return DISK_FAIL_TEXT(texts.cant_read_chain);
  level.ReadFileVersion();
  return 0;
}

int Disk_StandardStructure::Save(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned first,
                                 Disk_WriteTexts const& texts, Disk_Replacements*) {
  if (level.refuse_read_only("Write") == -1) return -1;
  if (first == 0) return DISK_FAIL_TEXT(DISK_FAILURE_DAMAGED, texts.no_offset);
  if (dicomdir_->WriteRecords(records, first, level.GetWritingStrategy()) == -1)
    return DISK_FAIL("Write: Failed writing the series records.\n");
  if (level.UpdateFileVersion() == 0) return 0;
  return DISK_FAIL("Write: Failed update the file version.\n");
}

int Disk_StandardStructure::CountVersion(Disk_DirectoryFile& level, long* version) {
  if (!dicomdir_->IsGathering()) return Disk_CountVersion(level.own_version_path, true, version);
  if (Disk_NextVersion(level.own_version_path, version) == -1) return -1;
  dicomdir_->MoveVersion(level.directory().GetID().View(), std::int32_t(*version));
  return 0;
}

/// It is written in place, and stays the same file.
Disk_FileState Disk_StandardStructure::StateOf(std::string const&) const { return {}; }

// Which records count: those in use, of the type of their level

bool Disk_StandardStructure::IsLive(Disk_DirectoryRecord const& record, int level) const {
  if (!IsInUse(record)) return false;
  Dicom_CS const type = record.GetDirectoryRecordType();
  switch (level) {
  case Disk_PatientDirectoryRecord::kLevel:
    return type == IOD_Image::PATIENT;
  case Disk_StudyDirectoryRecord::kLevel:
    return type == IOD_Image::STUDY;
  case Disk_SeriesDirectoryRecord::kLevel:
    return type == IOD_Image::SERIES;
  default:
    return type != IOD_Image::PRIVATE_CS;
  }
}
bool Disk_StandardStructure::IsInUse(Disk_DirectoryRecord const& record) const {
  return record.GetRecordInUseFlag() != Dicom_US(0);
}
Dicom_Tag const& Disk_StandardStructure::InstanceUidTag() const { return kReferencedSopInstanceUid; }
bool Disk_StandardStructure::AsksPatients() const { return true; }

bool Disk_StandardStructure::NotesAccess() const { return false; }
int Disk_StandardStructure::CheckPatients(Disk_RootRecords const& records) const {
  if (records.patients.isEmpty() || records.reaches_patients) return 0;
  return DISK_FAIL(DISK_FAILURE_DAMAGED, "Store: the first record of the DICOMDIR leads to no patient.\n");
}

// New records

int Disk_StandardStructure::Fill(Disk_PatientDirectoryRecord& record, IOD_Msg const& msg) const {
  return record.FillPatientRecord(msg, true);
}
int Disk_StandardStructure::Fill(Disk_StudyDirectoryRecord& record, IOD_Msg const& msg) const {
  return record.FillStudyRecord(msg, true);
}
int Disk_StandardStructure::Fill(Disk_SeriesDirectoryRecord& record, IOD_Msg const& msg) const {
  return record.FillSeriesRecord(msg, true);
}
int Disk_StandardStructure::Fill(Disk_InstanceDirectoryRecord& record, IOD_Msg const& msg, bool add_icon) const {
  return record.FillInstanceRecord(msg, true, add_icon);
}

int Disk_StandardStructure::Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient) {
  records.reaches_patients = true;
  unsigned const offset = dicomdir_->GetOffsetEnd();
  DISK_LOG(7, "NewPatient: Patient offset is %d.\n", int(offset));
  constexpr char kCantLink[] = "NewPatient: Failed update standard_dicomdir.\n";
  if (dicomdir_->SetOffsetOfTheLastDirectoryRecord(Dicom_UL(offset)) == -1) return DISK_FAIL_TEXT(kCantLink);
  auto const link = [&](unsigned first) { return dicomdir_->SetOffsetOfTheFirstDirectoryRecord(Dicom_UL(first)); };
  return AddToChain(*dicomdir_, records.patients, patient, link, kCantLink,
                    "NewPatient: Failed adding the new record.\n");
}

int Disk_StandardStructure::Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient,
                                Disk_StudyDirectoryRecord* study) {
  DISK_LOG(7, "NewStudy: Study offset is %d.\n", int(dicomdir_->GetOffsetEnd()));
  auto const link = [&](unsigned offset) { return LinkBelow(*patient, offset); };
  records.AddToIndex(patient, study); // first: nothing may fail once the list owns the record
  if (AddToChain(*dicomdir_, patient->GetStudyRecords(), study, link, "NewStudy: Failed update PatientRecord.\n",
                 "NewStudy: Failed adding the new record.\n") == 0)
    return 0;
  records.ForgetIndex();
  return -1;
}

int Disk_StandardStructure::Add(Disk_RecordList<Disk_SeriesDirectoryRecord>& records, Disk_StudyDirectoryRecord* study,
                                Disk_SeriesDirectoryRecord* series, unsigned* first) {
  DISK_LOG(7, "NewSeries: Series offset is %d.\n", int(dicomdir_->GetOffsetEnd()));
  auto const link = [&](unsigned offset) {
    *first = offset;
    return LinkBelow(*study, offset);
  };
  return AddToChain(*dicomdir_, records, series, link, "NewSeries: Failed update study_record.\n",
                    "NewSeries: Failed adding the new record.\n");
}

int Disk_StandardStructure::Add(Disk_RecordList<Disk_InstanceDirectoryRecord>& records,
                                Disk_SeriesDirectoryRecord* series, Disk_InstanceDirectoryRecord* image,
                                unsigned* first) {
  DISK_LOG(7, "NewImage: Image offset is %d.\n", int(dicomdir_->GetOffsetEnd()));
  auto const link = [&](unsigned offset) {
    *first = offset;
    return LinkBelow(*series, offset);
  };
  return AddToChain(*dicomdir_, records, image, link, "NewImage: Failed update series_record.\n",
                    "NewImage: Failed adding the new record.\n");
}

int Disk_StandardStructure::RefuseNoParent(void const* parent) const { return Disk_RefuseNull("Store", parent); }
int Disk_StandardStructure::MarkNew(Disk_StudyDirectoryRecord&) const { return 0; }
int Disk_StandardStructure::MarkUpdated(IOD_Msg&) const { return 0; }
bool Disk_StandardStructure::RecordsSyntax() const { return true; }
bool Disk_StandardStructure::KeepsLength() const { return true; }

// Folders: their names are made from UIDs

bool Disk_StandardStructure::NamesFolders() const { return false; }
int Disk_StandardStructure::InNamedFolder(std::function<int()> const&) const { return 0; }

int Disk_StandardStructure::PrepareFolder(Disk_DirectoryFile& level, Dicom_UI const& uid, bool is_known) {
  std::string const path = level.GenerateFileID(uid).Path();
  int result = path.empty() ? -1 : Util_FileSystemInterface::Current().Mkdir(path.c_str(), 0775);
  bool const is_full = Util_FileSystem::GetDurability() == Util_Durability::Full;
  if (result == -1 && !path.empty() && errno == EEXIST) {
    // a relaxed store didn't sync the entry, and one that failed or was killed may not have
    if (is_known &&
        (!is_full || path == level.lasting_folder || Disk_RelaxedEpoch::IsOpen(level.GetFileSetPrefix()) == 0))
      return 0;
    result = 0;
  }
  if (result == 0 && level.sync_directory_of(path) == 0) {
    if (is_full) level.lasting_folder = path;
    return 0;
  }
  if (result == 0) return -1;
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "create the folder", path), "Store: Can't create a new directory %s (errno=%d)\n",
                   path.c_str(), cause);
}

Disk_FileID Disk_StandardStructure::FileBelow(Disk_DirectoryFile const& level, Disk_DirectoryRecord const& record,
                                              Dicom_Tag const& uid_tag, unsigned* first) const {
  *first = record.GetOffsetOfReferencedLowerLevelDirectoryEntity();
  Disk_FileID id = level.GenerateFileID(record.GetRecordMsg()->Value<Dicom_UI>(uid_tag));
  std::ignore = id.AddComponent(Disk_Names::kDirectoryFile); // two short names always make a file ID
  return id;
}
bool Disk_StandardStructure::MayReuse(Disk_DirectoryFile const&) const { return true; }
bool Disk_StandardStructure::SyncsWithRecords(std::string const&, std::string const&) const { return false; }

void Disk_StandardStructure::RemoveStudyFolder(Disk_DirectoryFile& root, Disk_FileID const&, Dicom_UI const& uid) {
  root.lasting_folder.clear();
  RemoveHashDirectory(root.GenerateFileID(uid).Path(), "standard_delete_study");
}

void Disk_StandardStructure::RemoveSeriesFolder(Disk_DirectoryFile& study, Disk_SeriesDirectoryRecord const& series) {
  study.lasting_folder.clear();
  RemoveHashDirectory(study.GenerateFileID(series.GetRecordMsg()->GetSeriesInstanceUID()).Path(),
                      "standard_delete_series");
}

/// Their folders are gone for good before their records go.
int Disk_StandardStructure::SyncRemoved(Disk_DirectoryFile& study, Disk_Removal const& removal) {
  if (removal.series_removed == 0 || removal.series_left == 0) return 0;
  std::string const folder = study.directory().FolderPath();
  if (Util_FileSystemInterface::Current().Access(folder.c_str(), F_OK) == -1) return 0;
  return Disk_DirectoryFile::sync_directory_of(study.GetFileID().Path());
}

// What goes and what changes

int Disk_StandardStructure::TakeOut(Disk_RecordChain&, Disk_DirectoryRecord* record) const {
  return record->SetOutOfUse();
}

int Disk_StandardStructure::TakeOut(Disk_RootRecords&, Disk_PatientDirectoryRecord* patient,
                                    Disk_StudyDirectoryRecord* study) const {
  if (!patient) return DISK_FAIL(DISK_FAILURE_DAMAGED, "standard_delete_study: Can't find patient directory record.\n");
  if (study->SetOutOfUse() == -1)
    return DISK_FAIL("standard_delete_study: Failed setting the Record In Use Flag in study.\n");
  if (patient->GetStudyRecords().CountRecordsInUse() == 0 && patient->SetOutOfUse() == -1)
    return DISK_FAIL("standard_delete_study: Failed setting the Record In Use Flag in patient.\n");
  return 0;
}

/// A record that lacks a counter, as another system left it out, lacks it for good.
int Disk_StandardStructure::SetCounter(Disk_DirectoryRecord& record, Disk_Counter const& counter, int value) const {
  if (record.GetRecordMsg()->Text(counter.related).empty()) return 0;
  return SetInLength(record, counter.related, value);
}

bool Disk_StandardStructure::MustCount(Disk_Counter const&, Disk_Road) const { return false; }

int Disk_StandardStructure::UpdateStudy(Disk_StudyDirectoryRecord& study, IOD_Msg const& msg, int new_series,
                                        int new_image) const {
  if (new_series) {
    char const* failure = "update_standard_details: Can't update study directory record.\n";
    if (Disk_CountUp(*this, study, kSeriesOfStudy) == -1 ||
        AddModality(*study.GetRecordMsg(), msg.GetModality(), &failure) == -1)
      return DISK_FAIL_TEXT(failure);
  }
  if (!new_image || Disk_CountUp(*this, study, kImagesOfStudy) == 0) return 0;
  return DISK_FAIL("Store: Can't update study directory record.\n");
}

int Disk_StandardStructure::DropModalities(IOD_Msg&, Disk_Removal const&, bool) const { return 0; }
