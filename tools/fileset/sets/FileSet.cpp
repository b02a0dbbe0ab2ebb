#include "sets/FileSet.h"

#include "output/Report.h"
#include "program/Exit.h"
#include "sets/Cause.h"
#include "sets/OwnFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dicom/Util_TransferSyntax.h>
#include <fcntl.h>
#include <filesystem>
#include <infra/Util_FileSystem.h>
#include <optional>
#include <tuple>
#include <unistd.h>

namespace {

constexpr Dicom_Tag kFirstOffset{0x0004, std::uint16_t(0x1200)};
constexpr Dicom_Tag kLastOffset{0x0004, std::uint16_t(0x1202)};

constexpr char kNoFileSet[] = "holds no file-set: there is no DICOMDIR";
constexpr char kLost[] = "its DICOMDIR is gone, though there is its VERSION: bring it back from a backup; or ";
constexpr char kNoDirectory[] = "not a directory";
constexpr char kOrder[] = "the file-set is named first, and what is to be stored behind it";
constexpr char kStandard[] = "a file-set of the standard structure; only one of the private structure can do this";

// Whether the offsets of the first and last record are 0. No value if the file doesn't begin like a directory file.
std::optional<bool> HasNoOffsets(int fd) {
  constexpr int kMostElements = 32; // before the offsets
  Util_TransferSyntax start;
  if (start.GetDetails(fd) == -1) return {};
  int error = 0;
  Dicom_TransferSyntax const syntax(start.GetTransferSyntax(), &error);
  std::optional<unsigned> first;
  for (int i = 0; i < kMostElements && error == 0; ++i) {
    unsigned consumed = 0;
    Dicom_ME const element(fd, &consumed, syntax, nullptr, &error);
    if (error == -1 || element.GetTag().Number() > kLastOffset.Number()) break;
    unsigned const value = element.ValueAs<Dicom_UL>();
    if (element.GetTag() == kFirstOffset) first = value;
    if (element.GetTag() == kLastOffset && first) return *first == 0 && value == 0;
  }
  return {};
}

// A file-set is private if its folders hold directory files of their own.
Structure GuessStructure(std::string const& directory) {
  std::error_code error;
  for (auto const& entry : std::filesystem::directory_iterator(directory, error))
    if (access((entry.path() / "DIRFILE").c_str(), F_OK) == 0) return Structure::Private;
  return Structure::Standard;
}

// Makes the directory of a file-set where there is none, so that it survives a power cut. 0, or -1 with errno.
int MakeDirectory(std::string const& directory) {
  bool made = false;
  if (Util_FileSystem::MakeDirectory(directory.c_str(), 0775, &made) == -1) return errno == EEXIST ? 0 : -1;
  return made ? Util_FileSystem::SyncDirectory((directory + "/..").c_str()) : 0;
}

// Why no file-set may be made in a directory that has none; empty if one may.
std::string Obstacle(Contents contents, Access access, bool standard) {
  if (contents == Contents::LostStandard && !(access == Access::MakeAmong && standard))
    return std::string(kLost) + "store what it holds into a new file-set, with --standard if you like; "
                                "--init --standard makes a new one here, without these objects";
  if (contents == Contents::LostPrivate && (access != Access::MakeAmong || standard))
    return std::string(kLost) + "store with --init, and `fileset scan --adopt` gives the objects new records";
  if (contents == Contents::Other && access != Access::MakeAmong)
    return std::string("is no file-set, and isn't empty: --init makes one here all the same; ") + kOrder;
  return {};
}

std::unique_ptr<Disk_RootDirectoryFile> Open(std::string const& directory, Disk_StoreParams params) {
  int status = 0;
  auto root = std::make_unique<Disk_RootDirectoryFile>(directory.c_str(), params, 0, &status, nullptr);
  if (status != 0) return nullptr;
  root->SetDeletesCineFiles(false); // objects come from anywhere, and they would name files anywhere
  return root;
}

} // namespace

