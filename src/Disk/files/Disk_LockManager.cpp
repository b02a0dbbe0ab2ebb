// A lock on the LOCKFILE of a folder.
#include <Disk/Disk_LockManager.h>

#include "Disk/files/Disk_Names.h"
#include "infra/Klb_Failure.h"

int Disk_LockManager::Init(char const* directory, int read_only) {
  std::string const folder = directory ? std::string(directory) + "/" : std::string();
  std::string const file = folder + Disk_Names::kLockFile;
  if (Klb_LockFile::Init(folder.c_str(), file.c_str(), read_only) == 0) return 0;
  return DISK_FAIL("Init: Cannot open %s\n", file.c_str());
}
