// Makes room: deletes the least recently updated studies until the wanted space is free; and drops records of studies
// whose folders are gone.
#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/files/Disk_LookAgain.h"
#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_Clock.h>
#include <infra/Util_FileSystemInterface.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <vector>

namespace {

struct DatedStudy {
  Disk_StudyDirectoryRecord* study;
  std::int64_t update_time; // seconds of calendar time
};

} // namespace

struct Disk_RootDirectoryFile::AutoDeleteRoad {
  Disk_RootDirectoryFile& root;

  int auto_delete();
  int list_auto_delete(std::vector<Disk_AutoDeleteCandidate>* candidates);
  int read_by_update(Disk_FileSetHold& file_set, bool shared, std::vector<DatedStudy>* dated);
  int sort_by_update(std::vector<DatedStudy>* dated) const;
  bool may_auto_delete(DatedStudy const& entry, std::int64_t now) const;
  int auto_delete_study(Disk_StudyDirectoryRecord* study, bool* passed_over);
};

namespace {

constexpr char kPrivateOnly[] = "AutoDelete: service is supported only for zentara Dicomdir structure.\n";
constexpr double kKbPerByte = 1.0 / 1024;
constexpr long kKbPerMb = 1000; // of the wanted space
constexpr double kSecondsPerDay = 86400.0;

/// Local time. 0, or -1 when it can't be expressed.
int UpdateTime(IOD_Msg const& record, std::int64_t* seconds) {
  Dicom_DA const date = record.GetLastUpdateDate();
  Dicom_TM const time = record.GetLastUpdateTime();
  std::tm parts{};
  parts.tm_mday = 1;
  if (date != DA_NULL) {
    if (date.Month() < 1 || date.Day() < 1) return -1; // no date at all
    parts.tm_year = date.Year() - 1900;
    parts.tm_mon = date.Month() - 1;
    parts.tm_mday = date.Day();
  }
  if (time != TM_NULL) {
    parts.tm_hour = time.Hours();
    parts.tm_min = time.Minutes();
    parts.tm_sec = time.Seconds();
  }
  parts.tm_isdst = -1;
  parts.tm_wday = -1; // mktime sets it: a result of -1 can be a time
  *seconds = std::mktime(&parts);
  return parts.tm_wday == -1 ? -1 : 0;
}

/// Sorts by a comparison that is no order over all values, which a library's sort may not survive; a merge does.
template <class Iterator, class Before>
void MergeSort(Iterator first, Iterator last, Before before) {
  if (last - first < 2) return;
  Iterator const middle = first + (last - first) / 2;
  MergeSort(first, middle, before);
  MergeSort(middle, last, before);
  std::inplace_merge(first, middle, last, before);
}

/// -1 on failure.
long FreeKb(std::string const& folder, long reserved_kb) {
  if (folder.empty()) return DISK_FAIL("FreeSpace(): Can't remove component from file-id.\n");
  double bytes = 0;
  if (Klb_FileSystemUtils::GetFreeSpace(folder.c_str(), &bytes) == -1)
    return Klb_Note(Klb_System(errno, "tell the free space of", folder));
  long left = 0;
  bool const beyond = __builtin_sub_overflow(long(bytes * kKbPerByte), reserved_kb, &left); // of a negative reserve
  return beyond ? std::numeric_limits<long>::max() : std::max(left, 0L);
}

} // namespace

long Disk_RootDirectoryFile::FreeSpace() {
  long free = -1;
  Disk_Guarded("FreeSpace", [&] {
    free = FreeKb(directory().FolderPath(), reserved_kb);
    return free == -1 ? -1 : 0;
  });
  return free;
}

int Disk_RootDirectoryFile::CompareDates(void const* a, void const* b) {
  auto const time = [](void const* entry) { return std::uint32_t(static_cast<DatedStudy const*>(entry)->update_time); };
  return std::int32_t(time(a) - time(b));
}

int Disk_RootDirectoryFile::AutoDelete() {
  return Disk_Guarded("AutoDelete", [&] {
    int const result = AutoDeleteRoad{*this}.auto_delete();
    ResetStudyFile();
    return result;
  });
}

