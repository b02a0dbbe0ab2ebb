#include "Disk/structure/Disk_PrivateStructure.h"

#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Remove.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/files/Disk_VersionFile.h"
#include "Disk/structure/Disk_RecordIO.h"
#include "Disk/structure/Disk_RootRecords.h"
#include "Disk/structure/Disk_StudyLock.h"

#include <infra/Util_FileSystem.h>

#include <tuple>
#include <utility>

namespace {

int Logged(int result) {
  if (result == -1) DISK_FAIL("Store: Can't update study directory record.\n");
  return result;
}

/// A series is new in the study: it counts, and brings its modality.
int CountNewSeries(Disk_Structure const& structure, Disk_StudyDirectoryRecord& study, IOD_Msg const& msg) {
  if (Disk_CountUp(structure, study, kSeriesOfStudy) == -1) return -1;
  DISK_LOG(7, "******* Adding series modality to study *******\n");
  IOD_Msg& record = *study.GetRecordMsg();
  Dicom_CS const modality = msg.GetModality(), modalities = record.GetModalitiesInStudy();
  if (record.SetMultiModality(record.GetMultiModality() | modality) == -1) return -1;
  bool const contained = modalities.View().find(modality.View()) != std::string_view::npos;
  return record.SetModalitiesInStudy(contained ? modalities : modalities | modality);
}

/// Keeps the earliest date and time of the images. Times are compared to the second.
int UpdateFakedStudyDateAndTime(IOD_Msg& record, Dicom_DA const& date, Dicom_TM const& time) {
  if (date == DA_NULL || time == TM_NULL) return 0;
  Dicom_DA const kept_date = record.GetFakedStudyDate();
  Dicom_TM const kept_time = record.GetFakedStudyTime();
  if (kept_date != DA_NULL && kept_time != TM_NULL) {
    auto const second = [](Dicom_TM const& of) { return std::tuple(of.Hours(), of.Minutes(), of.Seconds()); };
    if (kept_date < date) return 0;
    if (!(date < kept_date) && second(kept_time) <= second(time)) return 0;
  }
  if (record.SetFakedStudyDate(date.Duplicate()) == -1) return -1;
  return record.SetFakedStudyTime(time.Duplicate());
}

/// Takes the modality away that the one series had which was named and went.
int DropModality(IOD_Msg& record, Disk_Removal const& removal) {
  if (removal.modality == CS_NULL || removal.modalities_left.count(removal.modality.View()) > 0) return 0;
  if (record.SetMultiModality(record.GetMultiModality().RmSubElement(removal.modality)) == -1) return -1;
  return record.SetModalitiesInStudy(record.GetModalitiesInStudy().RmSubElement(removal.modality));
}

/// Takes away the modalities that no series has any more.
int KeepModalities(IOD_Msg& record, Disk_Removal const& removal) {
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

int ReadRootRecord(std::unique_ptr<Dicom_Msg> item, std::string const& path, Disk_RootRecords& records,
                   Disk_PatientDirectoryRecord** patient) {
  if (item->TextEquals(kRecordType, IOD_Image::PATIENT.View())) {
    constexpr char kCantCreate[] = "Read(): Can't create patient directory record.\n";
    if (Disk_TakeRecord(std::move(item), records.patients, kCantCreate, DISK_ERROR_MEMORY) == -1)
      return Klb_Note(Klb_Cause(DISK_FAILURE_DAMAGED).At(path).Because("a patient record can't be read"));
    *patient = static_cast<Disk_PatientDirectoryRecord*>(records.patients.last());
    return 0;
  }
  if (!item->TextEquals(kRecordType, IOD_Image::STUDY.View()))
    return DISK_FAIL(Klb_Cause(DISK_ERROR_RECORD_TYPE).At(path).Because("a record is of no type that is kept"),
                     "Read(): Illegal directory record type in root directory.\n");
  constexpr char kCantCreate[] = "Read(): Can't create study directory record.\n";
  if (!*patient) DISK_FAIL_TEXT(kCantCreate);
  if (*patient &&
      Disk_TakeRecord(std::move(item), (*patient)->GetStudyRecords(), kCantCreate, DISK_ERROR_STUDY_RECORD) == 0)
    return 0;
  return Klb_Note(Klb_Cause(DISK_ERROR_STUDY_RECORD).At(path).Because("a study record can't be read"));
}

} // namespace

// The file-set: it opens with the first read

int Disk_PrivateStructure::Open(char const*, Disk_StoreParams, Disk_StorageStrategy*, Klb_LockFile&) { return 0; }
char const* Disk_PrivateStructure::Name() const { return "private"; }
Disk_DicomDir* Disk_PrivateStructure::DicomDir() const { return nullptr; }
void Disk_PrivateStructure::Close(Klb_LockFile&) {}
int Disk_PrivateStructure::TakeOver(char const*, Disk_StoreParams, Disk_StorageStrategy*, Disk_Hold<Klb_LockFile>&,
                                    Klb_LockFile&, bool, bool*) {
  return 0;
}
bool Disk_PrivateStructure::KeepsImage(Disk_StorageStrategy*) const { return false; }
bool Disk_PrivateStructure::GoesBy(Disk_StorageStrategy*) const { return false; }
bool Disk_PrivateStructure::HasPending(Disk_StorageStrategy*) const { return false; }
int Disk_PrivateStructure::Lowercase() const { return 0; }
int Disk_PrivateStructure::RequirePrivate(char const*) const { return 0; }
void Disk_PrivateStructure::TellStore(char const*) const {}

// An operation: each file is written at once

int Disk_PrivateStructure::Begin() { return 0; }
int Disk_PrivateStructure::Commit(Disk_StorageStrategy*) { return 0; }
bool Disk_PrivateStructure::Discard() { return false; }
bool Disk_PrivateStructure::CountMissing(Disk_Tally& tally) const {
  ++tally.missing;
  return true;
}
bool Disk_PrivateStructure::IsAtomic() const { return false; }
std::unique_ptr<Disk_StudyLock> Disk_PrivateStructure::StudyLock(Disk_FileID const& folder, bool read_only) const {
  return std::make_unique<Disk_FolderLock>(folder, read_only);
}
bool Disk_PrivateStructure::LocksStudies() const { return true; }

Disk_Replacements* Disk_PrivateStructure::Together(Disk_Replacements& replacements) const {
  return Util_FileSystem::GetDurability() == Util_Durability::Full ? &replacements : nullptr;
}

// Reading and writing

/// The root file is flat: each study belongs to the patient that stands last before it.
int Disk_PrivateStructure::LoadRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) {
  Dicom_Sequence* sequence = nullptr;
  IOD_Msg* msg = nullptr;
  int found = 0;
  if (root.Read(&sequence, &found, &msg) == -1) return DISK_FAIL("Read(): Can't read root directory file.\n");
  std::unique_ptr<IOD_Msg> const owner(msg);
  if (!found) return 0;
  long const version = std::exchange(root.file_version, 0);
  Disk_PatientDirectoryRecord* patient = nullptr;
  auto const take = [&](std::unique_ptr<Dicom_Msg> item) {
    Disk_PassingOver const damage{root.passes_over_damage()};
    return ReadRootRecord(std::move(item), root.own_path, records, &patient) == 0 ? 0 : damage.Failed();
  };
  if (Disk_TakeItems(*sequence, take) == -1) return -1;
  root.file_version = version;
  return 0;
}

