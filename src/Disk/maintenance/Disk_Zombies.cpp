#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <Disk/Disk_RootDirectoryFile.h>
#include <infra/CToolParse.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <tuple>
#include <unordered_set>
#include <vector>

struct Disk_RootDirectoryFile::ScanRoad {
  Disk_RootDirectoryFile& root;

  int process_zombies(CToolParseDICOMReport& report);
};

// Zombies are files and folders of a file-set that no record names. Each level compares what its records name with
// what stands in its folder, and hands the rest to the caller's report, which decides what becomes of it.

namespace {

constexpr char kNotStandard[] = "ProcessZombieFiles: service is supported only for zentara Dicomdir structure.\n";

/// `cause` is the errno of a listing, or what a report left of one.
int CantProcess(std::string const& folder, int cause) {
  DISK_LOG(3, "ProcessZombieFiles: unable to process content of folder: %s.\n", folder.c_str());
  if (cause != 0) return DISK_FAIL(Klb_System(cause, "list", folder), "The cause: errno=%d.\n", cause);
  return DISK_FAIL(Klb_Cause(DISK_FAILURE_ARGUMENT).At(folder).Because("the report refused it"),
                   "The cause: the report refused it (errno=%d).\n", cause);
}

std::string PathOf(char const* prefix, Disk_DirectoryRecord const& record) {
  return Disk_FileID(prefix, record.GetReferencedFileID(), 0).Path();
}

/// Files are never zombies of the upper levels. What can't be opened counts as a folder, unless it is a link, which is
/// not followed.
bool IsFolder(std::string const& path) {
  struct stat status {};
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (system.Lstat(path.c_str(), &status) == -1 || S_ISLNK(status.st_mode)) return false;
  return S_ISDIR(status.st_mode) || !Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
}

int HandOverFolders(std::vector<RWCString> const& paths, CToolParseDICOMReport& report) {
  for (RWCString const& path : paths) {
    if (!IsFolder(path.str())) continue;
    errno = 0;
    if (report.ParseDirectory(path, 1) != 0) return CantProcess(path.str(), errno);
    report.ProcessFolder(path);
  }
  return 0;
}

} // namespace

/// What stands in a folder, and what records say should.
struct Disk_DirectoryFile::FolderComparison {
  CToolParse listing{0};
  std::unordered_set<std::string> named;

  int List(std::string const& folder, bool with_folders) {
    listing.m_listFolders = with_folders;
    errno = EINVAL;
    if (folder.empty() || listing.ParseDirectory(RWCString(folder), 1) != 0) return CantProcess(folder, errno);
    return 0; // a `\` is a character like others in a name
  }
  /// The folder of a study or series, whose record names the directory file in it.
  void NameFolder(std::string path) {
    constexpr std::string_view kDirectoryFile = "/DIRFILE";
    if (path.ends_with(kDirectoryFile)) path.resize(path.size() - kDirectoryFile.size());
    named.insert(std::move(path));
  }
  std::vector<RWCString> const& Zombies() {
    std::erase_if(listing.m_paths, [this](RWCString const& path) { return named.count(path.str()) != 0; });
    return listing.m_paths;
  }
};

int Disk_RootDirectoryFile::ProcessZombieFiles(CToolParseDICOMReport& report) {
  return Disk_Guarded("ProcessZombieFiles", [&] {
    int const result = ScanRoad{*this}.process_zombies(report);
    ResetStudyFile();
    return result;
  });
}

