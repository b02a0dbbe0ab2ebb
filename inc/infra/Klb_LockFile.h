// A lock on a directory, held on a file in it. It excludes other processes and other Klb_LockFile objects of
// this process alike: any number of shared holders, or one exclusive one. The hold ends with the object, and
// with the process, however that ends. One object is for one thread at a time and holds at most once; asking
// for the other kind trades the hold, and others may get in between.
//
//   Klb_LockFile lock;
//   if (lock.Init("/data/set", "/data/set/LOCKFILE", 0) == -1) return -1;
//   Klb_LockGuard guard(lock, Klb_LockGuard::Exclusive);
//   if (!guard) return -1;
//
// A lock file can be removed, with its directory or without, while somebody waits for it. So a lock counts
// only when the file that was locked still stands at its path; otherwise the file there is locked instead.
// Whoever removes one does so last: from then on others can get the lock on a new file.
#pragma once

#include <infra/Disk_Export.h>
#include <infra/Util_FileSystem.h>
#include <string>

class DISK_EXPORT Klb_LockFile {
public:
  Klb_LockFile() = default;
  ~Klb_LockFile();
  Klb_LockFile(Klb_LockFile const&) = delete;
  Klb_LockFile& operator=(Klb_LockFile const&) = delete;

  /// `directory`: where the lock file stands, empty or null for the working directory. `file_name`: the full
  /// name of the lock file. It is created if need be, but not when `read_only` is set: then, where there is no
  /// lock file in the directory, or none that we may read, the operations below succeed without one. A second
  /// Init ends the hold of the first. -1, with errno, if the file can't be opened.
  [[nodiscard]] int Init(char const* directory, char const* file_name, int read_only);

  /// Wait for the lock; nothing but success (0) or an error (-1, with errno) ends the wait. -1 too when the
  /// directory has been deleted. After -1 nothing is held.
  [[nodiscard]] int LockShared();
  [[nodiscard]] int LockExclusive();

  /// For who comes to the lock by another one that he then gives up. Under that one Pin makes sure that the open lock
  /// file is the one that stands at its path. LockPinned waits for that very file: when it is gone by then, or another
  /// one stands there, the result is -1 with ESTALE, and nothing is logged.
  [[nodiscard]] int Pin();
  [[nodiscard]] int LockPinned();
  /// LockShared for who had the lock before, and sees from what it protects whether that still stands where it did: the
  /// file that is open counts, wherever it stands. -1 with ESTALE, and nothing is logged, when none is.
  [[nodiscard]] int RelockShared();
  /// Whether the file that was locked last stands at its path. False is logged, with errno: ESTALE for another file.
  bool IsInPlace() const;

  /// 0 got, 1 somebody else has it, -1 error. After 1 and -1 nothing is held, a former shared hold included.
  [[nodiscard]] int TryLockExclusive();

  /// 0 also when nothing was held.
  int UnlockShared();
  int UnlockExclusive();

  // The lock file while it is held, -1 without one.
  int GetFd() const { return file_.Get(); }

private:
  int open_file();
  bool stands_at_path() const;
  int lock(int operation);
  int lock_open_file(int operation);
  int take(int operation);
  int unlock();
  void release();
  void close_file();

  std::string directory_;
  std::string path_; // empty before Init
  bool read_only_ = false;
  Util_FileDescriptor file_; // none: read-only without a lock file, or not opened again yet
  dev_t device_ = 0;         // identity of the open file
  ino_t inode_ = 0;
  int process_ = 0; // that opened it
  bool held_ = false;
};

/// Holds a lock for a scope. The lock file must outlive it.
class [[nodiscard]] DISK_EXPORT Klb_LockGuard {
public:
  enum Mode { Shared, Exclusive };

  Klb_LockGuard() = default;
  Klb_LockGuard(Klb_LockFile& file, Mode mode);
  ~Klb_LockGuard() { Release(); }
  Klb_LockGuard(Klb_LockGuard&& other) noexcept;
  Klb_LockGuard& operator=(Klb_LockGuard&& other) noexcept;

  explicit operator bool() const { return file_ != nullptr; } // false: the lock couldn't be had
  void Release();                                             ///< ends the hold early; leaves errno alone

private:
  Klb_LockFile* file_ = nullptr;
  Mode mode_ = Shared;
};
