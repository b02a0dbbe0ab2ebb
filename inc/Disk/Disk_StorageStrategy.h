#pragma once

/// Stands between a standard DICOMDIR and the disk. The caller of a file-set makes one, hands it to the root, keeps
/// it alive as long as that, and flushes it. Private directory files are written without it.
class Disk_StorageStrategy {
public:
  virtual ~Disk_StorageStrategy() = default;
  /// The number of bytes written, or -1.
  virtual int Write(void const* data, unsigned size) = 0;
  /// The new position, or -1.
  virtual long LSeek(long offset, int whence) = 0;
  virtual bool Flush() = 0;
  virtual void InitFD(int fd) { file_descriptor_ = fd; }
  virtual int GetFd() { return file_descriptor_; }
  /// Data was written that the file doesn't hold yet.
  virtual bool HasPendingData() = 0;
  virtual int UpdateFromFile() = 0;

private:
  int file_descriptor_ = -1;
};
