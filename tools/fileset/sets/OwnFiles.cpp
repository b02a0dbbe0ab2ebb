#include "sets/OwnFiles.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kNameLength = 8;
constexpr std::uintmax_t kVersionLength = 4;

enum class Kind { File, Folder, Other, Gone }; // a link is Other, wherever it leads

Kind KindOf(fs::path const& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == -1) return errno == ENOENT ? Kind::Gone : Kind::Other;
  return S_ISREG(status.st_mode) ? Kind::File : S_ISDIR(status.st_mode) ? Kind::Folder : Kind::Other;
}

// The paths of a folder's entries. 0, or -1 when it can't be listed.
int List(fs::path const& folder, std::vector<fs::path>* entries) {
  std::error_code error;
  for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error))
    entries->push_back(i->path());
  return error ? -1 : 0;
}

bool IsDigitOrUpper(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z'); }

// A generated name: a letter, a part of a number or ID, and a counter of three places. When the counter has run out,
// the next letter is taken.
bool IsGenerated(std::string const& name, char first) {
  return name.size() == kNameLength && name[0] >= first && name[0] <= 'Z' &&
         std::all_of(name.end() - 3, name.end(), IsDigitOrUpper);
}

bool IsStudyName(std::string const& name) {
  return IsGenerated(name, 'S') &&
         std::all_of(name.begin(), name.end(), [](char c) { return IsDigitOrUpper(c) || c == '_'; });
}

// Whether a file may have this name: at depth 2 in a study's folder, at depth 3 in a series'.
bool IsFileName(std::string name, int depth) {
  if (name.ends_with(".tmp")) name.resize(name.size() - 4);
  return name == "DIRFILE" || name == "VERSION" || (depth == 2 && name == "LOCKFILE") ||
         (depth == 3 && IsGenerated(name, 'I'));
}

// `depth` is 1 for what stands in the file-set's own folder.
bool CanBeOwn(fs::path const& path, int depth) {
  std::string const name = path.filename();
  Kind const kind = KindOf(path);
  if (kind == Kind::Gone) return true; // a temporary file of a store that is under way
  if (kind == Kind::File) return IsFileName(name, depth);
  if (kind == Kind::Other || !(depth == 1 ? IsStudyName(name) : depth == 2 && IsGenerated(name, 'S'))) return false;
  std::vector<fs::path> entries;
  return List(path, &entries) == 0 && std::all_of(entries.begin(), entries.end(), [depth](fs::path const& entry) {
           return CanBeOwn(entry, depth + 1);
         });
}

// Whether this is what a first store leaves that was killed or is under way: temporary files, and the folder of its
// study. It doesn't make a folder count as used.
bool IsUnfinished(fs::path const& path) {
  std::string const name = path.filename();
  Kind const kind = KindOf(path);
  if (kind == Kind::File) return name == "LOCKFILE" || name.ends_with(".tmp");
  if (kind != Kind::Folder) return kind == Kind::Gone;
  if (name == "lost+found" || name == "RELAXED") return true;
  return CanBeOwn(path, 1) ||
         (IsStudyName(name) && (KindOf(path / "LOCKFILE") == Kind::File || KindOf(path / "DIRFILE") == Kind::File));
}

} // namespace

Contents ContentsOf(std::string const& directory) {
  std::vector<fs::path> entries;
  if (List(directory, &entries) == -1) return Contents::Other;
  std::error_code error;
  fs::path const version = fs::path(directory) / "VERSION";
  if (KindOf(version) == Kind::File && fs::file_size(version, error) == kVersionLength) {
    bool const standard = std::any_of(entries.begin(), entries.end(), [](fs::path const& entry) {
      return KindOf(entry / "VERSION") == Kind::File && KindOf(entry / "DIRFILE") != Kind::File;
    });
    return standard ? Contents::LostStandard : Contents::LostPrivate;
  }
  return std::all_of(entries.begin(), entries.end(), IsUnfinished) ? Contents::Nothing : Contents::Other;
}

bool CanBeOwn(std::string const& path, std::string const& file_set) {
  return CanBeOwn(fs::path(path),
                  1 + int(std::count(path.begin() + std::ptrdiff_t(file_set.size()) + 1, path.end(), '/')));
}
