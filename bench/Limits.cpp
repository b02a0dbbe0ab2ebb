#include "Limits.h"

#include "Bench.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/uio.h>

namespace fs = std::filesystem;

namespace Bench {

namespace {

void WriteFile(std::string const& path, void const* bytes, std::size_t size, bool durable) {
  int const fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0664);
  Require(fd != -1 && write(fd, bytes, size) == ssize_t(size), "writing " + path);
  if (durable) Require(fdatasync(fd) == 0, "syncing " + path);
  close(fd);
}

void Replace(std::string const& path, void const* bytes, std::size_t size, bool durable) {
  std::string const temporary = path + ".tmp";
  WriteFile(temporary, bytes, size, durable);
  Require(rename(temporary.c_str(), path.c_str()) == 0, "renaming " + path);
}

} // namespace

std::string Bytes(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  Require(bool(file), "reading " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void SyncFolder(std::string const& path) {
  int const fd = open(path.c_str(), O_RDONLY | O_DIRECTORY);
  Require(fd != -1 && fsync(fd) == 0, "syncing " + path);
  close(fd);
}

PrivateLimit::PrivateLimit(std::string const& set, std::string const& object)
    : root_folder_(set), study_folder_(fs::path(object).parent_path().parent_path()),
      series_folder_(fs::path(object).parent_path()), object_(Bytes(object)),
      series_(Bytes(series_folder_ + "/DIRFILE")), study_(Bytes(study_folder_ + "/DIRFILE")),
      root_(Bytes(set + "/DICOMDIR")) {}

PrivateLimit::PrivateLimit(std::string const& base, std::string const& set, std::string const& object)
    : PrivateLimit(set, object) {
  root_folder_ = base + "/limit";
  study_folder_ = root_folder_ + "/STUDY";
  series_folder_ = study_folder_ + "/SERIES";
  fs::create_directories(series_folder_);
}

void PrivateLimit::write(double series_part, double study_part, double root_part, bool durable) {
  auto const part = [](std::string const& bytes, double of) { return std::size_t(double(bytes.size()) * of); };
  Replace(series_folder_ + "/L" + std::to_string(++number_), object_.data(), object_.size(), durable);
  Replace(series_folder_ + "/LIMIT", series_.data(), part(series_, series_part), durable);
  if (durable) SyncFolder(series_folder_);
  Replace(study_folder_ + "/LIMIT", study_.data(), part(study_, study_part), durable);
  if (durable) SyncFolder(study_folder_);
  Replace(root_folder_ + "/LIMIT", root_.data(), part(root_, root_part), durable);
  if (durable) SyncFolder(root_folder_);
}

StandardLimit::StandardLimit(std::string const& set, std::string const& object, std::size_t redo,
                             std::vector<Extent> changed)
    : folder_(set), series_folder_(fs::path(object).parent_path()), object_(Bytes(object)), redo_(redo),
      changed_(std::move(changed)) {
  std::size_t most = redo;
  for (Extent const& extent : changed_)
    most = std::max(most, extent.size);
  bytes_.assign(most, 'x');
  dicomdir_ = open((folder_ + "/LIMIT").c_str(), O_RDWR | O_CREAT, 0664);
  Require(dicomdir_ != -1, "making a DICOMDIR");
  for (Extent const& extent : changed_) // so that it has its length, and only what is new to it makes it longer
    Require(ftruncate(dicomdir_, off_t(std::max<std::size_t>(extent.offset, 1))) == 0, "making a DICOMDIR");
}

StandardLimit::~StandardLimit() { close(dicomdir_); }

void StandardLimit::Write(bool durable) {
  Replace(series_folder_ + "/L" + std::to_string(++number_), object_.data(), object_.size(), durable);
  if (durable) SyncFolder(series_folder_);
  WriteFile(folder_ + "/LIMIT.redo", bytes_.data(), redo_, durable);
  if (durable) SyncFolder(folder_);
  for (Extent& extent : changed_) {
    Require(pwrite(dicomdir_, bytes_.data(), extent.size, off_t(extent.offset)) == ssize_t(extent.size), "writing");
    if (&extent == &changed_.back()) extent.offset += extent.size; // the new record; the next one follows it
  }
  if (durable) Require(fdatasync(dicomdir_) == 0, "syncing");
}

} // namespace Bench
