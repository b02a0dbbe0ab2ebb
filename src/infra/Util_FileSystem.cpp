#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <infra/Util_FileSystem.h>
#include <optional>
#include <vector>

namespace {

std::atomic<Util_Durability> s_durability{Util_Durability::Full};
thread_local std::optional<Util_Durability> s_scope;

Util_FileSystemInterface& system_calls() { return Util_FileSystemInterface::Current(); }

template <class Call>
auto retry(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR)
    result = call();
  return result;
}

// Calls `move(done)`, which moves bytes from `done` on, until `size` bytes are moved or it gives 0.
template <class Move>
ssize_t move_all(size_t size, Move move) {
  size_t done = 0;
  while (done < size) {
    ssize_t const n = retry([&] { return move(done); });
    if (n == -1) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

// A write that takes nothing and names no error would go on for ever.
int check_written(ssize_t done, size_t size) {
  if (done == -1) return -1;
  if (static_cast<size_t>(done) == size) return 0;
  errno = EIO;
  return -1;
}

void skip_written(std::vector<iovec>& parts, size_t& first, size_t written) {
  while (first < parts.size() && written >= parts[first].iov_len)
    written -= parts[first++].iov_len;
  if (written == 0) return;
  parts[first].iov_base = static_cast<char*>(parts[first].iov_base) + written;
  parts[first].iov_len -= written;
}

std::shared_ptr<Util_Buffer const> read_regular_file(char const* path, uint64_t limit) {
  // O_NONBLOCK: opening a pipe would wait for its writer. It makes no difference to a regular file.
  Util_FileDescriptor const file = Util_FileSystem::Open(path, O_RDONLY | O_NONBLOCK);
  struct stat status;
  if (!file || system_calls().Fstat(file.Get(), &status) == -1) return nullptr;
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return nullptr;
  }
  auto const size = static_cast<uint64_t>(status.st_size);
  if (size > limit) {
    errno = EFBIG;
    return nullptr;
  }
  std::shared_ptr<Util_Buffer> buffer = Util_Buffer::Make(size);
  if (!buffer) return nullptr;
  ssize_t const n = Util_FileSystem::ReadAll(file.Get(), buffer->data(), buffer->size());
  if (n == -1) return nullptr;
  buffer->Truncate(static_cast<size_t>(n));
  return buffer;
}

} // namespace

Util_FileDescriptor& Util_FileDescriptor::operator=(Util_FileDescriptor&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.Release();
  }
  return *this;
}

int Util_FileDescriptor::Close() noexcept {
  int const fd = Release();
  if (fd < 0) return 0;
  // After EINTR the descriptor is gone all the same, and closing its number again might hit another thread's
  // file.
  return system_calls().Close(fd) == -1 && errno != EINTR ? -1 : 0;
}

void Util_FileDescriptor::reset() noexcept {
  int const saved = errno;
  Close();
  errno = saved;
}

void Util_FileSystem::SetDurability(Util_Durability durability) noexcept { s_durability = durability; }

Util_Durability Util_FileSystem::GetProcessDurability() noexcept { return s_durability; }

Util_Durability Util_FileSystem::GetDurability() noexcept { return s_scope ? *s_scope : GetProcessDurability(); }

void Util_FileSystem::DurabilityScope::Begin(Util_Durability durability) noexcept {
  if (begun_) return;
  outer_ = std::exchange(s_scope, durability);
  begun_ = true;
}

void Util_FileSystem::DurabilityScope::End() noexcept {
  if (begun_) s_scope = outer_;
  begun_ = false;
}

Util_FileDescriptor Util_FileSystem::Open(char const* path, int flags, mode_t mode) {
  return Util_FileDescriptor(retry([&] { return system_calls().Open(path, flags | O_CLOEXEC, mode); }));
}

ssize_t Util_FileSystem::ReadAll(int fd, void* data, size_t size) {
  auto* const bytes = static_cast<char*>(data);
  return move_all(size, [&](size_t done) { return system_calls().Read(fd, bytes + done, size - done); });
}

ssize_t Util_FileSystem::PreadAll(int fd, void* data, size_t size, off_t offset) {
  auto* const bytes = static_cast<char*>(data);
  return move_all(size, [&](size_t done) {
    return system_calls().Pread(fd, bytes + done, size - done, offset + static_cast<off_t>(done));
  });
}

