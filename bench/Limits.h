// What the machine takes for the same bytes, written by a bare program.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Bench {

/// A private store: an object and the three directory files that lead to it, each written under a temporary name and
/// renamed. Durable: synced before its renaming, and then each of the three folders once.
class PrivateLimit {
public:
  /// The directory files are of the sizes that they have now in the file-set at `set` on the way to the object at
  /// `object`, which the limit writes too. It writes to a folder of its own below `base`.
  PrivateLimit(std::string const& base, std::string const& set, std::string const& object);
  /// It writes to the same folders of the file-set, under other names: what was stored before, and how many files there
  /// are, makes the file system slower for both.
  PrivateLimit(std::string const& set, std::string const& object);
  void Write(bool durable) { write(1, 1, 1, durable); }
  /// With the beginnings of the directory files of series, study and root, as when they held fewer records.
  void WriteGrown(double series, double study, double root) { write(series, study, root, false); }

private:
  void write(double series, double study, double root, bool durable);
  std::string root_folder_, study_folder_, series_folder_;
  std::string object_, series_, study_, root_; // bytes
  int number_ = 0;
};

/// A standard store: the object as above, the redo record, and the changed bytes of the DICOMDIR, written in place. It
/// writes to the folders of the file-set at `set` and of the object at `object`, under other names.
/// Durable: object, its folder, redo record, the folder of the DICOMDIR, DICOMDIR, one after the other.
class StandardLimit {
public:
  struct Extent {
    std::size_t offset, size;
  };
  StandardLimit(std::string const& set, std::string const& object, std::size_t redo, std::vector<Extent> changed);
  ~StandardLimit();
  StandardLimit(StandardLimit const&) = delete;
  StandardLimit& operator=(StandardLimit const&) = delete;
  void Write(bool durable);

private:
  std::string folder_, series_folder_, object_, bytes_;
  std::size_t redo_;
  std::vector<Extent> changed_;
  int dicomdir_, number_ = 0;
};

std::string Bytes(std::string const& path);
void SyncFolder(std::string const& path);

} // namespace Bench
