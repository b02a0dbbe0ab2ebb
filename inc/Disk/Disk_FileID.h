#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

#include <optional>
#include <string>
#include <string_view>

/// The name of a file of a file-set in its two forms: the multi-valued code string that a record stores as its
/// Referenced File ID, and a path below the file-set's prefix.
///
///     Disk_FileID id("/data/set", Dicom_CS("SA100000\\DIRFILE"), 0);
///     id.Path()   // "/data/set/SA100000/DIRFILE"
///
/// This is the one place where an ID becomes a path. No path is formed for a component that is `.` or `..` or holds
/// a `/` or a NUL, nor beyond 511 characters; so no ID names a file outside of the prefix.
class DISK_EXPORT Disk_FileID {
public:
  static constexpr std::size_t kPathSize = 512; ///< of a path with its closing NUL

  /// Without value; only fit to be assigned to.
  Disk_FileID() = default;
  /// Takes the components as they are. A null prefix counts as an empty one.
  Disk_FileID(char const* prefix, Dicom_CS const& value, int lower);
  /// Takes a full path apart that begins with the prefix and a separator. That it does isn't checked, the caller sees
  /// to it. `*status` is 0, or -1 with error 211004 when nothing is left behind the prefix; the ID has no components
  /// then.
  Disk_FileID(char const* prefix, char const* file_name, int* status, int lower);

  /// The path as a new string of 512 bytes, for the caller to free with delete[]; null when it can't be formed.
  operator char*() const;
  /// The path of a file or folder below the prefix; empty when it can't be formed, or no component is left.
  std::string Path() const;
  /// The same for what may be the prefix itself, which an ID without components then is.
  std::string FolderPath() const;

  /// 0, or -1 when the result is no code string.
  [[nodiscard]] int AddComponent(char const* component);
  /// 0, also when there was one component or none, which leaves the ID empty.
  int RemoveLastComponent();

  /// A copy of the code string, for storing in a record.
  Dicom_CS GetID() const { return id; }
  /// Its text, without a copy.
  std::string_view View() const { return id.View(); }
  /// The prefix; null in a default-constructed ID.
  char const* GetFileSetPrefix() const { return file_set_prefix ? file_set_prefix->c_str() : nullptr; }
  friend bool operator==(Disk_FileID const& a, Disk_FileID const& b) {
    return a.id == b.id && a.lowercase == b.lowercase && a.file_set_prefix == b.file_set_prefix;
  }

private:
  Dicom_CS id;
  int lowercase = 0; // components are lower-cased in the path
  std::optional<std::string> file_set_prefix;
};