int Util_FileSystem::WriteAll(int fd, void const* data, size_t size) {
  auto const* const bytes = static_cast<char const*>(data);
  return check_written(move_all(size, [&](size_t done) { return system_calls().Write(fd, bytes + done, size - done); }),
                       size);
}

int Util_FileSystem::PwriteAll(int fd, void const* data, size_t size, off_t offset) {
  auto const* const bytes = static_cast<char const*>(data);
  ssize_t const done = move_all(
      size, [&](size_t n) { return system_calls().Pwrite(fd, bytes + n, size - n, offset + static_cast<off_t>(n)); });
  return check_written(done, size);
}

int Util_FileSystem::WriteAll(int fd, std::span<std::string_view const> parts) {
  std::vector<iovec> vectors;
  vectors.reserve(parts.size());
  for (std::string_view const part : parts)
    if (!part.empty()) vectors.push_back({const_cast<char*>(part.data()), part.size()});
  for (size_t first = 0; first < vectors.size();) {
    int const count = static_cast<int>(std::min<size_t>(vectors.size() - first, IOV_MAX));
    ssize_t const n = retry([&] { return system_calls().Writev(fd, &vectors[first], count); });
    if (n == -1) return -1;
    if (n == 0) return check_written(0, 1);
    skip_written(vectors, first, static_cast<size_t>(n));
  }
  return 0;
}

std::shared_ptr<Util_Buffer const> Util_FileSystem::ReadWholeFile(char const* path, uint64_t limit) {
  // On a network file system the name can be given to another file between our open and read.
  for (int attempt = 1;; ++attempt) {
    std::shared_ptr<Util_Buffer const> buffer = read_regular_file(path, limit);
    if (buffer || errno != ESTALE || attempt == 5) return buffer;
  }
}

Util_FileDescriptor Util_FileSystem::NewFile(char const* path, std::span<std::string_view const> parts) {
  // Neither a link nor a pipe that stands at the name gets our bytes or makes us wait, and a file that has other names
  // keeps its bytes under those.
  auto const create = [path] { return Open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK); };
  Util_FileDescriptor file = create();
  if (!file && errno == EEXIST && retry([&] { return system_calls().Unlink(path); }) == 0) file = create();
  return file && WriteAll(file.Get(), parts) == 0 ? std::move(file) : Util_FileDescriptor();
}

int Util_FileSystem::WriteNewFile(char const* path, std::span<std::string_view const> parts, bool sync,
                                  Util_Durability durability) {
  Util_FileDescriptor file = NewFile(path, parts);
  if (!file || (sync && SyncFile(file.Get(), durability) == -1)) return -1;
  return file.Close();
}

int Util_FileSystem::StartSync(int fd) {
  if (system_calls().SyncFileRange(fd, 0, 0, SYNC_FILE_RANGE_WRITE) == 0) return 0;
  return errno == EINVAL || errno == ENOSYS || errno == ESPIPE ? 0 : -1; // has no such thing
}

int Util_FileSystem::SyncFile(int fd, Util_Durability durability) {
  return durability == Util_Durability::Relaxed ? 0 : system_calls().Fdatasync(fd);
}

bool Util_FileSystem::MayExist(char const* path) { return system_calls().Access(path, F_OK) == 0 || errno != ENOENT; }

int Util_FileSystem::SyncDirectory(char const* path, Util_Durability durability) {
  if (durability == Util_Durability::Relaxed) return 0;
  Util_FileDescriptor const directory = Open(path, O_RDONLY | O_DIRECTORY);
  if (!directory) return -1;
  if (system_calls().Fsync(directory.Get()) == 0) return 0;
  return errno == EINVAL ? 0 : -1; // EINVAL: this file system has no such thing as the sync of a directory
}

int Util_FileSystem::SyncFileSystem(char const* directory) {
  Util_FileDescriptor const folder = Open(directory, O_RDONLY | O_DIRECTORY);
  return folder ? system_calls().Syncfs(folder.Get()) : -1;
}

int Util_FileSystem::MakeDirectory(char const* path, mode_t mode, bool* made) {
  if (made) *made = false;
  if (retry([&] { return system_calls().Mkdir(path, mode); }) == 0) {
    if (made) *made = true;
    return 0;
  }
  struct stat status;
  if (errno != EEXIST || system_calls().Stat(path, &status) == -1) return -1;
  if (S_ISDIR(status.st_mode)) return 0;
  errno = EEXIST;
  return -1;
}
