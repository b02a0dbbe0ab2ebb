// Opening a file-set: finds out what stands in the directory, and says why it can't be used.
#pragma once

#include <Disk/Disk_RootDirectoryFile.h>
#include <memory>
#include <string>

class Report;

enum class Structure {
  None,    // no DICOMDIR: a file-set to be, or a directory that isn't one
  Private, // this system's own, one directory file per level
  Standard // one DICOMDIR, as on exchange media
};

enum class Access {
  Read,     // nothing is written
  Visit,    // reading that notes the access date, if the file-set can be written
  Change,   // writes to a file-set that exists
  Make,     // makes a file-set in a folder that doesn't exist or is empty
  MakeAmong // makes a file-set in any folder
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

// Finds out what stands in a directory. It is a problem if there is no DICOMDIR. It is one too if the DICOMDIR can't be
// understood; the structure is then guessed from what stands beside it.
FoundFileSet RecogniseFileSet(std::string const& directory);

// The same for an access that may make a file-set. It makes the directory if that doesn't exist. That there is no
// file-set is a problem only if a new one would hide or claim what stands in the directory.
FoundFileSet FindFileSet(std::string const& directory, Access access, bool standard);

// Whether `path` is the directory or below it. It needn't exist; symbolic links are followed.
bool IsInside(std::string const& path, std::string const& directory);

// Whether files of the file-set may be copied to `folder`. A folder inside the file-set may not, which is reported.
bool MayReceive(std::string const& folder, std::string const& directory, Report& report);

FileSet OpenFileSet(std::string const& directory, Access access, Disk_StoreParams params, Report& report);

// The same for a command of the private structure alone. 0; or -1 (reported), and `*result` is the command's Exit.
int OpenPrivateFileSet(std::string const& directory, Access access, Disk_StoreParams params, Report& report,
                       FileSet* set, int* result);
