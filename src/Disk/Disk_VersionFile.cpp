#include "Disk/Disk_VersionFile.h"

#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>

namespace {

int Failed(char const* text, std::string const& path) {
  int const cause = errno;
  DISK_LOG_TEXT(3, text);
  DISK_LOG(3, "SetFileVersion(): %s (errno=%d).\n", path.c_str(), cause);
  KlbGError.SetSystem(cause);
  return -1;
}

} // namespace

long Disk_ReadVersion(std::string const& path) {
  if (path.empty()) {
    DISK_LOG(3, "GetFileVersion(): Can't remove last component from file id.\n");
    return kNoVersion;
  }
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file) return errno == ENOENT ? kNoVersion : kUnknownVersion;
  char bytes[4];
  ssize_t const count = Util_FileSystem::ReadAll(file.Get(), bytes, sizeof bytes);
  if (count != sizeof bytes) {
    int const cause = errno;
    DISK_LOG(3, "GetFileVersion(): Can't read version from VERSION file.\n");
    errno = cause;
    return count == -1 ? kUnknownVersion : kNoVersion;
  }
  std::int32_t version = 0;
  Dicom_Copy(bytes, &version, 4, 1, Dicom_Endianity::Little);
  return version <= 0 ? kNoVersion : version;
}

int Disk_WriteVersion(std::string const& path, long version, bool standard) {
  if (path.empty()) {
    DISK_LOG(3, "SetFileVersion(): Can't remove last component from file id.\n");
    return -1;
  }
  // Neither a link nor a pipe that stands at the name gets our bytes or makes us wait.
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), kFlags, 0664);
  if (!file) {
    if (standard && errno == ENOENT) {
      DISK_LOG(7, "SetFileVersion: Failed open the file version.\n");
      return 0;
    }
    return Failed("SetFileVersion(): Can't open VERSION file.\n", path);
  }
  auto const number = std::int32_t(version);
  char bytes[4];
  Dicom_Copy(&number, bytes, 4, 1, Dicom_Endianity::Little);
  if (Util_FileSystem::PwriteAll(file.Get(), bytes, sizeof bytes, 0) == 0) return 0;
  return Failed("GetFileVersion(): Can't write version to VERSION file.\n", path);
}