FoundFileSet RecogniseFileSet(std::string const& directory) {
  struct stat status {};
  std::string path = directory + "/DICOMDIR";
  std::string const version = directory + "/VERSION";
  if (access(path.c_str(), F_OK) == -1 && access((directory + "/dicomdir").c_str(), F_OK) == 0)
    path = directory + "/dicomdir"; // as some media have it
  if (stat(directory.c_str(), &status) == -1) return {{}, std::strerror(errno)};
  if (!S_ISDIR(status.st_mode)) return {{}, kNoDirectory};
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file && errno == ENOENT) return {{}, kNoFileSet};
  if (!file) return {{}, std::string("DICOMDIR: ") + std::strerror(errno)};
  if (fstat(file.Get(), &status) == -1 || !S_ISREG(status.st_mode)) return {{}, "DICOMDIR isn't a file"};
  std::optional<bool> const no_offsets = HasNoOffsets(file.Get());
  if (!no_offsets) return {GuessStructure(directory), "DICOMDIR isn't a directory of DICOM objects, or it is damaged"};
  // a power cut can take the first VERSION away
  bool const own =
      *no_offsets && (access(version.c_str(), F_OK) == 0 || GuessStructure(directory) == Structure::Private);
  return {own ? Structure::Private : Structure::Standard, {}, own || !*no_offsets};
}

FoundFileSet FindFileSet(std::string const& directory, Access access, bool standard) {
  bool const makes = access == Access::Make || access == Access::MakeAmong;
  if (makes && MakeDirectory(directory) == -1) return {{}, std::string("can't be made: ") + std::strerror(errno)};
  std::ignore = Disk_RootDirectoryFile::Recover(directory.c_str()); // a failure shows in the next step
  FoundFileSet found = RecogniseFileSet(directory);
  if (makes && found.problem == kNoDirectory) found.problem += std::string("; ") + kOrder;
  if (found.problem != kNoFileSet) return found;
  Contents const contents = ContentsOf(directory);
  std::string problem = Obstacle(contents, access, standard);
  if (problem.empty() && makes) return {};
  // another program may have made a file-set meanwhile, whose VERSION was seen
  found = RecogniseFileSet(directory);
  bool const is_lost = contents == Contents::LostPrivate || contents == Contents::LostStandard;
  if (found.problem == kNoFileSet && (makes || is_lost)) found.problem = std::move(problem);
  return found;
}

bool IsInside(std::string const& path, std::string const& directory) {
  namespace fs = std::filesystem;
  std::error_code error, no_directory;
  fs::path const full = fs::absolute(path, error); // or a path whose first part doesn't exist would stay relative
  if (error) return false;
  fs::path const real = fs::weakly_canonical(full, error), above = fs::canonical(directory, no_directory);
  return !error && !no_directory &&
         std::mismatch(above.begin(), above.end(), real.begin(), real.end()).first == above.end();
}

bool MayReceive(std::string const& folder, std::string const& directory, Report& report) {
  if (!IsInside(folder, directory)) return true;
  report.Fail(folder, "lies inside of the file-set");
  return false;
}

FileSet OpenFileSet(std::string const& directory, Access access, Disk_StoreParams params, Report& report) {
  auto const [structure, problem, has_records] = FindFileSet(directory, access, params.standard_structure);
  FileSet set{directory, structure, has_records, nullptr};
  bool const writes = access != Access::Read && access != Access::Visit;
  if (!problem.empty()) {
    report.Fail(directory, problem);
    return set;
  }
  if (!has_records && writes) {
    report.Fail(directory, std::string(kNoRecords) +
                               ", and nothing can be appended to it: store into a new file-set in another folder");
    return set;
  }
  if (!has_records) report.Warn(directory, kNoRecords);
  if (structure == Structure::Private && params.standard_structure) {
    report.Fail(directory, "its structure is private; --standard is for a new file-set");
    return set;
  }
  if (structure == Structure::Standard) params.standard_structure = 1;
  // reading must not leave a lock file where there is no file-set, nor a trace on another system's medium
  params.read_only = access == Access::Read || (access == Access::Visit && structure != Structure::Private);
  set.root = Open(directory, params);
  if (!set.root && access == Access::Visit) {
    params.read_only = 1;
    set.root = Open(directory, params);
  }
  if (!set.root) report.Fail(directory, LastCause());
  return set;
}

int OpenPrivateFileSet(std::string const& directory, Access access, Disk_StoreParams params, Report& report,
                       FileSet* set, int* result) {
  *set = OpenFileSet(directory, access, params, report);
  *result = kNotOpened;
  if (!set->root) return -1;
  if (set->structure == Structure::Private) return 0;
  report.Fail(directory, kStandard);
  *result = kFailed;
  return -1;
}
