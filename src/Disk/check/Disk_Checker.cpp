#include "Disk/check/Disk_Checker.h"

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/files/Disk_VersionFile.h"

#include <dicom/Dicom_Compressor.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

namespace {

constexpr std::uint64_t kObjectsPerLock = 16;
constexpr char kNotChecked[] = "not-checked", kNoMemory[] = "memory ran out before it could be looked at";

Util_FileSystemInterface& System() { return Util_FileSystemInterface::Current(); }

std::string Told(Disk_Finding const& finding) { return finding.kind + '\n' + finding.path + '\n' + finding.text; }

/// The number that a counter's text states, -1 for none.
long Number(std::string const& text) {
  std::size_t const first = text.find_first_not_of(' '), last = text.find_last_not_of(' ');
  if (first == text.npos || last - first > 9) return -1;
  long number = 0;
  for (std::size_t i = first; i <= last; ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    number = number * 10 + (text[i] - '0');
  }
  return number;
}

} // namespace

Disk_Checker::Disk_Checker(char const* file_set_prefix, bool standard, Disk_CheckOptions const& options,
                           Disk_CheckResult* result)
    : prefix_(file_set_prefix), standard_(standard), options_(options), result_(result) {}

/// A store takes the file-set's lock twice, and what it wrote below shows in between. So what an operation can explain
/// is looked at once more when somebody has written meanwhile, and told when it is still the same then.
int Disk_Checker::Run() {
  constexpr int kMostWalks = 6;
  constexpr std::chrono::milliseconds kPause{25}; // for who waits for our lock to get it, on a busy machine too
  if (lock_.Init(prefix_.c_str(), 1) == -1) return -1;
  for (int walks = 1;; ++walks) {
    Disk_Hold<Klb_LockFile> held;
    if (held.Shared(lock_) == -1) return -1; // waits for who writes by now
    if (walks > 1 && !has_moved()) break;
    std::unordered_set<std::string> before;
    for (Disk_Finding const& finding : result_->findings)
      before.insert(Told(finding));
    if (walk() == -1) return -1;
    auto const is_new = [&before](Disk_Finding const& finding) {
      return finding.cause != Disk_Finding::Damage && before.count(Told(finding)) == 0;
    };
    auto& findings = result_->findings;
    if (std::none_of(findings.begin(), findings.end(), is_new)) break;
    if (walks == kMostWalks) { // somebody writes all the time
      result_->n_findings -= std::erase_if(findings, is_new);
      break;
    }
    held.Release();
    std::this_thread::sleep_for(kPause);
  }
  return options_.deep ? read_objects() : 0;
}

/// All records and folders, under the lock.
int Disk_Checker::walk() {
  reset();
  version_ = Disk_ReadVersion(Disk_Names::In(prefix_, Disk_Names::kVersion));
  Klb_Attempt const attempt;
  if (Walk() == -1) return -1;
  attempt.Forget(); // what can't be read is a finding
  find_unnamed();
  if (Disk_RelaxedEpoch::NeedsRecovery(prefix_) != 0)
    Find("recovery-pending", Disk_Finding::InterruptedStore, Disk_Names::In(prefix_, Disk_Names::kRelaxed),
         "files that weren't synced before the machine went down are looked at by the next operation");
  return 0;
}

bool Disk_Checker::has_moved() const {
  return Disk_ReadVersion(Disk_Names::In(prefix_, Disk_Names::kVersion)) != version_;
}

void Disk_Checker::reset() {
  *result_ = {};
  where_ = {};
  studies_.clear();
  named_.clear();
  unnamed_.clear();
  objects_.clear();
}

void Disk_Checker::Find(char const* kind, Cause cause, std::string path, std::string text) {
  DISK_LOG(4, "Check: %s: %s: %s\n", path.c_str(), kind, text.c_str());
  ++result_->n_findings;
  if (result_->findings.size() == Disk_CheckResult::kMostFindings) return;
  result_->findings.push_back(
      {kind, cause, where_.patient, where_.study, where_.series, where_.instance, std::move(path), std::move(text)});
}

void Disk_Checker::FindUnreadable(char const* kind, std::string path, std::string text) {
  if (errno == ENOMEM) return Find(kNotChecked, Disk_Finding::NoMemory, std::move(path), kNoMemory);
  Find(kind, Disk_Finding::Damage, std::move(path), std::move(text));
}

// The hierarchy

void Disk_Checker::BeginPatient(IOD_Msg const& record) {
  where_ = {record.GetPatientID().GetText(), {}, {}, {}};
  in_patient_ = true;
  ++result_->patients;
  studies_of_patient_ = 0;
}

