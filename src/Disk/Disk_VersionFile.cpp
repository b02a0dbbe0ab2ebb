#include "Disk/Disk_VersionFile.h"

#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>

long Disk_ReadVersion(std::string const& path) {
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file) return -1;
  char bytes[4];
  if (Util_FileSystem::ReadAll(file.Get(), bytes, sizeof bytes) != sizeof bytes) {
    DISK_LOG(3, "GetFileVersion(): Can't read version from VERSION file.\n");
    return -1;
  }
  std::int32_t version = 0;
  Dicom_Copy(bytes, &version, 4, 1, Dicom_Endianity::Little);
  return version == 0 ? -1 : version;
}

int Disk_WriteVersion(std::string const& path, long version, bool standard) {
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_WRONLY | O_CREAT, 0664);
  if (!file) {
    if (standard && errno == ENOENT) {
      DISK_LOG(7, "SetFileVersion: Failed open the file version.\n");
      return 0;
    }
    DISK_LOG(3, "SetFileVersion(): Can't open VERSION file.\n");
    return -1;
  }
  auto const number = std::int32_t(version);
  char bytes[4];
  Dicom_Copy(&number, bytes, 4, 1, Dicom_Endianity::Little);
  if (Util_FileSystem::PwriteAll(file.Get(), bytes, sizeof bytes, 0) == 0) return 0;
  DISK_LOG(3, "GetFileVersion(): Can't write version to VERSION file.\n");
  return -1;
}
