#pragma once
#include "infra/Klb_Failure.h"

#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <string>

/// What deletes share. A file or directory that can't be removed is logged with `text`, which takes its path and errno,
/// and never stops a delete.

inline int Disk_CantRemove(std::string const& path, int level, char const* text) {
  DISK_LOG(level, text, path.c_str(), errno);
  if (errno != ENOENT) Klb_PassOver(Klb_System(errno, "delete", path));
  return -1;
}

inline int Disk_RemoveFile(std::string const& path, int level, char const* text) {
  int const result = path.empty() ? -1 : Util_FileSystemInterface::Current().Unlink(path.c_str());
  return result == 0 ? 0 : Disk_CantRemove(path, level, text);
}

inline int Disk_RemoveDirectory(std::string const& path, int level, char const* text) {
  int const result = Util_FileSystemInterface::Current().Rmdir(path.c_str());
  return result == 0 ? 0 : Disk_CantRemove(path, level, text);
}

/// A counter that an interrupted store left below the number of records is raised to it: what it leads to removing
/// must not take with it what was acknowledged.
inline int Disk_Raised(int count, int records, char const* what) {
  if (count >= records) return count;
  DISK_LOG(4, "Delete: the counter of a %s was %d, but there are %d records.\n", what, count, records);
  return records;
}
