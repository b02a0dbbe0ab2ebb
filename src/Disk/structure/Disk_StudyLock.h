// The lock of a study, on a file in its folder; or none, where that of the file-set is held throughout.
#pragma once
#include <Disk/Disk_FileID.h>
#include <Disk/Disk_LockManager.h>

class Disk_StudyLock {
public:
  using Operation = int (Klb_LockFile::*)();
  virtual ~Disk_StudyLock() = default;
  /// 0; or -1 with errno, after this line.
  virtual int Do(Operation /*operation*/, char const* /*failure*/) { return 0; }
  // As those of Klb_LockFile
  virtual int LockPinned() { return 0; }
  virtual int RelockShared() { return 0; }
  virtual bool IsInPlace() const { return true; }
};

class Disk_FolderLock : public Disk_StudyLock {
public:
  /// Makes the file, unless `read_only`. Without it every lock fails, and tells why.
  Disk_FolderLock(Disk_FileID const& folder, bool read_only);
  int Do(Operation operation, char const* failure) override;
  int LockPinned() override;
  int RelockShared() override { return lock_.RelockShared(); }
  bool IsInPlace() const override { return lock_.IsInPlace(); }

private:
  std::string const folder_;
  Disk_LockManager lock_;
  int no_lock_cause_ = 0; // errno, when its file couldn't be opened
};
