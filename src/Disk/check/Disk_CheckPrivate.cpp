// Checks the private structure: each directory file with its records, counters and VERSION, and each folder with what
// stands in it.
#include "Disk/check/Disk_CheckPrivate.h"

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/structure/Disk_RecordIO.h"

#include <dicom/Util_File.h>
#include <infra/Util_FileSystemInterface.h>

#include <cerrno>
#include <cstring>

namespace {

bool AnyFolder(std::string const&) { return true; }

} // namespace

struct Disk_CheckPrivate::Records {
  std::unique_ptr<IOD_Msg> owner;
  Dicom_Sequence* sequence = nullptr;

  /// Takes them off, so that the memory of one is enough.
  template <class Do>
  void ForEach(Do what) const {
    Disk_TakeItems(*sequence, [&](std::unique_ptr<Dicom_Msg> item) {
      what(static_cast<IOD_Msg const&>(*item));
      return 0;
    });
  }
};

bool Disk_CheckPrivate::load(std::string const& path, Records* records) {
  Util_File file;
  file.no_original_buffer = 1;
  errno = 0;
  if (file.GetFile(path.c_str(), 0, nullptr) == -1) {
    if (errno == ENOENT)
      Find("directory-file-missing", Disk_Finding::InterruptedDelete, path, std::strerror(errno));
    else
      FindUnreadable("directory-file-unreadable", path, std::strerror(errno));
    return false;
  }
  records->owner.reset(file.operator IOD_Msg*());
  auto const* value = records->owner ? dynamic_cast<Dicom_SQ const*>(records->owner->Get(kRecordSequence)) : nullptr;
  records->sequence = value ? value->GetSequence() : nullptr;
  if (records->sequence) return true;
  FindUnreadable("directory-file-unreadable", path,
                 records->owner ? "it holds no sequence of records" : file.GetError());
  return false;
}

int Disk_CheckPrivate::Walk() {
  std::string const root = Disk_Names::In(Prefix(), Disk_Names::kDicomdir);
  Records records;
  struct stat status {};
  if (Util_FileSystemInterface::Current().Stat(root.c_str(), &status) == -1)
    return DISK_FAIL(Klb_System(errno, "look at", root).Unset(), "Check: %s: %s\n", root.c_str(), std::strerror(errno));
  CheckVersion(Prefix(), true);
  if (!load(root, &records)) return 0;
  records.ForEach([this](IOD_Msg const& record) { check_root(record); });
  EndPatient();
  CompareFolder(Prefix(), {Disk_Names::kDicomdir, Disk_Names::kVersion, Disk_Names::kLockFile, Disk_Names::kRelaxed},
                false, AnyFolder);
  return 0;
}

void Disk_CheckPrivate::check_root(IOD_Msg const& record) {
  std::string const type = record.Text(kRecordType), root = Disk_Names::In(Prefix(), Disk_Names::kDicomdir);
  if (type == "PATIENT") {
    EndPatient();
    return BeginPatient(record);
  }
  if (type != "STUDY") return Find("record-type", Disk_Finding::Damage, root, "a record of type " + type);
  if (!IsInPatient()) Find("patient-missing", Disk_Finding::Damage, root, "a study stands before all patients");
  check_study(record);
}

/// The folder of a study or series; empty (told) if there is none.
std::string Disk_CheckPrivate::find_folder(IOD_Msg const& record, std::string const& directory_file,
                                           char const* level) {
  std::string const path =
      NamedPath(Disk_FileID(Prefix().c_str(), record.Value<Dicom_CS>(kReferencedFileID), 0), directory_file);
  if (path.empty()) return {};
  if (Disk_Names::NameOf(path) != Disk_Names::kDirectoryFile) {
    Find("file-id-illegal", Disk_Finding::Damage, path, std::string("a ") + level + " record names no DIRFILE");
    return {};
  }
  std::string folder = Disk_Names::FolderOf(path);
  struct stat status {};
  if (Util_FileSystemInterface::Current().Stat(folder.c_str(), &status) == 0) {
    CompareWith(folder);
    return folder;
  }
  Find("folder-missing", Disk_Finding::InterruptedDelete, folder, std::string("the folder of a ") + level + " is gone");
  return {};
}

void Disk_CheckPrivate::check_study(IOD_Msg const& record) {
  std::string const root = Disk_Names::In(Prefix(), Disk_Names::kDicomdir);
  BeginStudy(record, root);
  std::string const folder = find_folder(record, root, "study");
  if (folder.empty()) return;
  Disk_LockManager lock;
  Disk_Hold<Klb_LockFile> held;
  if (lock.Init(folder.c_str(), 1) == -1 || held.Shared(lock) == -1)
    return Find("study-lock", Disk_Finding::Damage, Disk_Names::In(folder, Disk_Names::kLockFile),
                "the study can't be locked");
  CheckVersion(folder, true);
  Records records;
  std::string const path = Disk_Names::In(folder, Disk_Names::kDirectoryFile);
  if (!load(path, &records)) return;
  records.ForEach([&](IOD_Msg const& series) {
    if (series.Text(kRecordType) == "SERIES") return check_series(series, path);
    Find("record-type", Disk_Finding::Damage, path, "a record of type " + series.Text(kRecordType) + " in a study");
  });
  EndStudy(record, root);
  CompareFolder(folder, {Disk_Names::kDirectoryFile, Disk_Names::kVersion, Disk_Names::kLockFile}, false, AnyFolder);
}

void Disk_CheckPrivate::check_series(IOD_Msg const& record, std::string const& study_file) {
  BeginSeries(record, study_file);
  std::string const folder = find_folder(record, study_file, "series");
  if (folder.empty()) return LeaveSeriesOut();
  CheckVersion(folder, true);
  Records records;
  std::string const path = Disk_Names::In(folder, Disk_Names::kDirectoryFile);
  if (!load(path, &records)) return LeaveSeriesOut();
  records.ForEach([&](IOD_Msg const& image) {
    std::string const type = image.Text(kRecordType);
    if (type != "IMAGE" && type != "PRESENTATION" && type != "SR DOCUMENT") // no other can be read
      return Find("record-type", Disk_Finding::Damage, path, "a record of type '" + type + "' in a series");
    Disk_FileID const id(Prefix().c_str(), image.Value<Dicom_CS>(kReferencedFileID), 0);
    CheckInstance(image, path, id, id.Path());
  });
  EndSeries(record, study_file);
  CompareFolder(folder, {Disk_Names::kDirectoryFile, Disk_Names::kVersion}, true,
                [](std::string const&) { return false; });
}