int Disk_RootDirectoryFile::AutoDeleteRoad::auto_delete() {
  if (!root.support_par.auto_delete_supported) {
    DISK_LOG(5, "AutoDelete: auto-delete is not supported\n");
    return Klb_Note(Klb_Cause(DISK_FAILURE_UNSUPPORTED).Because("SetSupportPar hasn't allowed it"));
  }
  if (root.structure->RequirePrivate(kPrivateOnly) == -1) return -1;
  if (root.refuse_read_only("AutoDelete") == -1) return -1;
  long const limit = long(root.auto_delete_par.wanted_free_mb) * kKbPerMb;
  if (long const free = root.FreeSpace(); free > limit) {
    DISK_LOG(6, "AutoDelete: There is already enough space %d KByte (%d)\n", int(free), int(limit));
    return 0;
  }
  Disk_FileSetHold file_set;
  std::vector<DatedStudy> dated;
  if (read_by_update(file_set, false, &dated) == -1) return -1;
  root.MarkDirty();
  std::time_t const now = Util_Clock::Now();
  if (now == std::time_t(-1)) return DISK_FAIL("AutoDelete: Can't detect current time.\n");
  bool reached = false;
  for (auto entry = dated.begin(); entry != dated.end() && !reached && !Disk_IsStopped(root.stop_wanted); ++entry) {
    if (!may_auto_delete(*entry, std::int64_t(now))) continue;
    bool passed_over = false;
    if (auto_delete_study(entry->study, &passed_over) == -1) return -1;
    reached = !passed_over && root.FreeSpace() > limit;
  }
  if (!reached)
    DISK_LOG(7, "AutoDelete: it's impossible to clean up to %d MBytes\n", int(root.auto_delete_par.wanted_free_mb));
  if (root.Write() == -1) return DISK_FAIL("AutoDelete: Can't update the file.\n");
  if (file_set.Release() == 0) return 0;
  return DISK_FAIL("AutoDelete: Can't unlock file-set.\n");
}

int Disk_RootDirectoryFile::ListAutoDelete(std::vector<Disk_AutoDeleteCandidate>* candidates) {
  if (Disk_RefuseNull("ListAutoDelete", candidates) == -1) return -1;
  int const result = Disk_Guarded("AutoDelete", [&] { return AutoDeleteRoad{*this}.list_auto_delete(candidates); });
  if (result == -1) candidates->clear();
  return result;
}

int Disk_RootDirectoryFile::AutoDeleteRoad::list_auto_delete(std::vector<Disk_AutoDeleteCandidate>* candidates) {
  candidates->clear();
  if (root.structure->RequirePrivate(kPrivateOnly) == -1) return -1;
  Disk_FileSetHold file_set;
  std::vector<DatedStudy> dated;
  if (read_by_update(file_set, true, &dated) == -1) return -1;
  for (DatedStudy const& entry : dated) {
    if (!may_auto_delete(entry, std::int64_t(Util_Clock::Now()))) continue;
    Disk_FileID folder(root.GetFileSetPrefix(), entry.study->GetReferencedFileID(), 0);
    folder.RemoveLastComponent();
    candidates->push_back({entry.study->GetRecordMsg()->GetStudyInstanceUID(), folder.Path(), entry.update_time});
  }
  return 0;
}

/// All studies as they stand, the least recently updated first, under the lock.
int Disk_RootDirectoryFile::AutoDeleteRoad::read_by_update(Disk_FileSetHold& file_set, bool shared,
                                                           std::vector<DatedStudy>* dated) {
  if (root.lock(file_set, shared) == -1) return DISK_FAIL("AutoDelete: Can't lock file-set.\n");
  if (root.Read() == -1) return DISK_FAIL("AutoDelete: Can't read root directory file.\n");
  if (sort_by_update(dated) == 0) return 0;
  return DISK_FAIL("AutoDelete: Can't sort studies.\n");
}

int Disk_RootDirectoryFile::AutoDeleteRoad::sort_by_update(std::vector<DatedStudy>* dated) const {
  for (Disk_PatientDirectoryRecord* patient : root.records->patients)
    for (Disk_StudyDirectoryRecord* study : patient->GetStudyRecords()) {
      dated->push_back({study, 0});
      if (UpdateTime(*study->GetRecordMsg(), &dated->back().update_time) == -1) return -1;
    }
  MergeSort(dated->begin(), dated->end(),
            [](DatedStudy const& a, DatedStudy const& b) { return CompareDates(&a, &b) < 0; });
  return 0;
}

