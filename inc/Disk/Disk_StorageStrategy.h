#pragma once
#include <infra/Disk_Export.h>

#include <cstddef>
#include <cstdint>

/// Stands between a standard DICOMDIR and the disk. The caller of a file-set makes one, hands it to the root, keeps
/// it alive as long as the root goes by it, and flushes it; nothing here does. Private directory files are written
/// without it. Reading goes by the file and by what was written since the strategy had nothing pending, so a strategy
/// may keep its data in whatever form until Flush.
///
/// Results are those of POSIX: a count or a position, or -1.
class DISK_EXPORT Disk_StorageStrategy {
public:
  Disk_StorageStrategy() = default;
  Disk_StorageStrategy(Disk_StorageStrategy const&) = delete;
  Disk_StorageStrategy& operator=(Disk_StorageStrategy const&) = delete;
  virtual ~Disk_StorageStrategy() = default;
  /// Writes at the current position and moves it. The number of bytes written, or -1.
  [[nodiscard]] virtual int Write(void const* data, unsigned size) = 0;
  /// The new position, or -1. `whence` 0: from the start, 1: from the position, 2: from the end.
  virtual long LSeek(long offset, int whence) = 0;
  /// Brings what is pending to the file. Whether all of it got there.
  virtual bool Flush() = 0;
  virtual void InitFD(int fd) { file_descriptor = fd; }
  virtual int GetFd() { return file_descriptor; }
  /// Data was written that the file doesn't hold yet.
  virtual bool HasPendingData() = 0;
  /// Takes the existing file over; the file's position stays. That position, or -1.
  [[nodiscard]] virtual int UpdateFromFile() = 0;
  /// Makes sure that an operation finds room for all that it is about to write, up to `end`. If not, false, and nothing
  /// has changed.
  virtual bool Reserve(unsigned /*end*/) { return true; }

protected:
  int file_descriptor = -1;
};

/// Passes everything to the file at once.
class DISK_EXPORT Disk_FileStorageStrategy : public Disk_StorageStrategy {
public:
  [[nodiscard]] int Write(void const* data, unsigned size) override;
  long LSeek(long offset, int whence) override;
  bool Flush() override { return true; }
  bool HasPendingData() override { return false; }
  [[nodiscard]] int UpdateFromFile() override { return 0; }
};

/// Keeps the whole image of the file in memory, and writes it in one go on Flush. For one process: VERSION files
/// move before the Flush, and what a kill loses until then is lost.
class DISK_EXPORT Disk_MemoryStorageStrategy : public Disk_StorageStrategy {
public:
  static constexpr unsigned kDefaultSize = 0xA00000;

  explicit Disk_MemoryStorageStrategy(unsigned size = kDefaultSize);
  ~Disk_MemoryStorageStrategy() override;
  /// A write that the image can't grow for is short, and all that follow are refused.
  [[nodiscard]] int Write(void const* data, unsigned size) override;
  /// Only writing makes the image grow: a target at or beyond its capacity fails.
  long LSeek(long offset, int whence) override;
  bool Flush() override;
  bool HasPendingData() override { return pending; }
  /// The file takes the place of an image that has nothing pending. After a short read the image is empty and refuses
  /// all writes, as a Flush would damage the file.
  [[nodiscard]] int UpdateFromFile() override;
  bool Reserve(unsigned end) override;

private:
  void write_buffer(void const* data, unsigned size);
  bool grow(std::uint64_t end);
  bool load(std::size_t size);

  unsigned capacity; // one byte of it always stays free
  unsigned length = 0;
  unsigned position = 0;
  char* buffer;
  bool healthy; // false once the image couldn't grow or couldn't be loaded
  bool pending = false;
};