int Disk_RootDirectoryFile::ScanRoad::process_zombies(CToolParseDICOMReport& report) {
  if (root.structure->RequirePrivate(kNotStandard) == -1) return -1;
  Disk_FileSetHold file_set;
  if (root.lock(file_set, false) == -1) return DISK_FAIL("ProcessZombieFiles: Can't lock file-set.\n");
  if (root.Read() == -1) return DISK_FAIL("ProcessZombieFiles: Can't read root directory file.\n");
  FolderComparison comparison;
  if (comparison.List(root.directory().FolderPath(), true) == -1) return -1;
  comparison.named.insert(root.directory().FolderPath() + "/" + Disk_RelaxedEpoch::kFolder);
  std::vector<Disk_StudyDirectoryRecord*> to_scan;
  for (Disk_PatientDirectoryRecord* patient : root.records->patients)
    for (Disk_StudyDirectoryRecord* study : patient->GetStudyRecords()) {
      to_scan.push_back(study);
      comparison.NameFolder(PathOf(root.GetFileSetPrefix(), *study));
    }
  if (HandOverFolders(comparison.Zombies(), report) == -1) return -1;
  if (file_set.Release() == -1) return DISK_FAIL("ProcessZombieFiles: Can't unlock file-set.\n");
  // from here on others can go on in other studies, and what they do to the root isn't seen
  for (Disk_StudyDirectoryRecord* study : to_scan) {
    if (Disk_IsStopped(root.stop_wanted)) return -1;
    root.ResetStudyFile();
    Klb_Attempt const attempt;
    root.GetStudyFile(study);
    Disk_Hold<Disk_StudyDirectoryFile> held;
    if (!root.study_file || held.Exclusive(*root.study_file) == -1) {
      DISK_FAIL("ProcessZombieFiles: Can't lock study file-set.\n");
      root.DeleteCorruptedEntry(study);
      attempt.PassOver();
      continue;
    }
    if (root.study_file->ProcessZombieFiles(report) == -1) attempt.PassOver(); // it costs that study only
    if (held.Release() == -1) return DISK_FAIL("ProcessZombieFiles: Can't unlock study file-set.\n");
  }
  return 0;
}

int Disk_StudyDirectoryFile::ProcessZombieFiles(CToolParseDICOMReport& report) {
  DISK_LOG(7, "ProcessZombieFiles:\n");
  return Disk_Guarded("ProcessZombieFiles", [&] { return process_zombies(report); });
}

int Disk_StudyDirectoryFile::process_zombies(CToolParseDICOMReport& report) {
  if (Read() == -1) return DISK_FAIL("ProcessZombieFiles: Can't read study directory file.\n");
  if (structure->RequirePrivate(kNotStandard) == -1) return -1;
  std::string const folder = directory().FolderPath();
  FolderComparison comparison;
  if (comparison.List(folder, true) == -1) return -1;
  for (Disk_SeriesDirectoryRecord* series : series_records) {
    comparison.NameFolder(PathOf(GetFileSetPrefix(), *series));
    GetSeriesFile(series);
    Klb_Attempt const attempt;
    if (series_file && series_file->ProcessZombieFiles(report) == -1) attempt.PassOver(); // it costs that series only
  }
  if (HandOverFolders(comparison.Zombies(), report) == -1) return -1;
  series_records.clearAndDestroy();
  MarkDirty();
  return 0;
}

int Disk_SeriesDirectoryFile::ProcessZombieFiles(CToolParseDICOMReport& report) {
  DISK_LOG(7, "ProcessZombieFiles:\n");
  return Disk_Guarded("ProcessZombieFiles", [&] { return process_zombies(report); });
}

int Disk_SeriesDirectoryFile::process_zombies(CToolParseDICOMReport& report) {
  if (structure->RequirePrivate(kNotStandard) == -1) return -1;
  if (Read() == -1) return DISK_FAIL("ProcessZombieFiles: Can't read series directory file.\n");
  std::string const folder = directory().FolderPath();
  FolderComparison comparison;
  if (comparison.List(folder, false) == -1) return -1;
  for (Disk_InstanceDirectoryRecord* image : image_records)
    comparison.named.insert(PathOf(GetFileSetPrefix(), *image));
  comparison.named.insert(Disk_Names::In(folder, Disk_Names::kVersion));
  comparison.named.insert(Disk_Names::In(folder, Disk_Names::kDirectoryFile));
  for (RWCString const& path : comparison.Zombies())
    if (report.ProcessFile(path) == -1) {
      DISK_LOG(3, "ProcessZombieFiles(): Warning: Can't Process a file %s (errno=%d).\n", path.data(), errno);
      Klb_PassOver(Klb_System(errno, "process", path.str()));
    }
  return 0;
}
