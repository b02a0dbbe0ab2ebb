#pragma once
#include <string>
#include <string_view>

/// The names of what a file-set consists of, beside the folders and objects that records name, and the parts of paths.
struct Disk_Names {
  static constexpr char kDicomdir[] = "DICOMDIR"; // the root's directory file
  static constexpr char kDicomdirOfMedia[] = "dicomdir";
  static constexpr char kDirectoryFile[] = "DIRFILE"; // of a study or series
  static constexpr char kVersion[] = "VERSION";       // beside a directory file
  static constexpr char kLockFile[] = "LOCKFILE";
  static constexpr char kRelaxed[] = "RELAXED"; // the folder of what relaxed operations keep
  static constexpr char kBoot[] = "BOOT";       // in it

  // behind the name of a file
  static constexpr char kTemporary[] = ".tmp";  // its next content
  static constexpr char kRedo[] = ".redo";      // the redo record of a standard DICOMDIR
  static constexpr char kUnfinished[] = ".new"; // of a copy in RELAXED

  static std::string In(std::string const& folder, std::string_view name) { return (folder + "/").append(name); }
  static bool IsTemporary(std::string_view path) { return path.ends_with(kTemporary); }
  /// Without its last component; a path of one component stays as it is.
  static std::string FolderOf(std::string const& path) { return path.substr(0, path.rfind('/')); }
  /// Its last component.
  static std::string NameOf(std::string const& path) { return path.substr(path.rfind('/') + 1); }
};
