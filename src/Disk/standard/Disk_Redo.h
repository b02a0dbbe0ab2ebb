#pragma once
#include "Disk/standard/Disk_Extents.h"

#include <infra/Util_FileSystem.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Disk_StorageStrategy;

/// What one operation writes to a standard DICOMDIR: bytes and their places, and the VERSION files that move with
/// them.
///
/// A killed process must leave neither half of a record nor half of a chain. So all writes of an operation are
/// gathered; then they go, with a checksum, to a small file beside the DICOMDIR, and only then into the DICOMDIR.
/// Whoever takes the file-set's lock and finds content in that file writes it again, which changes nothing that is
/// there already. What isn't whole never had any effect and has none.
class Disk_Redo {
public:
  void Add(std::uint32_t offset, std::string_view bytes) { extents_.Add(offset, bytes); }
  /// `directory` is the ID of the directory, empty for the file-set's own, whose VERSION becomes `version`.
  void MoveVersion(std::string_view directory, std::int32_t version);
  bool IsEmpty() const { return extents_.IsEmpty() && versions_.empty(); }
  void Clear();
  Disk_Extents const& Extents() const { return extents_; }

  std::string Encoded() const;
  enum class Found { None, Torn, Whole, Unreadable };
  /// Reads a record. None: there is no file, or nothing in it. Torn: what stands there has no meaning. Unreadable:
  /// errno tells why.
  Found Load(std::string const& path);

  /// Whether the extents leave no hole in a file of that size. One that they were made for has none.
  bool Fits(std::int64_t size) const;
  /// Writes the extents to the descriptor and syncs it. 0, or -1 with errno.
  int Apply(int fd, Util_Durability durability) const;
  /// Writes the extents through a strategy, and notes in `written` those that it took. 0, or -1.
  int Apply(Disk_StorageStrategy& strategy, Disk_Extents& written) const;
  /// Moves the VERSION files below the prefix. 0, or -1 (logged).
  int MoveVersions(char const* file_set_prefix) const;

  friend bool operator==(Disk_Redo const&, Disk_Redo const&) = default;

private:
  struct Version {
    std::string directory;
    std::int32_t number;
    friend bool operator==(Version const&, Version const&) = default;
  };
  bool decode(std::string_view bytes);

  Disk_Extents extents_;
  std::vector<Version> versions_;
};

/// The file of the records: empty, but while an operation writes what is in it. It stays from one operation to the
/// next, as making one anew costs more than all else that is done with it.
class Disk_RedoFile {
public:
  explicit Disk_RedoFile(std::string path) : path_(std::move(path)) {}

  std::string const& Path() const { return path_; }
  bool IsOpen() const { return bool(file_); }
  /// Whether there may be a record; also when that can't be told. The caller holds the file-set's lock.
  bool MayHoldRecord();
  /// Writes a record and syncs it. 0; or -1 with errno, and then it has no effect.
  int Save(Disk_Redo const& redo, Util_Durability durability);
  /// What is in it has been done. If it stays, whoever comes next does the same again.
  void Clear();
  /// Removes the file, for good: no power cut brings it back. 0, or -1 with errno.
  int Forget();
  /// Closes the file, and removes it if no record is in it. The caller holds the file-set's lock.
  void Remove();

private:
  int open();

  std::string path_;
  Util_FileDescriptor file_;
  std::uint64_t inode_ = 0;
  bool entry_lasts_ = false;
};
