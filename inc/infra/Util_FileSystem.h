// What every user of files needs on top of the system calls: whole reads and writes, and the durability rule.
// Interruptions and short counts are handled here and nowhere else. Failures return -1 (or null, or an empty
// descriptor) and leave the cause in errno; nothing is logged, the caller knows what the file was for.
#pragma once

#include <cstdint>
#include <infra/Disk_Export.h>
#include <infra/Util_Buffer.h>
#include <infra/Util_FileSystemInterface.h>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

/// Owns an open file. The destructor closes it and leaves errno alone.
class [[nodiscard]] DISK_EXPORT Util_FileDescriptor {
public:
  Util_FileDescriptor() = default;
  explicit Util_FileDescriptor(int fd) : fd_(fd) {}
  ~Util_FileDescriptor() { reset(); }
  Util_FileDescriptor(Util_FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Util_FileDescriptor& operator=(Util_FileDescriptor&& other) noexcept;

  explicit operator bool() const { return fd_ >= 0; }
  int Get() const { return fd_; }
  int Release() { return std::exchange(fd_, -1); }
  /// 0 or -1. The file counts as closed in both cases. -1 may mean that what was written before is lost.
  int Close() noexcept;

private:
  void reset() noexcept;

  int fd_ = -1;
};

enum class Util_Durability {
  Full,   ///< what an operation wrote survives a power cut once it has returned 0
  Relaxed // the syncs are left out; for bulk loads, whose caller syncs at the end
};

class DISK_EXPORT Util_FileSystem {
public:
  /// The process's, for whoever has none of its own; Full at first.
  static void SetDurability(Util_Durability durability) noexcept;
  static Util_Durability GetProcessDurability() noexcept;
  /// That of the thread's innermost DurabilityScope, and outside of one the process's.
  static Util_Durability GetDurability() noexcept;
  /// An operation keeps to its end the durability that it began with, whatever is set meanwhile. One that is called in
  /// the middle of it, on another file-set, has its own.
  class [[nodiscard]] DurabilityScope {
  public:
    DurabilityScope() = default;
    ~DurabilityScope() { End(); }
    DurabilityScope(DurabilityScope const&) = delete;
    DurabilityScope& operator=(DurabilityScope const&) = delete;
    void Begin(Util_Durability durability) noexcept; // for this thread; a second call changes nothing
    bool HasBegun() const noexcept { return begun_; }
    void End() noexcept;

  private:
    bool begun_ = false;
    std::optional<Util_Durability> outer_;
  };

  /// open, with O_CLOEXEC added.
  static Util_FileDescriptor Open(char const* path, int flags, mode_t mode = 0664);

  /// The number of bytes read, which is below `size` only at the end of the file; or -1.
  static ssize_t ReadAll(int fd, void* data, size_t size);
  static ssize_t PreadAll(int fd, void* data, size_t size, off_t offset);

  /// 0 when all bytes are written, or -1; how many were written before a failure isn't told.
  static int WriteAll(int fd, void const* data, size_t size);
  static int PwriteAll(int fd, void const* data, size_t size, off_t offset);
  static int WriteAll(int fd, std::span<std::string_view const> parts);

  /// The content of a regular file as it stood when it was opened. Null for anything else that stands there:
  /// EISDIR for a directory, EINVAL for a pipe, a socket or a device (none of which can make this wait), EFBIG
  /// above `limit` bytes, ENOMEM. A file that shrinks meanwhile gives what was left of it.
  static std::shared_ptr<Util_Buffer const> ReadWholeFile(char const* path, uint64_t limit = UINT64_MAX);

  /// Creates a file, in place of one that stands there, and writes the parts one after the other. An empty descriptor
  /// after the first failure; the file is left as it is then.
  static Util_FileDescriptor NewFile(char const* path, std::span<std::string_view const> parts);
  /// The same, then syncs the file if `sync` is set, and closes it. -1 after the first failure, also of the close.
  static int WriteNewFile(char const* path, std::span<std::string_view const> parts, bool sync,
                          Util_Durability durability = GetDurability());

  /// Begins to bring a file to the disk, without waiting for it; a sync has to follow. -1 when the disk doesn't take
  /// it, which a later sync may not tell again; 0 also where files can't be begun.
  static int StartSync(int fd);
  /// fdatasync and fsync; with relaxed durability they do nothing and give 0. After a failure the kernel may
  /// have dropped what it couldn't write and the next sync would succeed without it, so a failed sync is never
  /// asked for again: the operation fails.
  static int SyncFile(int fd, Util_Durability durability = GetDurability());
  static int SyncDirectory(char const* path, Util_Durability durability = GetDurability());
  /// All of the file system that holds the directory, whatever the durability.
  static int SyncFileSystem(char const* directory);

  /// False only where it is known that nothing stands there.
  static bool MayExist(char const* path);
  /// 0 also if a directory stands there already; `made` tells the two apart.
  static int MakeDirectory(char const* path, mode_t mode = 0775, bool* made = nullptr);
};
