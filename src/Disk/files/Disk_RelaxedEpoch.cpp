#include "Disk/files/Disk_RelaxedEpoch.h"

#include "Disk/files/Disk_LookAgain.h"
#include "infra/Klb_Failure.h"

#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::string_view kMagic = "DISK UNSYNCED 2\n";
constexpr auto kFull = Util_Durability::Full;

Util_FileSystemInterface& System() { return Util_FileSystemInterface::Current(); }

bool Exists(std::string const& path) { return System().Access(path.c_str(), F_OK) == 0; }

std::string ContentOf(std::string const& boot) {
  std::shared_ptr<Util_Buffer const> const file = Util_FileSystem::ReadWholeFile(boot.c_str(), 256);
  return file ? std::string(file->data(), file->size()) : std::string();
}

std::string FolderIn(std::string const& prefix) { return Disk_Names::In(prefix, Disk_Names::kRelaxed); }

/// Of a directory file of the private structure: named by its ID, which holds no `/` if it makes a path. Empty if not.
std::string CopyOf(Disk_FileID const& id) {
  return id.Path().empty() ? std::string() : FolderIn(id.GetFileSetPrefix()) + "/" + id.GetID().GetText();
}

std::string CopyOf(std::string const& dicomdir) {
  return Disk_Names::In(FolderIn(Disk_Names::FolderOf(dicomdir)), Disk_Names::NameOf(dicomdir));
}

/// 1 if the folder is there. 0 with ENOENT if nothing is, or with ENOTDIR if a file or a link is. -1 with errno.
int IsFolder(std::string const& path) {
  struct stat status {};
  if (System().Lstat(path.c_str(), &status) == -1) return errno == ENOENT ? 0 : -1;
  if (S_ISDIR(status.st_mode)) return 1;
  errno = ENOTDIR;
  return 0;
}

int ForgetCopy(std::string const& copy) {
  if (copy.empty()) return 0;
  int const folder = IsFolder(Disk_Names::FolderOf(copy));
  if (folder != 1) return folder;
  return System().Unlink(copy.c_str()) == 0 || errno == ENOENT ? 0 : -1;
}

/// What stands at `to` already is removed, never emptied: a link left there has the bytes of the file itself.
int CopyFile(std::string const& from, std::string const& to) {
  Util_FileDescriptor const source = Util_FileSystem::Open(from.c_str(), O_RDONLY | O_NONBLOCK);
  if (!source || (System().Unlink(to.c_str()) == -1 && errno != ENOENT)) return -1;
  Util_FileDescriptor target = Util_FileSystem::Open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
  if (!target) return -1;
  std::vector<char> block(1 << 20);
  for (;;) {
    ssize_t const count = Util_FileSystem::ReadAll(source.Get(), block.data(), block.size());
    if (count == -1 || Util_FileSystem::WriteAll(target.Get(), block.data(), std::size_t(count)) == -1) return -1;
    if (std::size_t(count) < block.size()) break;
  }
  return Util_FileSystem::SyncFile(target.Get(), kFull) == -1 ? -1 : target.Close();
}

/// The copy lasts before it gets the name that says so: under `.new` recovery takes it as well, and the next writer,
/// who can't know whether it lasts, makes it anew.
int Establish(std::string const& unfinished, std::string const& copy) {
  if (Util_FileSystem::SyncDirectory(Disk_Names::FolderOf(copy).c_str(), kFull) == -1) return -1;
  return System().Rename(unfinished.c_str(), copy.c_str());
}

/// Over four columns of words, as one alone would wait for each of its multiplications. However the bytes are cut into
/// parts, they have the same sum.
class Checksum {
public:
  void Add(std::string_view bytes) {
    length_ += bytes.size();
    if (held_ > 0) {
      std::size_t const count = std::min(bytes.size(), sizeof words_ - held_);
      std::memcpy(reinterpret_cast<char*>(words_) + held_, bytes.data(), count);
      bytes.remove_prefix(count);
      if ((held_ += count) < sizeof words_) return;
      mix();
    }
    for (; bytes.size() >= sizeof words_; bytes.remove_prefix(sizeof words_)) {
      std::memcpy(words_, bytes.data(), sizeof words_);
      mix();
    }
    std::memcpy(words_, bytes.data(), held_ = bytes.size());
  }
  std::uint64_t Length() const { return length_; }
  std::uint64_t Sum() {
    std::memset(reinterpret_cast<char*>(words_) + held_, 0, sizeof words_ - held_);
    mix();
    std::uint64_t sum = length_;
    for (std::uint64_t const column : columns_)
      sum = mixed(sum, column);
    return sum;
  }

private:
  static std::uint64_t mixed(std::uint64_t sum, std::uint64_t word) {
    sum = (sum ^ word) * 0x9E3779B97F4A7C15u;
    return sum ^ sum >> 29;
  }
  void mix() {
    for (int i = 0; i < 4; ++i)
      columns_[i] = mixed(columns_[i], words_[i]);
  }

