#include "Disk/cache/Disk_CleaningMutex.h"

#include <ace/Process_Mutex.h>
#include <infra/Klb_LogFile.h>

#include <cerrno>

namespace {

constexpr char kName[] = "DISK_CACHEREPOSITORY_AUTOCLEAN_PROCESS_MUTEX";
/// For all: the programs of several users clean one repository. Without the bits of owner and group the user that made
/// the mutex couldn't take it.
constexpr mode_t kMode = 0777;

} // namespace

Disk_CleaningMutex::Disk_CleaningMutex() : mutex_(std::make_unique<ACE_Process_Mutex>(kName, nullptr, kMode)) {
  int result = mutex_->acquire();
  while (result == -1 && errno == EINTR)
    result = mutex_->acquire();
  is_held_ = result == 0;
  // a machine without semaphores still cleans
  if (!is_held_) DISK_LOG(4, "Auto-Clean: can't take the mutex %s (errno=%d)\n", kName, errno);
}

Disk_CleaningMutex::~Disk_CleaningMutex() {
  if (is_held_) mutex_->release(); // otherwise it is another's
}