int Disk_PrivateStructure::SaveRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) {
  Dicom_Sequence sequence;
  sequence.Reserve(records.patients.entries() + records.Index().Size());
  for (Disk_PatientDirectoryRecord* patient : records.patients) {
    if (Disk_AppendRecord(patient, sequence, "Write(): Bad patient directory record.\n") == -1) return -1;
    if (Disk_AppendRecords(patient->GetStudyRecords(), sequence, "Write(): Bad study directory record.\n") == -1)
      return -1;
  }
  records.touched_patients.clear();
  return root.Write(sequence);
}

int Disk_PrivateStructure::Load(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned,
                                Disk_ReadTexts const& texts) {
  Dicom_Sequence* sequence = nullptr;
  IOD_Msg* msg = nullptr;
  int found = 0;
  Disk_PassingOver const damage{level.passes_over_damage()};
  if (level.Read(&sequence, &found, &msg) == -1) {
    DISK_FAIL_TEXT(texts.cant_read_file);
    return damage.Failed();
  }
  std::unique_ptr<IOD_Msg> const owner(msg);
  if (!found) return 0;
  long const version = std::exchange(level.file_version, 0);
  if (Disk_TakeRecords(*sequence, records, texts.cant_create_record, level.own_path, level.passes_over_damage()) == -1)
    return -1;
  level.file_version = version;
  return 0;
}

int Disk_PrivateStructure::Save(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned,
                                Disk_WriteTexts const& texts, Disk_Replacements* together) {
  return Disk_Guarded("Write", [&] {
    Dicom_Sequence sequence;
    sequence.Reserve(records.entries());
    return Disk_AppendRecords(records, sequence, texts.bad_record) == -1 ? -1 : level.Write(sequence, together);
  });
}

int Disk_PrivateStructure::CountVersion(Disk_DirectoryFile& level, long* version) {
  return Disk_CountVersion(level.own_version_path, false, version);
}