  std::uint64_t columns_[4] = {1, 2, 3, 4}, words_[4] = {}, length_ = 0;
  std::size_t held_ = 0; // bytes of words_ that wait for the rest
};

} // namespace

Disk_RelaxedEpoch::Disk_RelaxedEpoch(std::string prefix, std::string structure, Recovery recover)
    : prefix_(std::move(prefix)), structure_(std::move(structure)), recover_(recover) {}

std::string const& Disk_RelaxedEpoch::content() {
  if (boot_.empty()) boot_ = boot_id(); // it doesn't change for as long as we run
  return content_ = boot_ + "\n" + structure_ + "\n";
}

std::string Disk_RelaxedEpoch::boot_id() {
  char text[36] = {};
  Util_FileDescriptor const file = Util_FileSystem::Open("/proc/sys/kernel/random/boot_id", O_RDONLY);
  ssize_t const count = file ? Util_FileSystem::ReadAll(file.Get(), text, sizeof text) : 0;
  return std::string(text, std::size_t(std::max<ssize_t>(count, 0)));
}

int Disk_RelaxedEpoch::LockShared() {
  constexpr int kMostTries = 100; // as others may end the epoch again and again
  std::string const folder = FolderIn(prefix_), boot = Disk_Names::In(folder, Disk_Names::kBoot);
  std::string const& wanted = content();
  Klb_Attempt const attempt;
  for (int i = 0; i < kMostTries; ++i) {
    attempt.Forget();
    if (!initialised_ || !Exists(boot)) {
      if (Util_FileSystem::MakeDirectory(folder.c_str()) == -1) return -1;
      int const open = IsOpen(prefix_);
      if (open == 0 && errno == ENOENT) continue; // another ended the epoch
      if (open != 1) return -1;                   // a link leads elsewhere
      initialised_ = lock_.Init(folder.c_str(), boot.c_str(), 0) == 0;
      if (!initialised_ && errno != ENOENT) return -1;
      if (!initialised_) continue;
    }
    if (lock_.LockShared() == -1) {
      if (errno != ENOENT) return -1;
      continue;
    }
    if (is_lasting()) return 0;
    std::string found(wanted.size() + 1, '\0');
    ssize_t const count = Util_FileSystem::PreadAll(lock_.GetFd(), found.data(), found.size(), 0);
    bool const is_ours = count >= 0 && found.substr(0, std::size_t(count)) == wanted;
    if ((is_ours || count == 0) && make_boot_last(is_ours) == 0) return 0;
    int const cause = errno;
    lock_.UnlockShared();
    errno = cause;
    if (is_ours || count <= 0 || recover_(prefix_) == -1) return -1;
  }
  errno = EAGAIN;
  return -1;
}

/// Those who find it empty at the same time write the same, and who finds it written can't know whether it was synced.
/// Its own entry is synced with that of the first copy.
int Disk_RelaxedEpoch::make_boot_last(bool is_written) {
  if (!is_written && Util_FileSystem::PwriteAll(lock_.GetFd(), content_.data(), content_.size(), 0) == -1) return -1;
  if (Util_FileSystem::SyncFile(lock_.GetFd(), kFull) == -1 ||
      Util_FileSystem::SyncDirectory(prefix_.c_str(), kFull) == -1)
    return -1;
  return look_at_boot(&lasting_);
}

/// Whether BOOT is the one of which we know that it is ours and lasts.
bool Disk_RelaxedEpoch::is_lasting() const {
  FileState now{};
  return look_at_boot(&now) == 0 && now == lasting_;
}

int Disk_RelaxedEpoch::look_at_boot(FileState* state) const {
  struct stat status {};
  if (System().Fstat(lock_.GetFd(), &status) == -1) return -1;
  *state = {long(status.st_ino), long(status.st_mtim.tv_sec), long(status.st_mtim.tv_nsec)};
  return 0;
}

