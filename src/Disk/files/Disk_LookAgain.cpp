// Looks for a file or folder by listing the folder above it, since a single call may say falsely that it is missing.
#include "Disk/files/Disk_LookAgain.h"

#include "Disk/files/Disk_Names.h"

#include <infra/Util_FileSystemInterface.h>

#include <algorithm>
#include <cerrno>

Disk_Sight Disk_LookAgain(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  std::string const name = Disk_Names::NameOf(path), above_it = Disk_Names::FolderOf(path);
  std::string const folder = name == path ? "." : above_it.empty() ? "/" : above_it;
  std::vector<Util_FileSystemInterface::Entry> entries;
  auto const list = [&] { return Util_FileSystemInterface::Current().List(folder.c_str(), entries) == 0; };
  if (!list()) {
    if (errno != ENOENT || folder == "." || folder == "/") return Disk_Sight::Unknown;
    Disk_Sight const above = Disk_LookAgain(folder);
    if (above == Disk_Sight::Gone || above == Disk_Sight::FolderGone) return Disk_Sight::FolderGone;
    if (above == Disk_Sight::Unknown || !list()) return Disk_Sight::Unknown;
  }
  bool const is_there =
      std::any_of(entries.begin(), entries.end(), [&](auto const& entry) { return entry.name == name; });
  return is_there ? Disk_Sight::There : Disk_Sight::Gone;
}