void Disk_Checker::EndPatient() {
  if (in_patient_ && studies_of_patient_ == 0)
    Find("patient-empty", Disk_Finding::Damage, Disk_Names::In(prefix_, Disk_Names::kDicomdir),
         "the patient has no study");
  in_patient_ = false;
  where_ = {};
}

/// A record has a UID that no other below the same record has.
void Disk_Checker::check_uid(std::string const& uid, std::unordered_set<std::string>& known, char const* level,
                             std::string const& path) {
  if (uid.empty())
    Find("uid-missing", Disk_Finding::Damage, path, std::string("a ") + level + " record has no Instance UID");
  else if (!known.insert(uid).second)
    Find("uid-twice", Disk_Finding::Damage, path, std::string("two ") + level + " records have the same Instance UID");
}

void Disk_Checker::BeginStudy(IOD_Msg const& record, std::string const& path) {
  where_ = {where_.patient, record.GetStudyInstanceUID().GetText(), {}, {}};
  ++result_->studies;
  ++studies_of_patient_;
  series_of_study_ = images_of_study_ = 0;
  images_unknown_ = false;
  modalities_.clear();
  series_.clear();
  check_uid(where_.study, studies_, "study", path);
}

void Disk_Checker::BeginSeries(IOD_Msg const& record, std::string const& path) {
  where_.series = record.GetSeriesInstanceUID().GetText();
  where_.instance.clear();
  series_where_ = std::make_shared<Where const>(where_);
  ++result_->series;
  ++series_of_study_;
  images_of_series_ = 0;
  instances_.clear();
  if (std::string modality = record.GetModality().GetText(); !modality.empty())
    modalities_.push_back(std::move(modality));
  check_uid(where_.series, series_, "series", path);
}

void Disk_Checker::EndSeries(IOD_Msg const& record, std::string const& path) {
  where_.instance.clear();
  images_of_study_ += images_of_series_;
  if (images_of_series_ == 0) Find("series-empty", unfinished_delete(), path, "the series holds no image");
  check_counter(record, kSeriesRelatedImages, "series-image-count", "Number of Series Related Images",
                images_of_series_, path);
  if (!standard_)
    compare_count(long(unsigned(record.GetNumberOfImages())), "series-image-count", "the private number of images",
                  images_of_series_, path);
}

void Disk_Checker::EndStudy(IOD_Msg const& record, std::string const& path) {
  where_.series.clear();
  where_.instance.clear();
  if (series_of_study_ == 0) Find("study-empty", unfinished_delete(), path, "the study holds no series");
  check_counter(record, kStudyRelatedSeries, "study-series-count", "Number of Study Related Series", series_of_study_,
                path);
  if (!images_unknown_)
    check_counter(record, kStudyRelatedImages, "study-image-count", "Number of Study Related Images", images_of_study_,
                  path);
  if (!standard_)
    compare_count(long(unsigned(record.GetNumberOfSeries())), "study-series-count", "the private number of series",
                  series_of_study_, path);
  check_modalities(record, path);
}

void Disk_Checker::check_counter(IOD_Msg const& record, Dicom_Tag const& tag, char const* kind, char const* what,
                                 int count, std::string const& path) {
  std::string const text = record.Text(tag);
  if (standard_ && text.empty()) return; // other systems needn't count
  long const stated = Number(text);
  if (stated == -1)
    Find("counter-invalid", Disk_Finding::Damage, path, std::string(what) + " is '" + text + "', which is no number");
  else
    compare_count(stated, kind, what, count, path);
}

void Disk_Checker::compare_count(long stated, char const* kind, char const* what, int count, std::string const& path) {
  if (stated == count) return;
  // in the standard structure an operation takes effect as a whole
  Cause const cause = standard_        ? Disk_Finding::Damage
                      : stated < count ? Disk_Finding::InterruptedStore
                                       : Disk_Finding::InterruptedDelete;
  Find(kind, cause, path,
       std::string(what) + " is " + std::to_string(stated) + ", but there are " + std::to_string(count));
}

void Disk_Checker::check_modalities(IOD_Msg const& record, std::string const& path) {
  std::string const stated = record.GetModalitiesInStudy().GetText();
  if (standard_ && stated.empty()) return;
  for (std::string const& modality : modalities_)
    if (stated.find(modality) == stated.npos) {
      Find("modality-missing", standard_ ? Disk_Finding::Damage : Disk_Finding::InterruptedStore, path,
           "a series is of modality " + modality + ", the study's record says " + stated);
      break;
    }
  if (standard_) return; // whose record keeps what it had once
  Dicom_CS const values = record.GetModalitiesInStudy();
  for (int i = 0; i < values.GetNValues(); ++i)
    if (std::find(modalities_.begin(), modalities_.end(), values.ValueView(i)) == modalities_.end())
      return Find("modality-extra", Disk_Finding::InterruptedDelete, path,
                  "the study's record says " + stated + ", but no series is of modality " +
                      std::string(values.ValueView(i)));
}