/// Whatever `honour_protection` says.
bool Disk_RootDirectoryFile::AutoDeleteRoad::may_auto_delete(DatedStudy const& entry, std::int64_t now) const {
  if (!entry.study->IsDeletable()) {
    DISK_LOG(7, "AutoDelete: Not deleted since Protection flag\n");
    return false;
  }
  if (double(now - entry.update_time) / kSecondsPerDay > double(root.auto_delete_par.min_study_age_days)) return true;
  DISK_LOG(7, "AutoDelete: Not deleted since study is young\n");
  return false;
}

/// A study that can't be locked is passed over. 0, also when not all of it could be deleted, or -1.
int Disk_RootDirectoryFile::AutoDeleteRoad::auto_delete_study(Disk_StudyDirectoryRecord* study, bool* passed_over) {
  root.ResetStudyFile();
  Klb_Attempt const attempt;
  root.GetStudyFile(study);
  Disk_Hold<Disk_StudyDirectoryFile> held; // until the study's files are gone
  if (!root.study_file || held.Exclusive(*root.study_file) == -1) {
    DISK_FAIL("AutoDelete: Can't lock study file-set.\n");
    root.DeleteCorruptedEntry(study);
    attempt.PassOver();
    *passed_over = true;
    return 0;
  }
  Disk_Removal removal;
  if (root.study_file->Delete(&removal) == -1) {
    DISK_LOG(4, "AutoDelete: Can't delete study.\n");
    attempt.PassOver();
    attempt.PassOver();
  } else {
    int const known = Disk_Counted(*study->GetRecordMsg(), kSeriesOfStudy).value_or(0);
    if (known != removal.series_removed)
      DISK_LOG(4, "AutoDelete: series mismatching %d %d.\n", known, removal.series_removed);
    if (root.DeleteStudy(study) == -1) DISK_LOG(4, "AutoDelete: Can't delete study record.\n");
  }
  if (held.Release() == 0) return 0;
  return DISK_FAIL("Delete: Can't unlock study file-set.\n");
}

/// The folder that a study's record names; empty when it names none.
std::string Disk_RootDirectoryFile::folder_of(Disk_StudyDirectoryRecord const& study) const {
  Disk_FileID id(GetFileSetPrefix(), study.GetReferencedFileID(), 0);
  id.RemoveLastComponent();
  std::string folder = id.Path();
  return folder == GetFileSetPrefix() ? std::string() : folder;
}

bool Disk_RootDirectoryFile::has_lost_folder(Disk_StudyDirectoryRecord const& study) const {
  std::string const folder = folder_of(study);
  if (folder.empty() || !Disk_IsGone(folder)) return false;
  DISK_LOG(4, "%s is gone: a delete of its study was killed; done again, or a store, it drops the record.\n",
           folder.c_str());
  return true;
}

int Disk_RootDirectoryFile::DeleteCorruptedEntry(Disk_StudyDirectoryRecord* study) {
  std::string const folder = folder_of(*study);
  if (folder.empty()) {
    DISK_LOG(4, "DeleteStudy(): Warning: can't remove component from file-id.\n");
    return 0;
  }
  struct stat status {};
  if (Util_FileSystemInterface::Current().Stat((folder + "/.").c_str(), &status) == 0) return 0;
  if (errno != ENOENT || !Disk_IsGone(folder)) {
    int const cause = errno;
    DISK_LOG(3, "DeleteCorruptedEntry: unexpected error accessing study's directory, entry not deleted\n");
    return DISK_FAIL(Klb_System(cause, "look at", folder), "The cause: errno=%d.\n", cause);
  }
  if (!params.read_only) Disk_RelaxedEpoch::Forget(Disk_FileID(GetFileSetPrefix(), study->GetReferencedFileID(), 0));
  if (DeleteStudyFromList(study) == 0) return 0;
  return DISK_FAIL("DeleteCorruptedEntry: could not remove entry from DICOMDIR.\n");
}
