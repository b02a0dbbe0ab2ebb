#pragma once
#include <string>

/// The VERSION file beside a directory file: 4 bytes, a signed number in little endian order. It is written in place,
/// so it is never empty on the way; what stands behind the 4 bytes is cut off.

constexpr long kNoVersion = -1, kUnknownVersion = -2;

/// The version; kNoVersion when there is none: no file, fewer than 4 bytes (logged), or 0; or kUnknownVersion when the
/// file can't be read, and errno tells why. An empty path, logged, stands for a file without a folder.
long Disk_ReadVersion(std::string const& path);
/// The version that the next write has: one more than what stands there now. 0, or -1 (logged).
int Disk_NextVersion(std::string const& path, long* next);
/// Writes a version. 0, or -1 (logged). A missing directory is no failure with
/// `may_lack_folder`: in the standard structure an in-place store can leave a study or series without one.
int Disk_WriteVersion(std::string const& path, long version, bool may_lack_folder);
/// Both in one opening.
int Disk_CountVersion(std::string const& path, bool may_lack_folder, long* next);
