#include "sets/Zombies.h"

#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/OwnFiles.h"
#include "sets/Search.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dicom/Dicom_UIDGenerator.h>
#include <infra/CToolParse.h>
#include <infra/Util_FileSystemInterface.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kDeepest = 32; // folders below a zombie folder; deeper ones are neither listed nor removed

Util_FileSystemInterface& System() { return Util_FileSystemInterface::Current(); }

// What is in a folder and below.
class Contents : public Klb_ParseDirectory {
public:
  int ProcessFile(RWCString path) override {
    struct stat status {};
    if (System().Lstat(path.data(), &status) == 0 && S_ISREG(status.st_mode)) bytes += std::uint64_t(status.st_size);
    return ProcessFolder(std::move(path));
  }
  int ProcessFolder(RWCString path) override {
    paths.push_back(path.str());
    return 0;
  }

  std::vector<std::string> paths;
  std::uint64_t bytes = 0;
};

bool IsBelow(std::string const& path, std::string const& folder) { return path.starts_with(folder + "/"); }

// Collects zombies. The scan hands over the content of a zombie folder before the folder.
class Collection : public CToolParseDICOMReport {
public:
  explicit Collection(Report& report) : report_(report) {}

  int ProcessFile(RWCString path) override {
    Contents one;
    one.ProcessFile(path);
    zombies.push_back({path.str(), false, {}, one.bytes, {}});
    return 0;
  }
  int ProcessFolder(RWCString path) override {
    std::string const& folder = path.str();
    std::erase_if(zombies, [&](Zombie const& zombie) { return IsBelow(zombie.path, folder); });
    Contents contents;
    if (contents.ParseDirectory(path, kDeepest) == -1)
      report_.Fail(folder, std::string("can't be listed: ") + std::strerror(errno));
    zombies.push_back({folder, true, std::move(contents.paths), contents.bytes, {}});
    return 0;
  }

  Zombies zombies;

private:
  Report& report_;
};

// Removes what is in a folder, links as such.
class FolderRemoval : public Klb_ParseDirectory {
public:
  explicit FolderRemoval(Report& report) : report_(report) {}

  int ProcessFile(RWCString path) override { return told(path, System().Unlink(path.data())); }
  int ProcessFolder(RWCString path) override { return told(path, System().Rmdir(path.data())); }

private:
  int told(RWCString const& path, int result) {
    if (result == -1) report_.Fail(path.str(), std::string("can't be removed: ") + std::strerror(errno));
    return result;
  }

  Report& report_;
};

// Removes what was listed before and still is a zombie, while the scan holds the locks.
class Removal : public CToolParseDICOMReport {
public:
  Removal(Zombies const& zombies, std::string directory, Report& report)
      : directory_(std::move(directory)), report_(report) {
    for (Zombie const& zombie : zombies)
      if (zombie.stays.empty()) listed_.insert(zombie.path);
  }

  // The result is always 0: -1 would end the scan.
  int ProcessFile(RWCString path) override {
    if (may_go(path.str())) note(path.str(), FolderRemoval(report_).ProcessFile(path));
    return 0;
  }
  int ProcessFolder(RWCString path) override {
    if (!may_go(path.str())) return 0;
    FolderRemoval removal(report_);
    std::ignore = removal.ParseDirectory(path, kDeepest); // a file that stays keeps its folder too, and is reported
    note(path.str(), removal.ProcessFolder(path));
    return 0;
  }

  std::vector<std::string> removed;

private:
  bool may_go(std::string const& path) {
    if (listed_.count(path) == 0 || IsInterrupted() || !CanBeOwn(path, directory_)) return false;
    for (std::size_t end = path.find('/', directory_.size() + 1); end != std::string::npos;
         end = path.find('/', end + 1)) {
      std::string const above = path.substr(0, end);
      struct stat status {};
      if (System().Lstat(above.c_str(), &status) == 0 && !S_ISLNK(status.st_mode)) continue;
      report_.Fail(path, above + " is a symbolic link, which isn't followed: left");
      return false;
    }
    return true;
  }
  void note(std::string const& path, int result) {
    if (result == 0) removed.push_back(path);
  }

  std::string directory_;
  Report& report_;
  std::set<std::string> listed_;
};

int Scan(FileSet& set, CToolParseDICOMReport& callbacks, Report& report) {
  Disk_PassedOver passed;
  int const result = set.root->ProcessZombieFiles(callbacks);
  if (!IsInterrupted() && result == -1)
    report.Fail(set.directory, "can't be scanned: " + LastCause());
  else if (!IsInterrupted() && !passed.Entries().empty())
    report.Fail(set.directory, "not all of it can be scanned: " + FirstOf(passed));
  return result;
}

} // namespace

void DropLostStudies(FileSet& set, Report& report) {
  using namespace Attributes;
  Search::Rows rows;
  if (Search(set, report).Run(Level::STUDY, {{kReferencedFileId, ""}}, &rows) == -1) return;
  Disk_SupportPar par;
  par.delete_supported = 1;
  set.root->SetSupportPar(par);
  for (auto const& row : rows) {
    Disk_FileID id(set.directory.c_str(), row->Value<Dicom_CS>(kReferencedFileId), 0);
    struct stat status {};
    if (id.RemoveLastComponent() == -1 || System().Stat(id.Path().c_str(), &status) == 0 || errno != ENOENT) continue;
    std::string const uid = row->Text(kStudyInstanceUid);
    // the folder may exist again by now. So a series is deleted that no study has: that takes nothing of it along
    SCL_MoveIdentifier identifier(Level::SERIES);
    identifier.SetStudyInstanceUID(Dicom_UI(uid));
    identifier.SetSeriesInstanceUID(Dicom_UIDGenerator().Generate());
    MXL_SubOperationsReport told;
    SCL_ResponseStatus done;
    if (set.root->Delete(identifier, 1, &told, done) == 0)
      report.Warn("study " + uid, "its folder was gone; its record is removed");
    else
      report.Fail("study " + uid, "its folder isn't found, and its record can't be removed: " + LastCause());
  }
}

int FindZombies(FileSet& set, Report& report, Zombies* zombies) {
  Collection collection(report);
  int const result = Scan(set, collection, report);
  *zombies = std::move(collection.zombies);
  return result;
}

std::vector<std::string> RemoveZombies(Zombies const& zombies, FileSet& set, Report& report) {
  Removal removal(zombies, set.directory, report);
  Scan(set, removal, report);
  return removal.removed;
}

int ReadRecorded(FileSet& set, Report& report, Recorded* recorded) {
  using namespace Attributes;
  std::size_t const failures = report.Failures().size();
  for (Level const level : {Level::STUDY, Level::SERIES, Level::IMAGE}) {
    Search::Rows rows;
    if (Search(set, report).Run(level, {{kReferencedFileId, ""}}, &rows) == -1) return -1;
    for (auto const& row : rows) {
      std::string const path = Disk_FileID(set.directory.c_str(), row->Value<Dicom_CS>(kReferencedFileId), 0).Path();
      recorded->paths.insert(path);
      bool const is_there = !path.empty() && System().Access(path.c_str(), F_OK) == 0;
      if (level == Level::IMAGE && is_there) recorded->uids.insert(row->Text(kSopInstanceUid));
    }
  }
  return report.Failures().size() == failures ? 0 : -1;
}
