// Questions about the space that a directory tree takes and that its file system has. The unit KB is 1024
// bytes.
#pragma once
#include <infra/Disk_Export.h>
#include <infra/RWWString.h>

class DISK_EXPORT Klb_FileSystemUtils {
public:
  /// The sum of the sizes of all regular files at and below `path`, rounded up to whole KB. Symbolic links in
  /// the tree are neither followed nor counted; what vanishes during the walk isn't counted, a subdirectory
  /// that can't be read is logged and not counted. What was measured of a folder is remembered for as long as
  /// the folder's own change time proves it: so asking again costs a call per folder, not per file. Exact for all
  /// that this library has completed; files that others change in their place may be missed. -1, with errno, when
  /// `path` itself can't be read.
  static long GetDirSize(char const* path);
  static long GetDirSize(RWWString const& path);

  /// Size of the file system that holds `path`, and what of it an ordinary user may still fill, in KB. 0, or
  /// -1 with errno and both results untouched.
  [[nodiscard]] static int FindDiskSizes(char const* path, long* total_kb, long* free_kb);
  /// The same for numbers that saturate at 4 TB.
  [[nodiscard]] static int FindDiskSizes(RWWString const& path, unsigned* total_kb, unsigned* free_kb);

  /// The same free space in bytes.
  [[nodiscard]] static int GetFreeSpace(char const* path, double* bytes);
};