int Disk_RelaxedEpoch::Keep(Disk_FileID const& id, bool is_new) {
  std::string const path = id.Path(), copy = CopyOf(id), fresh = copy + Disk_Names::kUnfinished;
  if (copy.empty()) return -1;
  if (Exists(copy)) return 0;
  int linked = System().Link(path.c_str(), fresh.c_str());
  if (linked == -1 && errno == EEXIST) {
    if (System().Unlink(fresh.c_str()) == -1) return -1;
    linked = System().Link(path.c_str(), fresh.c_str());
  }
  if (linked == -1 && errno == ENOENT) {
    if (!is_new && !Disk_IsGone(path)) return -1; // an empty copy would say that it held nothing durable
    // BOOT's entry must last before a record leads to an unsynced file: the copy of the file with that record sees to
    // it
    if (id.GetID().GetNValues() == 1 && Util_FileSystem::SyncDirectory(Disk_Names::FolderOf(copy).c_str(), kFull) == -1)
      return -1;
    // nothing was there before: an empty copy, which needn't last, says so
    return Util_FileSystem::WriteNewFile(copy.c_str(), {}, false);
  }
  if (linked == -1 && CopyFile(path, fresh) == -1) return -1; // a file system without links
  return Establish(fresh, copy);
}

int Disk_RelaxedEpoch::Keep(std::string const& dicomdir) {
  std::string const copy = CopyOf(dicomdir), fresh = copy + Disk_Names::kUnfinished;
  if (Exists(copy)) return 0;
  return CopyFile(dicomdir, fresh) == -1 ? -1 : Establish(fresh, copy);
}

int Disk_RelaxedEpoch::Forget(Disk_FileID const& id) { return ForgetCopy(CopyOf(id)); }

int Disk_RelaxedEpoch::Forget(std::string const& dicomdir) { return ForgetCopy(CopyOf(dicomdir)); }

int Disk_RelaxedEpoch::IsOpen(std::string const& prefix) { return IsFolder(FolderIn(prefix)); }

/// The folder can go at any moment, as another ends the epoch. Who removes it holds BOOT exclusively, so no relaxed
/// operation is under way that began with it, and has synced the file system since: what had returned before is on the
/// disk. It is synced here as well, since what stands outside of an epoch, a caller's own files, may not be.
int Disk_RelaxedEpoch::End(std::string const& prefix) {
  std::string const folder = FolderIn(prefix);
  int open = IsOpen(prefix);
  Klb_LockFile lock;
  Klb_Attempt const attempt;
  if (open == 1 && (lock.Init(folder.c_str(), Disk_Names::In(folder, Disk_Names::kBoot).c_str(), 0) == -1 ||
                    lock.LockExclusive() == -1))
    open = errno == ENOENT ? 0 : -1;
  if (open == 0) attempt.Forget();
  if (open == -1 || Util_FileSystem::SyncFileSystem(prefix.c_str()) == -1) return -1;
  return open == 1 ? RemoveCopies(folder) : 0;
}

std::array<char, Disk_RelaxedEpoch::kPreamble> Disk_RelaxedEpoch::Mark(std::span<std::string_view const> bytes_behind) {
  std::array<char, kPreamble> mark{};
  Checksum checksum;
  for (std::string_view const part : bytes_behind)
    checksum.Add(part);
  std::uint64_t const numbers[] = {checksum.Length(), checksum.Sum()};
  std::copy(kMagic.begin(), kMagic.end(), mark.begin());
  std::memcpy(mark.data() + kMagic.size(), numbers, sizeof numbers);
  return mark;
}

bool Disk_RelaxedEpoch::IsWhole(std::string_view file) {
  if (file.size() < kPreamble || file.substr(kPreamble, 4) != "DICM") return false;
  if (!file.starts_with(kMagic)) return true;
  std::string_view const behind[] = {file.substr(kPreamble)};
  std::array<char, kPreamble> const mark = Mark(behind);
  return file.starts_with(std::string_view(mark.data(), mark.size()));
}

int Disk_RelaxedEpoch::RemoveCopies(std::string const& folder) {
  std::vector<Util_FileSystemInterface::Entry> entries;
  if (System().List(folder.c_str(), entries) == -1) return -1;
  for (auto const& entry : entries) // a durable write forgets its copy whoever holds the epoch
    if (entry.type != entry.Directory && entry.name != Disk_Names::kBoot &&
        System().Unlink((folder + "/" + entry.name).c_str()) == -1 && errno != ENOENT)
      return -1;
  if (System().Unlink(Disk_Names::In(folder, Disk_Names::kBoot).c_str()) == -1) return -1;
  return System().Rmdir(folder.c_str()) == -1 && errno != ENOTEMPTY && errno != EEXIST && errno != ENOENT ? -1 : 0;
}

int Disk_RelaxedEpoch::NeedsRecovery(std::string const& prefix) {
  int const open = IsOpen(prefix);
  if (open != 1) return open;
  std::string const boot = boot_id();
  return boot.empty() || !ContentOf(Disk_Names::In(FolderIn(prefix), Disk_Names::kBoot)).starts_with(boot + "\n") ? 1
                                                                                                                  : 0;
}
