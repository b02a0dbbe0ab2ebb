#pragma once
#include <Disk/Disk_FileID.h>
#include <dicom/IOD_Msg.h>
#include <infra/Disk_Export.h>
#include <infra/RWCString.h>
#include <infra/Util_FileSystem.h>

#include <string>
#include <string_view>
#include <vector>

/// A handle for asynchronous reading that callers pass along; nothing here looks at it.
class Disk_AsyncFile;
class Disk_Replacements;

/// A DICOM file of a file-set.
///
/// A write goes to the file's name with ".tmp" behind it, in the same directory, and is brought to its name by
/// rename: after a crash the file is the old or the new one. A ".tmp" file that a crash left has no meaning; the
/// next write replaces it. Two writers of one file are kept apart by the locks of their level.
class DISK_EXPORT Disk_File {
public:
  Disk_File(Disk_FileID const& id) : file_id(id) {}

  Disk_FileID const& GetFileID() const { return file_id; }
  char const* GetFileSetPrefix() const { return file_id.GetFileSetPrefix(); }

  /// Stamps `msg` with the program's version and writes it in `syntax`; the other three have no effect. 0 when the file
  /// stands under its name, with full durability also after a power cut; -1 otherwise, with error 211020 when the
  /// rename failed.
  [[nodiscard]] int Write(IOD_Msg* msg, Dicom_UI const& sop_class, Dicom_UI const& sop_instance, Dicom_UI const& syntax,
                          bool mode_three);
  /// Reads the file. On 0 `*found` tells whether it exists; if it is 1, `*msg` is a new message for the caller to
  /// delete. -1 with error 211004 for a name that can't be formed, -1 for a file that can't be read or decoded.
  [[nodiscard]] int Read(IOD_Msg** msg, int* found, int no_original_buffer, Disk_AsyncFile* async);
  /// Nothing has to be done: directories are made by those who name them. 0.
  static int CreateDirectoryIfNotPresent(char const* path);

protected:
  /// What a write brings to the disk before it returns. Unsynced: nothing, and the file bears the mark that tells
  /// whether it got there.
  enum class Synced { FileAndEntry, File, Nothing, Unsynced };
  /// A file that is synced waits for its name in `together`, if there is one, and for the others there.
  int read(IOD_Msg** msg, int* found, int no_original_buffer) const;
  int write(IOD_Msg* msg, Dicom_UI const& syntax, Synced synced, Disk_Replacements* together = nullptr);
  static Util_FileDescriptor new_content(std::string const& temporary, std::vector<std::string_view> parts,
                                         Synced synced);
  /// Logs errno. -1.
  static int cant_write(std::string const& temporary);
  static bool take_over(std::string const& temporary, std::string const& path);
  static int replace(std::string const& temporary, std::string const& path);
  /// A failed sync is logged; 0 or -1.
  static int sync_directory_of(std::string const& path, Util_Durability durability = Util_FileSystem::GetDurability());

  Disk_FileID file_id;

  RWCString get_filename_to_use(char const* file_name) const;

  friend class Disk_Replacements;
};