void Disk_Checker::CheckInstance(IOD_Msg const& record, std::string const& directory_file, Disk_FileID const& id,
                                 std::string const& path) {
  std::string uid = record.GetSOPInstanceUID().GetText();
  if (uid.empty()) uid = record.Text(kReferencedSopInstanceUid);
  where_.instance = uid;
  ++result_->instances;
  ++images_of_series_;
  check_uid(uid, instances_, "instance", directory_file);
  if (NamedPath(id, directory_file).empty()) return;
  struct stat status {};
  if (System().Stat(path.c_str(), &status) == -1) {
    if (errno == ENOENT)
      return Find("object-missing", Disk_Finding::InterruptedDelete, path, "the object's file doesn't exist");
    return Find("object-unreadable", Disk_Finding::Damage, path, std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode))
    return Find("object-not-a-file", Disk_Finding::Damage, path, "what stands in place of the object is no file");
  if (status.st_size == 0) return Find("object-empty", Disk_Finding::Damage, path, "the object's file is empty");
  if (options_.deep) objects_.push_back({series_where_, uid, record.Text(kReferencedSyntax), path});
}

// Files

std::string Disk_Checker::NamedPath(Disk_FileID const& id, std::string const& directory_file) {
  std::string path = id.Path();
  if (id.GetID() == CS_NULL) {
    Find("file-id-missing", Disk_Finding::Damage, directory_file, "a record names no file");
    return {};
  }
  if (path.empty()) {
    Find("file-id-illegal", Disk_Finding::Damage, directory_file,
         "a record names a file that can't be one: " + id.GetID().GetText());
    return {};
  }
  if (named_.insert(path).second) return path;
  Find("file-id-shared", Disk_Finding::Damage, path, "two records name this file");
  return {};
}

void Disk_Checker::CheckVersion(std::string const& folder, bool required) {
  if (folder.empty()) return; // one that can't be, which was told
  std::string const path = Disk_Names::In(folder, Disk_Names::kVersion);
  struct stat status {};
  bool const exists = System().Stat(path.c_str(), &status) == 0;
  // a power cut can leave the size of the first number without it, and 0 is none
  bool const lacks_number = status.st_size == 0 || (status.st_size == 4 && Disk_ReadVersion(path) == -1);
  if (exists ? lacks_number : required) {
    Find("version-missing", Disk_Finding::InterruptedStore, path, "the directory file has no VERSION, or an empty one");
  } else if (!exists) {
    return;
  } else if (status.st_size != 4 || Disk_ReadVersion(path) < 1) {
    Find("version-invalid", Disk_Finding::Damage, path, "VERSION holds no number of writes");
  }
}

void Disk_Checker::CompareFolder(std::string const& folder, std::set<std::string> const& own, bool files_count,
                                 bool (*is_ours)(std::string const& name)) {
  using Entry = Util_FileSystemInterface::Entry;
  std::vector<Entry> entries;
  if (System().List(folder.c_str(), entries) == -1) return;
  for (Entry const& entry : entries) {
    bool const is_folder = entry.type == Entry::Directory;
    bool const temporary = !is_folder && Disk_Names::IsTemporary(entry.name);
    if (own.count(entry.name) || (!is_folder && !files_count && !temporary)) continue;
    if (temporary && !files_count &&
        !own.count(entry.name.substr(0, entry.name.size() - std::string_view(Disk_Names::kTemporary).size())))
      continue;
    if (is_folder && !is_ours(entry.name)) continue;
    unnamed_.push_back({where_, folder + "/" + entry.name, is_folder});
  }
}

bool Disk_Checker::is_named(Unnamed const& entry) const {
  if (named_.count(entry.path)) return true;
  auto const below = named_.lower_bound(entry.path + "/");
  return entry.is_folder && below != named_.end() && below->starts_with(entry.path + "/");
}

void Disk_Checker::find_unnamed() {
  std::sort(unnamed_.begin(), unnamed_.end(), [](Unnamed const& a, Unnamed const& b) { return a.path < b.path; });
  for (Unnamed const& entry : unnamed_) {
    if (is_named(entry)) continue;
    where_ = entry.where;
    if (Disk_Names::IsTemporary(entry.path))
      Find("temporary-file", Disk_Finding::InterruptedStore, entry.path, "a write was interrupted; it has no meaning");
    else if (entry.is_folder)
      Find("folder-unnamed", Disk_Finding::InterruptedStore, entry.path, "no record names the folder");
    else
      Find("file-unnamed", Disk_Finding::InterruptedStore, entry.path, "no record names the file");
  }
}

