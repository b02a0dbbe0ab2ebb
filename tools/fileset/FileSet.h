// Opening a file-set: finds out what stands in the directory, and says why it can't be used.
#pragma once

#include <Disk/Disk_RootDirectoryFile.h>
#include <memory>
#include <string>

class EngineLog;
class Report;

enum class Structure {
  None,    // no DICOMDIR: an empty directory, or one that isn't a file-set
  Private, // this system's own, one directory file per level
  Standard // one DICOMDIR, as on exchange media
};

enum class Access {
  Read,     // nothing is written
  Visit,    // reading, which leaves the access date behind where that can be written
  Change,   // of a file-set that is there
  ReadWrite // a file-set is made where there is none
};

struct FileSet {
  std::string directory;
  Structure structure = Structure::None;
  std::unique_ptr<Disk_RootDirectoryFile> root; // null: it couldn't be opened, and the report says why
};

inline constexpr char kNoFileSet[] = "holds no file-set: there is no DICOMDIR";

struct FoundFileSet {
  Structure structure = Structure::None;
  std::string problem; // not empty: it can't be opened
};

// What stands in a directory. A DICOMDIR that can't be understood is a problem, and its structure is guessed from what
// is beside it.
FoundFileSet RecogniseFileSet(std::string const& directory);

// Whether `path`, which needn't be there, is the directory or below it, symbolic links followed.
bool IsInside(std::string const& path, std::string const& directory);

// Whether files of the file-set may be copied to `folder`. If not, because it is inside, that is reported.
bool MayReceive(std::string const& folder, std::string const& directory, Report& report);

// Makes the directory of a file-set where there is none, so that it survives a power cut. 0, or -1 with errno.
int MakeFileSetDirectory(std::string const& directory);

FileSet OpenFileSet(std::string const& directory, Access access, Disk_StoreParams params, EngineLog& log,
                    Report& report);

// The same for what only the private structure can do: -1, reported, for another. `*result` is the command's then.
int OpenPrivateFileSet(std::string const& directory, Access access, Disk_StoreParams params, EngineLog& log,
                       Report& report, FileSet* set, int* result);
