// Opening a file-set: finds out what stands in the directory, and says why it can't be used.
#pragma once

#include <Disk/Disk_RootDirectoryFile.h>
#include <memory>
#include <string>

class EngineLog;
class Report;

enum class Structure {
  None,    // no DICOMDIR: a file-set to be, or a directory that isn't one
  Private, // this system's own, one directory file per level
  Standard // one DICOMDIR, as on exchange media
};

enum class Access {
  Read,     // nothing is written
  Visit,    // reading, which leaves the access date behind where that can be written
  Change,   // of a file-set that is there
  Make,     // a file-set is made in a folder that isn't there or is empty
  MakeAmong // the same whatever stands in the folder
};

struct FileSet {
  std::string directory;
  Structure structure = Structure::None;
  bool has_records = true;                      // false: a medium whose DICOMDIR has none, which isn't read
  std::unique_ptr<Disk_RootDirectoryFile> root; // null: it couldn't be opened, and the report says why
};

inline constexpr char kNoRecords[] = "its DICOMDIR has no records";

struct FoundFileSet {
  Structure structure = Structure::None;
  std::string problem; // not empty: it can't be opened
  bool has_records = true;
};

// What stands in a directory. A DICOMDIR that can't be understood is a problem, and its structure is guessed from what
// is beside it; without one it is a problem that there is none.
FoundFileSet RecogniseFileSet(std::string const& directory);

// The same for an access that may make a file-set, which a directory that isn't there is made for. It is no problem
// then that there is none, unless one would hide or claim what stands in the directory.
FoundFileSet FindFileSet(std::string const& directory, Access access, bool standard);

// Whether `path`, which needn't be there, is the directory or below it, symbolic links followed.
bool IsInside(std::string const& path, std::string const& directory);

// Whether files of the file-set may be copied to `folder`. If not, because it is inside, that is reported.
bool MayReceive(std::string const& folder, std::string const& directory, Report& report);

FileSet OpenFileSet(std::string const& directory, Access access, Disk_StoreParams params, EngineLog& log,
                    Report& report);

// The same for what only the private structure can do: -1, reported, for another. `*result` is the command's then.
int OpenPrivateFileSet(std::string const& directory, Access access, Disk_StoreParams params, EngineLog& log,
                       Report& report, FileSet* set, int* result);