// Objects

/// The lock is given up now and then, so that writers get on. What looks wrong when somebody has written meanwhile is
/// looked at once more: its file may be that of another object by now.
int Disk_Checker::read_objects() {
  std::uint64_t const all = objects_.size();
  std::unordered_set<std::string> doubtful; // paths
  while (result_->objects_read < all) {
    Disk_Hold<Klb_LockFile> held;
    if (held.Shared(lock_) == -1) return -1;
    for (std::uint64_t i = 0; i < kObjectsPerLock && result_->objects_read < all; ++i) {
      Object const& object = objects_[result_->objects_read++];
      bool decoded = false;
      std::vector<Problem> const problems = read_object(object, &decoded);
      if (!problems.empty() && has_moved())
        doubtful.insert(object.path);
      else
        tell(object, problems, decoded);
      if (decoded) break; // which takes its time
    }
    held.Release();
    if (options_.progress && !options_.progress(result_->objects_read, all)) return -1;
  }
  return doubtful.empty() ? 0 : read_again(doubtful);
}

/// Beside the records as they are now, with nobody writing.
int Disk_Checker::read_again(std::unordered_set<std::string> const& paths) {
  Disk_Hold<Klb_LockFile> held;
  if (held.Shared(lock_) == -1) return -1;
  Disk_CheckResult told = std::move(*result_);
  reset();
  if (Walk() == -1) return -1;
  for (Disk_Finding& finding : result_->findings)
    if (paths.count(finding.path) && ++told.n_findings <= Disk_CheckResult::kMostFindings)
      told.findings.push_back(std::move(finding));
  *result_ = std::move(told);
  for (Object const& object : objects_) {
    bool decoded = false;
    if (paths.count(object.path)) tell(object, read_object(object, &decoded), decoded);
  }
  return 0;
}

void Disk_Checker::tell(Object const& object, std::vector<Problem> const& problems, bool decoded) {
  where_ = *object.where;
  where_.instance = object.instance;
  result_->objects_decoded += decoded;
  for (auto const& [kind, text, cause] : problems)
    Find(kind, cause, object.path, text);
}

/// `*decoded` becomes true when the object has pixels that were decoded.
std::vector<Disk_Checker::Problem> Disk_Checker::read_object(Object const& object, bool* decoded) const {
  Problem const no_memory{kNotChecked, kNoMemory, Disk_Finding::NoMemory};
  Util_File file;
  file.no_original_buffer = 1;
  errno = 0;
  if (file.GetFile(object.path.c_str(), 0, nullptr) == -1)
    return {errno == ENOMEM ? no_memory : Problem{"object-unreadable", std::strerror(errno)}};
  std::unique_ptr<IOD_Msg> const msg(file.operator IOD_Msg*());
  if (!msg) return {errno == ENOMEM ? no_memory : Problem{"object-unreadable", file.GetError()}};
  struct {
    char const *kind, *name;
    std::string in_record, in_object;
  } const uids[] = {
      {"object-study-uid", "Study Instance UID", object.where->study, msg->GetStudyInstanceUID().GetText()},
      {"object-series-uid", "Series Instance UID", object.where->series, msg->GetSeriesInstanceUID().GetText()},
      {"object-instance-uid", "SOP Instance UID", object.instance, msg->GetSOPInstanceUID().GetText()}};
  std::vector<Problem> problems;
  for (auto const& uid : uids)
    if (!uid.in_record.empty() && uid.in_record != uid.in_object)
      problems.push_back({uid.kind, std::string("the record says ") + uid.name + " " + uid.in_record + ", the object " +
                                        uid.in_object});
  // a store's record tells the native syntax, whatever the file is going to hold
  std::string const syntax = file.GetTransferSyntax().GetText();
  if (!object.syntax.empty() && object.syntax != Dicom_UIDic::NATIVE_TRANSFER_SYNTAX.GetText() &&
      object.syntax != syntax)
    problems.push_back({"object-syntax", "the record says transfer syntax " + object.syntax + ", the file " + syntax});
  Dicom_DecodingFailure failure;
  Dicom_Compressor const codec;
  *decoded = codec.GetKolbaCompressionVersion(*msg, nullptr) == 1 && codec.TryDecompress(*msg, &failure) == 0;
  if (failure.kind == Dicom_DecodingFailure::Damaged) problems.push_back({"object-pixels", failure.text});
  if (failure.kind == Dicom_DecodingFailure::NoMemory) problems.push_back(no_memory);
  return problems;
}
