#include "Disk/standard/Disk_Redo.h"

#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_VersionFile.h"

#include <Disk/Disk_FileID.h>
#include <Disk/Disk_StorageStrategy.h>
#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <zlib.h>

namespace {

constexpr std::string_view kMagic = "DISKREDO";
constexpr std::uint32_t kFormat = 1;
constexpr std::size_t kNumber = 4;
constexpr std::uint64_t kMostBytes = 1u << 30; // far more than one operation writes

// The file: magic, format, counts of extents and versions; per extent offset, length, bytes; per version length and
// text of the directory, number; and the CRC-32 of all that. Numbers are of 32 bits, in little endian order.

void PutNumber(std::string& out, std::uint32_t number) {
  char bytes[kNumber];
  Dicom_Copy(&number, bytes, kNumber, 1, Dicom_Endianity::Little);
  out.append(bytes, kNumber);
}

void PutText(std::string& out, std::string_view text) {
  PutNumber(out, std::uint32_t(text.size()));
  out += text;
}

/// Takes numbers and texts off the front; once it has failed it stays so.
class Input {
public:
  explicit Input(std::string_view bytes) : bytes_(bytes) {}
  std::uint32_t Number() {
    std::uint32_t number = 0;
    std::string_view const bytes = Take(kNumber);
    if (ok_) Dicom_Copy(bytes.data(), &number, kNumber, 1, Dicom_Endianity::Little);
    return number;
  }
  std::string_view Text() { return Take(Number()); }
  std::string_view Take(std::size_t size) {
    ok_ = ok_ && size <= bytes_.size();
    if (!ok_) return {};
    std::string_view const taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }
  bool Ok() const { return ok_; }
  bool AtEnd() const { return ok_ && bytes_.empty(); }

private:
  std::string_view bytes_;
  bool ok_ = true;
};

std::uint32_t Checksum(std::string_view bytes) {
  return std::uint32_t(crc32_z(crc32_z(0, nullptr, 0), reinterpret_cast<Bytef const*>(bytes.data()), bytes.size()));
}

} // namespace

void Disk_Redo::MoveVersion(std::string_view directory, std::int32_t version) {
  versions_.push_back({std::string(directory), version});
}

void Disk_Redo::Clear() {
  extents_.Clear();
  versions_.clear();
}

std::string Disk_Redo::Encoded() const {
  std::string out(kMagic);
  PutNumber(out, kFormat);
  PutNumber(out, std::uint32_t(extents_.Size()));
  PutNumber(out, std::uint32_t(versions_.size()));
  for (auto const& [offset, bytes] : extents_) {
    PutNumber(out, std::uint32_t(offset));
    PutText(out, bytes);
  }
  for (Version const& version : versions_) {
    PutText(out, version.directory);
    PutNumber(out, std::uint32_t(version.number));
  }
  PutNumber(out, Checksum(out));
  return out;
}

bool Disk_Redo::decode(std::string_view bytes) {
  Clear();
  if (bytes.size() < kMagic.size() + kNumber || !bytes.starts_with(kMagic)) return false;
  std::string_view const checked = bytes.substr(0, bytes.size() - kNumber);
  if (Input(bytes.substr(checked.size())).Number() != Checksum(checked)) return false;
  Input input(checked.substr(kMagic.size()));
  if (input.Number() != kFormat) return false;
  std::uint32_t const extents = input.Number(), versions = input.Number();
  for (std::uint32_t i = 0; i < extents && input.Ok(); ++i) {
    std::uint32_t const offset = input.Number();
    extents_.Add(offset, input.Text());
  }
  for (std::uint32_t i = 0; i < versions && input.Ok(); ++i) {
    std::string const directory(input.Text());
    versions_.push_back({directory, std::int32_t(input.Number())});
  }
  if (input.AtEnd()) return true;
  Clear();
  return false;
}

Disk_Redo::Found Disk_Redo::Load(std::string const& path) {
  std::shared_ptr<Util_Buffer const> const file = Util_FileSystem::ReadWholeFile(path.c_str(), kMostBytes);
  if (!file) {
    Clear();
    return errno == ENOENT ? Found::None : Found::Unreadable;
  }
  if (file->size() == 0) {
    Clear();
    return Found::None;
  }
  return decode({file->data(), file->size()}) ? Found::Whole : Found::Torn;
}

bool Disk_Redo::Fits(std::int64_t size) const {
  for (auto const& [offset, bytes] : extents_) {
    if (std::int64_t(offset) > size) return false;
    size = std::max(size, std::int64_t(offset + bytes.size()));
  }
  return true;
}

