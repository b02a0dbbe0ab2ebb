#pragma once
#include <string>

/// The VERSION file beside a directory file: 4 bytes, a signed number in little endian order.

constexpr long kNoVersion = -1, kUnknownVersion = -2;

/// The version; kNoVersion when there is none: no file, fewer than 4 bytes (logged), or 0; or kUnknownVersion when the
/// file can't be read, and errno tells why.
long Disk_ReadVersion(std::string const& path);
/// Writes it in place: the file is never empty on the way. 0, or -1 (logged). In the standard structure a missing
/// directory is no failure: an in-place store can leave a study or series without one.
int Disk_WriteVersion(std::string const& path, long version, bool standard);
