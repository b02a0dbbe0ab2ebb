// Looks for a file or folder by listing the folder above it, since a single call may say falsely that it is missing.
#include "Disk/Disk_LookAgain.h"

#include <infra/Util_FileSystemInterface.h>

#include <algorithm>
#include <cerrno>

Disk_Sight Disk_LookAgain(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  std::size_t const slash = path.rfind('/');
  std::string const name = path.substr(slash + 1); // npos + 1 is 0
  std::string const folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
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
