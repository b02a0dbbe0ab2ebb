#pragma once
#include <memory>

class ACE_Process_Mutex;

/// Held by one cleaning on the machine at a time, for its scope. It ends with the process that holds it, however that
/// ends.
class [[nodiscard]] Disk_CleaningMutex {
public:
  Disk_CleaningMutex();
  ~Disk_CleaningMutex();
  Disk_CleaningMutex(Disk_CleaningMutex const&) = delete;
  Disk_CleaningMutex& operator=(Disk_CleaningMutex const&) = delete;

private:
  std::unique_ptr<ACE_Process_Mutex> mutex_;
  bool is_held_ = false;
};
