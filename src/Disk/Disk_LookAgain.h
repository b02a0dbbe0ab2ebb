#pragma once
#include <string>

/// What a second look at something shows that a call has found missing.
enum class Disk_Sight { There, Gone, FolderGone, Unknown };

/// One call may say falsely that there is no such file: the client of a network file system, for instance, which
/// answers from memory until it opens the folder. What is gone takes its records with it. So before that is believed,
/// the folder is opened and listed; and where that isn't there, it is looked for in the same way. With Unknown the
/// cause is in errno.
Disk_Sight Disk_LookAgain(std::string path);

inline bool Disk_IsGone(std::string const& path) {
  Disk_Sight const sight = Disk_LookAgain(path);
  return sight == Disk_Sight::Gone || sight == Disk_Sight::FolderGone;
}