Disk_FileState Disk_PrivateStructure::StateOf(std::string const& path) const {
  struct stat status {};
  if (Util_FileSystemInterface::Current().Stat(path.c_str(), &status) == -1) return {};
  return {status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// Which records count: all

bool Disk_PrivateStructure::IsLive(Disk_DirectoryRecord const&, int) const { return true; }
bool Disk_PrivateStructure::IsInUse(Disk_DirectoryRecord const&) const { return true; }
Dicom_Tag const& Disk_PrivateStructure::InstanceUidTag() const { return kSopInstanceUid; }
bool Disk_PrivateStructure::AsksPatients() const { return false; }
bool Disk_PrivateStructure::NotesAccess() const { return true; }
int Disk_PrivateStructure::CheckPatients(Disk_RootRecords const&) const { return 0; }

// New records

int Disk_PrivateStructure::Fill(Disk_PatientDirectoryRecord& record, IOD_Msg const& msg) const {
  return record.FillPatientRecord(msg, false);
}
int Disk_PrivateStructure::Fill(Disk_StudyDirectoryRecord& record, IOD_Msg const& msg) const {
  return record.FillStudyRecord(msg, false);
}
int Disk_PrivateStructure::Fill(Disk_SeriesDirectoryRecord& record, IOD_Msg const& msg) const {
  return record.FillSeriesRecord(msg, false);
}
int Disk_PrivateStructure::Fill(Disk_InstanceDirectoryRecord& record, IOD_Msg const& msg, bool add_icon) const {
  return record.FillInstanceRecord(msg, false, add_icon);
}

int Disk_PrivateStructure::Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient) {
  records.patients.append(patient);
  return 0;
}
int Disk_PrivateStructure::Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient,
                               Disk_StudyDirectoryRecord* study) {
  records.AddToIndex(patient, study); // first: nothing may fail once the list owns the record
  patient->GetStudyRecords().append(study);
  return 0;
}
int Disk_PrivateStructure::Add(Disk_RecordList<Disk_SeriesDirectoryRecord>& records, Disk_StudyDirectoryRecord*,
                               Disk_SeriesDirectoryRecord* series, unsigned*) {
  records.append(series);
  return 0;
}
int Disk_PrivateStructure::Add(Disk_RecordList<Disk_InstanceDirectoryRecord>& records, Disk_SeriesDirectoryRecord*,
                               Disk_InstanceDirectoryRecord* image, unsigned*) {
  records.append(image);
  return 0;
}

int Disk_PrivateStructure::RefuseNoParent(void const*) const { return 0; }

int Disk_PrivateStructure::MarkNew(Disk_StudyDirectoryRecord& study) const {
  return study.GetRecordMsg()->SetProtectionFlag(IOD_Image::N);
}
int Disk_PrivateStructure::MarkUpdated(IOD_Msg& series) const {
  if (series.SetLastUpdateDate(Disk_DirectoryFile::GetCurrentDate()) == -1) return -1;
  return series.SetLastUpdateTime(Disk_DirectoryFile::GetTickCount());
}
bool Disk_PrivateStructure::RecordsSyntax() const { return false; }
bool Disk_PrivateStructure::KeepsLength() const { return false; }

// Folders

bool Disk_PrivateStructure::NamesFolders() const { return true; }
int Disk_PrivateStructure::InNamedFolder(std::function<int()> const& step) const { return step(); }
int Disk_PrivateStructure::PrepareFolder(Disk_DirectoryFile&, Dicom_UI const&, bool) { return 0; }

Disk_FileID Disk_PrivateStructure::FileBelow(Disk_DirectoryFile const& level, Disk_DirectoryRecord const& record,
                                             Dicom_Tag const&, unsigned* first) const {
  *first = 0;
  return {level.GetFileSetPrefix(), record.GetReferencedFileID(), 0};
}
/// It stands where others may have put a link meanwhile.
bool Disk_PrivateStructure::MayReuse(Disk_DirectoryFile const& kept) const { return kept.RefuseLink() == 0; }

bool Disk_PrivateStructure::SyncsWithRecords(std::string const& object, std::string const& directory_file) const {
  return Disk_Names::FolderOf(object) == Disk_Names::FolderOf(directory_file);
}

void Disk_PrivateStructure::RemoveStudyFolder(Disk_DirectoryFile& root, Disk_FileID const& file, Dicom_UI const&) {
  constexpr char kCantDelete[] = "DeleteStudy(): Warning: Can't delete file %s (errno=%d).\n";
  Disk_RemoveFile(file.Path(), 3, "DeleteStudy(): Warning: Can't delete a file %s (errno=%d).\n");
  Disk_RelaxedEpoch::Forget(file);
  Disk_FileID id = file;
  id.RemoveLastComponent();
  std::string const folder = id.Path();
  if (folder.empty() || folder == root.GetFileSetPrefix()) {
    DISK_LOG(4, "DeleteStudy(): Warning: can't remove component from file-id.\n");
    return;
  }
  Disk_RemoveFile(Disk_Names::In(folder, Disk_Names::kVersion), 3, kCantDelete);
  Disk_RemoveFile(Disk_Names::In(folder, Disk_Names::kLockFile), 3, kCantDelete);
  Disk_RemoveDirectory(folder, 3, "DeleteStudy(): Warning: can't remove directory %s (errno=%d)\n");
}

