#include "SourceFiles.h"

#include "FileSet.h"
#include "Report.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

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

std::vector<std::string> FindSourceFiles(std::vector<std::string> const& sources, std::string const& file_set,
                                         Report& report) {
  std::vector<std::string> files;
  std::vector<fs::path> open(sources.rbegin(),
                             sources.rend()); // what is still to be looked at, the next one last
  std::size_t named = sources.size();         // of these the ones from the command line
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
      files.push_back(path.string()); // whatever is wrong with it comes out when it is read
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
