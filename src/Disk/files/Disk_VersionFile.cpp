#include "Disk/files/Disk_VersionFile.h"
#include "infra/Klb_Failure.h"

#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Klb_GError.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <limits>

namespace {

constexpr std::size_t kSize = 4;
// Neither a link nor a pipe that stands at the name gets our bytes or makes us wait.
constexpr int kSafe = O_NOFOLLOW | O_NONBLOCK;

int Failed(char const* text, std::string const& path) {
  int const cause = errno;
  DISK_LOG_TEXT(3, text);
  return DISK_FAIL(Klb_System(cause, "write", path), "SetFileVersion(): %s (errno=%d).\n", path.c_str(), cause);
}

/// `count` of `bytes` were read from the start of the file; -1 stands for a failure.
long VersionIn(char const* bytes, ssize_t count) {
  if (count < ssize_t(kSize)) {
    int const cause = errno;
    DISK_LOG(3, "GetFileVersion(): Can't read version from VERSION file.\n");
    errno = cause;
    return count == -1 ? kUnknownVersion : kNoVersion;
  }
  std::int32_t version = 0;
  Dicom_Copy(bytes, &version, 4, 1, Dicom_Endianity::Little);
  return version <= 0 ? kNoVersion : version;
}

/// Counting from 1 again where the version can't be read would let others take old records for current.
int After(long version, std::string const& path, long* next) {
  if (version == kUnknownVersion) {
    int const cause = errno;
    return DISK_FAIL(Klb_System(cause, "read", path), "UpdateFileVersion: Can't read %s (errno=%d).\n", path.c_str(),
                     cause);
  }
  bool const begins = version == kNoVersion || version == std::numeric_limits<std::int32_t>::max();
  *next = begins ? 1 : version + 1;
  return 0;
}

/// Reads the version from the open file, and cuts what stands behind it.
long ReadAndCut(int fd) {
  char bytes[kSize + 1];
  ssize_t count = 0;
  do
    count = Util_FileSystemInterface::Current().Pread(fd, bytes, sizeof bytes, 0);
  while (count == -1 && errno == EINTR);
  if (count > ssize_t(kSize) && Util_FileSystemInterface::Current().Ftruncate(fd, kSize) == -1) return kUnknownVersion;
  return VersionIn(bytes, count);
}

int Write(int fd, long version, std::string const& path) {
  auto const number = std::int32_t(version);
  char bytes[kSize];
  Dicom_Copy(&number, bytes, 4, 1, Dicom_Endianity::Little);
  if (Util_FileSystem::PwriteAll(fd, bytes, sizeof bytes, 0) == 0) return 0;
  return Failed("GetFileVersion(): Can't write version to VERSION file.\n", path);
}

int CantOpen(std::string const& path, bool may_lack_folder) {
  if (path.empty()) return DISK_FAIL("SetFileVersion(): Can't remove last component from file id.\n");
  if (may_lack_folder && errno == ENOENT) {
    DISK_LOG(7, "SetFileVersion: Failed open the file version.\n");
    return 0;
  }
  return Failed("SetFileVersion(): Can't open VERSION file.\n", path);
}

} // namespace

long Disk_ReadVersion(std::string const& path) {
  if (path.empty()) {
    DISK_LOG(3, "GetFileVersion(): Can't remove last component from file id.\n");
    return kNoVersion;
  }
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file) return errno == ENOENT ? kNoVersion : kUnknownVersion;
  char bytes[kSize];
  return VersionIn(bytes, Util_FileSystem::ReadAll(file.Get(), bytes, sizeof bytes));
}

int Disk_NextVersion(std::string const& path, long* next) {
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDWR | kSafe);
  if (file) return After(ReadAndCut(file.Get()), path, next);
  return After(path.empty() || errno == ENOENT ? kNoVersion : kUnknownVersion, path, next);
}

int Disk_WriteVersion(std::string const& path, long version, bool may_lack_folder) {
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_WRONLY | O_CREAT | kSafe, 0664);
  return file ? Write(file.Get(), version, path) : CantOpen(path, may_lack_folder);
}

int Disk_CountVersion(std::string const& path, bool may_lack_folder, long* next) {
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDWR | kSafe);
  if (file) return After(ReadAndCut(file.Get()), path, next) == -1 ? -1 : Write(file.Get(), *next, path);
  if (errno != ENOENT) return CantOpen(path, may_lack_folder);
  *next = 1;
  return Disk_WriteVersion(path, *next, may_lack_folder);
}