void Disk_PrivateStructure::RemoveSeriesFolder(Disk_DirectoryFile& study, Disk_SeriesDirectoryRecord const& series) {
  constexpr char kCantDelete[] = "DeleteSeries(): Warning: Can't delete file %s (errno=%d).\n";
  Disk_FileID id(study.GetFileSetPrefix(), series.GetReferencedFileID(), 0);
  Disk_RemoveFile(id.Path(), 4, kCantDelete);
  Disk_RelaxedEpoch::Forget(id);
  id.RemoveLastComponent();
  std::string const folder = id.Path();
  if (folder.empty() || folder == study.GetFileSetPrefix()) {
    DISK_LOG(4, "DeleteSeries(): Warning: can't remove component from file-id.\n");
    return;
  }
  Disk_RemoveFile(Disk_Names::In(folder, Disk_Names::kVersion), 4, kCantDelete);
  Disk_RemoveDirectory(folder, 4, "DeleteSeries(): Warning: can't remove directory %s (errno=%d)\n");
}

/// The study's directory file syncs the entries of its folder.
int Disk_PrivateStructure::SyncRemoved(Disk_DirectoryFile&, Disk_Removal const&) { return 0; }

// What goes and what changes

int Disk_PrivateStructure::TakeOut(Disk_RecordChain& records, Disk_DirectoryRecord* record) const {
  delete records.remove(record);
  return 0;
}

int Disk_PrivateStructure::TakeOut(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient,
                                   Disk_StudyDirectoryRecord* study) const {
  if (!patient) return DISK_FAIL(DISK_FAILURE_DAMAGED, "DeleteStudy(): Can't find patient directory record.\n");
  records.ForgetIndex();
  delete patient->GetStudyRecords().remove(study);
  if (patient->GetStudyRecords().isEmpty()) delete records.patients.remove(patient);
  DISK_LOG(7, "Exiting DeleteStudyFromList\n");
  return 0;
}

int Disk_PrivateStructure::SetCounter(Disk_DirectoryRecord& record, Disk_Counter const& counter, int value) const {
  IOD_Msg& msg = *record.GetRecordMsg();
  if (msg.Set(counter.related, Dicom_IS(value, true)) == -1) return -1;
  return counter.ours ? msg.Set(*counter.ours, Dicom_UL(std::uint32_t(std::max(value, 0)))) : 0; // it is unsigned
}

bool Disk_PrivateStructure::MustCount(Disk_Counter const& counter, Disk_Road road) const {
  return road == Disk_Road::Store || &counter == &kImagesOfSeries;
}

int Disk_PrivateStructure::UpdateStudy(Disk_StudyDirectoryRecord& study, IOD_Msg const& msg, int new_series,
                                       int new_image) const {
  IOD_Msg& record = *study.GetRecordMsg();
  Dicom_DA const date = Disk_DirectoryFile::GetCurrentDate();
  Dicom_TM const time = Disk_DirectoryFile::GetTickCount();
  Dicom_DT const now(date, time.Hours(), time.Minutes(), 0.0, nullptr);
  if (Logged(record.SetLastUpdateDate(date)) == -1 || Logged(record.SetLastUpdateTime(time)) == -1) return -1;
  if (Logged(record.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_STORE_DATE, now)) == -1) return -1;
  if (Logged(record.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE, DT_NULL)) == -1) return -1;

  if (record.GetStudyDate() == DA_NULL && record.GetStudyTime() == TM_NULL &&
      UpdateFakedStudyDateAndTime(record, msg.GetImageDate(), msg.GetImageTime()) == -1)
    DISK_LOG(4, "Store: Warning: can't update faked study date/time\n");

  if (new_series && Logged(CountNewSeries(*this, study, msg)) == -1) return -1;
  if (new_image && Logged(Disk_CountUp(*this, study, kImagesOfStudy)) == -1) return -1;
  Dicom_PN const physician = msg.GetReferringPhysiciansName();
  DISK_LOG(7, "Store: Setting study's refering physician's name to \"%s\".\n", physician.CStr());
  if (record.SetReferringPhysiciansName(physician.Duplicate()) == 0) return 0;
  return DISK_FAIL("Store: Can't set the refering physician's name.\n");
}

int Disk_PrivateStructure::DropModalities(IOD_Msg& study, Disk_Removal const& removal, bool mends) const {
  if (removal.series_removed > 0 && DropModality(study, removal) == -1) return -1;
  return mends ? KeepModalities(study, removal) : 0;
}
