// Replaces several files at once. All contents are written before the first one is synced, because a disk finishes many
// pending writes faster together than one after the other.
#include "Disk/files/Disk_Replacements.h"

#include <Disk/Disk_File.h>

void Disk_Replacements::Add(Util_FileDescriptor content, std::string temporary, std::string path, bool sync_entry) {
  files_.push_back({std::move(content), std::move(temporary), std::move(path), sync_entry, nullptr});
}

int Disk_Replacements::Finish() {
  for (File& file : files_)
    if (Util_FileSystem::SyncFile(file.content.Get(), Util_Durability::Full) == -1 || file.content.Close() == -1)
      return Disk_File::cant_write(file.temporary);
  for (File const& file : files_) {
    if (Disk_File::replace(file.temporary, file.path) == -1) return -1;
    if (file.sync_entry && Disk_File::sync_directory_of(file.path, Util_Durability::Full) == -1) return -1;
    if (file.done && file.done() == -1) return -1;
  }
  return 0;
}
