#pragma once
#include <string>

/// What a second look for a missing file or folder shows.
enum class Disk_Sight { There, Gone, FolderGone, Unknown };

/// Looks again for what a call has reported as missing. The report may be false: the client of a network file system,
/// for instance, answers from memory until it opens the folder. Believing it would cost records, so this opens and
/// lists the folder. If the folder is missing too, it is looked for in the same way. With Unknown errno has the cause.
Disk_Sight Disk_LookAgain(std::string path);

inline bool Disk_IsGone(std::string const& path) {
  Disk_Sight const sight = Disk_LookAgain(path);
  return sight == Disk_Sight::Gone || sight == Disk_Sight::FolderGone;
}