int Disk_Redo::Apply(int fd, Util_Durability durability) const {
  for (auto const& [offset, bytes] : extents_)
    if (Util_FileSystem::PwriteAll(fd, bytes.data(), bytes.size(), off_t(offset)) == -1) return -1;
  return Util_FileSystem::SyncFile(fd, durability);
}

int Disk_Redo::Apply(Disk_StorageStrategy& strategy, Disk_Extents& written) const {
  std::uint64_t end = 0;
  for (auto const& [offset, bytes] : extents_)
    end = std::max(end, offset + bytes.size());
  if (end > std::numeric_limits<unsigned>::max() || !strategy.Reserve(unsigned(end))) {
    errno = ENOMEM;
    return -1;
  }
  for (auto const& [offset, bytes] : extents_) {
    if (strategy.LSeek(long(offset), 0) == -1) return -1;
    auto const size = unsigned(bytes.size());
    if (strategy.Write(bytes.data(), size) != int(size)) return -1;
    written.Add(std::uint32_t(offset), bytes);
  }
  return 0;
}

int Disk_Redo::MoveVersions(char const* file_set_prefix) const {
  for (Version const& version : versions_) {
    Disk_FileID id(file_set_prefix, Dicom_CS(version.directory), 0);
    std::string const path = id.AddComponent(Disk_Names::kVersion) == 0 ? id.Path() : std::string();
    if (path.empty() || Disk_WriteVersion(path, version.number, true) == -1) return -1;
  }
  return 0;
}

// The file

bool Disk_RedoFile::MayHoldRecord() {
  struct stat status {};
  bool const is_there = Util_FileSystemInterface::Current().Stat(path_.c_str(), &status) == 0;
  bool const is_absent = !is_there && errno == ENOENT;
  if (!is_there || status.st_ino != inode_) file_ = {};
  return is_there ? status.st_size > 0 : !is_absent;
}

/// What stands there and isn't a file of one name gives way: its bytes may be those of another.
int Disk_RedoFile::open() {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
  file_ = Util_FileSystem::Open(path_.c_str(), kFlags);
  struct stat status {};
  if (file_ && system.Fstat(file_.Get(), &status) == -1) return -1;
  bool const is_ours = file_ && S_ISREG(status.st_mode) && status.st_nlink == 1;
  if (!is_ours) {
    if (!file_ && errno != ELOOP && errno != ENXIO && errno != EACCES) return -1; // it may be another user's
    file_ = {};
    if (system.Unlink(path_.c_str()) == 0) file_ = Util_FileSystem::Open(path_.c_str(), kFlags | O_EXCL);
    if (!file_ || system.Fstat(file_.Get(), &status) == -1) return -1;
  }
  inode_ = status.st_ino;
  entry_lasts_ = false;
  return 0;
}

int Disk_RedoFile::Save(Disk_Redo const& redo, Util_Durability durability) {
  std::string const bytes = redo.Encoded();
  if (bytes.size() > kMostBytes) {
    errno = EFBIG; // nobody would read it
    return -1;
  }
  bool const is_open = file_ || open() == 0;
  bool const lasts =
      is_open && Util_FileSystem::PwriteAll(file_.Get(), bytes.data(), bytes.size(), 0) == 0 &&
      Util_FileSystem::SyncFile(file_.Get(), durability) == 0 &&
      (entry_lasts_ || Util_FileSystem::SyncDirectory(Disk_Names::FolderOf(path_).c_str(), durability) == 0);
  if (lasts) {
    entry_lasts_ = entry_lasts_ || durability == Util_Durability::Full;
    return 0;
  }
  int const cause = errno;
  if (is_open) Clear(); // nothing of it has been applied
  file_ = {};
  errno = cause;
  return -1;
}

void Disk_RedoFile::Clear() {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (system.Ftruncate(file_.Get(), 0) == -1) system.Unlink(path_.c_str());
}

int Disk_RedoFile::Forget() {
  file_ = {};
  if (Util_FileSystemInterface::Current().Unlink(path_.c_str()) == -1 && errno != ENOENT) return -1;
  return Util_FileSystem::SyncDirectory(Disk_Names::FolderOf(path_).c_str(), Util_Durability::Full);
}

void Disk_RedoFile::Remove() {
  if (file_ && !MayHoldRecord()) Util_FileSystemInterface::Current().Unlink(path_.c_str());
  file_ = {};
}
