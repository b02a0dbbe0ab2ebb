#include "sets/Leftovers.h"

#include "output/Report.h"
#include "sets/Cause.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

namespace fs = std::filesystem;

std::string PathOf(Dicom_Msg const& record, std::string const& directory) {
  return Disk_FileID(directory.c_str(), record.Value<Dicom_CS>(Attributes::kReferencedFileId), 0).Path();
}

std::string FolderOf(Dicom_Msg const& record, std::string const& directory) {
  if (record.Value<Dicom_CS>(Attributes::kReferencedFileId).GetNValues() < 2) return {}; // the file-set's own folder
  return fs::path(PathOf(record, directory)).parent_path();
}

StudyFolders FoldersOf(Search::Rows const& studies, std::string const& directory) {
  StudyFolders folders;
  for (auto const& study : studies)
    folders[study->Text(Attributes::kStudyInstanceUid)] = FolderOf(*study, directory);
  return folders;
}

void ReportLeft(std::vector<std::string> const& files, std::string const& folder, Disk_PassedOver const& passed,
                Report& report) {
  std::set<std::string> left;
  std::error_code error;
  std::copy_if(files.begin(), files.end(), std::inserter(left, left.end()),
               [&error](std::string const& file) { return fs::exists(fs::symlink_status(file, error)); });
  bool const is_there = !folder.empty() && fs::is_directory(fs::symlink_status(folder, error));
  error.clear();
  for (fs::recursive_directory_iterator entry(is_there ? fs::path(folder) : fs::path(), error), end; entry != end;
       entry.increment(error))
    if (!fs::is_directory(entry->symlink_status(error))) left.insert(entry->path());
  if (is_there && left.empty()) left.insert(folder);
  for (std::string const& path : left) {
    std::string const cause = CauseAt(path, passed);
    report.Fail(path, "is left on the disk" + (cause.empty() ? "" : ": " + cause));
  }
}
