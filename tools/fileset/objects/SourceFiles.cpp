#include "objects/SourceFiles.h"

#include "objects/StoreObject.h"
#include "output/Report.h"
#include "sets/FileSet.h"

#include <algorithm>
#include <cerrno>
#include <dicom/Util_TransferSyntax.h>
#include <fcntl.h>
#include <filesystem>
#include <infra/Util_FileSystem.h>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The entries of a folder, the last name first.
std::vector<fs::path> EntriesBackwards(fs::path const& folder, std::error_code& error) {
  std::vector<fs::path> entries;
  for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error))
    entries.push_back(i->path());
  std::sort(entries.rbegin(), entries.rend());
  return entries;
}

} // namespace

SourceFiles FindSourceFiles(std::vector<std::string> const& sources, std::string const& file_set, Report& report) {
  SourceFiles files;
  std::vector<fs::path> open(sources.rbegin(), sources.rend()); // still to be looked at; the next one is the last
  std::size_t named = sources.size();                           // of them, those from the command line
  std::error_code ignored;
  while (!open.empty()) {
    fs::path const path = std::move(open.back());
    open.pop_back();
    bool const from_folder = open.size() >= named;
    if (!from_folder) named = open.size();
    std::error_code error;
    bool const is_folder = fs::is_directory(path, error);
    bool const is_link = fs::is_symlink(path, ignored);
    if ((is_folder || is_link || !from_folder) && IsInside(path.string(), file_set)) {
      report.Fail(path.string(), "lies inside of the file-set: left out");
    } else if (!is_folder) {
      files.paths.push_back(path.string()); // what is wrong with it shows when it is read
      files.from_folder.push_back(from_folder);
    } else if (from_folder && is_link) {
      report.Fail(path.string(), "a symbolic link to a folder: not followed");
    } else {
      std::vector<fs::path> entries = EntriesBackwards(path, error);
      std::move(entries.begin(), entries.end(), std::back_inserter(open));
      if (error) report.Fail(path.string(), "can't be read: " + error.message());
    }
  }
  return files;
}

bool IsNoObject(std::string const& path, std::string const& cause) {
  constexpr char kPrefix[] = "DICM";
  constexpr std::size_t kPreamble = 128;
  struct stat status {};
  if (cause == kIsDicomDir || strcasecmp(fs::path(path).filename().c_str(), "DICOMDIR") == 0) return true;
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file || fstat(file.Get(), &status) == -1) return false;
  if (!S_ISREG(status.st_mode)) return true;
  char start[kPreamble + sizeof kPrefix - 1];
  ssize_t const length = Util_FileSystem::ReadAll(file.Get(), start, sizeof start);
  if (length == -1 ||
      std::string_view(start, std::size_t(length)).substr(std::min(kPreamble, std::size_t(length))) == kPrefix)
    return false;
  errno = 0; // stays so when this is no DICOM file
  return lseek(file.Get(), 0, SEEK_SET) == 0 && Util_TransferSyntax().GetDetails(file.Get()) == -1 && errno == 0;
}
