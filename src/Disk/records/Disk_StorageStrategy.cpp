#include <Disk/Disk_StorageStrategy.h>

#include "infra/Klb_Failure.h"

#include <Disk/Disk_Error.h>
#include <dicom/Util_File.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <unistd.h>

namespace {

char* Allocate(std::size_t size) { return new (std::nothrow) char[size]; }

Klb_Cause NoRoom() { return Klb_Cause(DISK_ERROR_MEMORY).Because("memory can't hold what is written").Unset(); }

} // namespace

// Here, as the floor of Util_File knows strategies by name only.
int Util_File::Write(Disk_StorageStrategy* strategy) {
  std::string_view const bytes = Bytes();
  return strategy && strategy->Write(bytes.data(), unsigned(bytes.size())) == int(bytes.size()) ? 0 : -1;
}

int Disk_FileStorageStrategy::Write(void const* data, unsigned size) {
  return Util_FileSystem::WriteAll(GetFd(), data, size) == 0 ? int(size) : -1;
}

long Disk_FileStorageStrategy::LSeek(long offset, int whence) {
  return Util_FileSystemInterface::Current().Lseek(GetFd(), offset, whence);
}

Disk_MemoryStorageStrategy::Disk_MemoryStorageStrategy(unsigned size)
    : capacity(size), buffer(Allocate(size)), healthy(buffer != nullptr) {
  if (!buffer) capacity = 0;
}

Disk_MemoryStorageStrategy::~Disk_MemoryStorageStrategy() { delete[] buffer; }

int Disk_MemoryStorageStrategy::Write(void const* data, unsigned size) {
  DISK_LOG(7, "Disk_MemoryWriterStrategy::Write().\n");
  if (!healthy) return DISK_FAIL(NoRoom(), "Disk_MemoryWriterStrategy is in error state.\n");
  std::uint64_t const end = std::uint64_t(position) + size;
  if (end >= capacity && !grow(end)) {
    DISK_FAIL(NoRoom(), "Writing cannot be completed.\n");
    unsigned const room = capacity == 0 ? 0 : capacity - position - 1;
    write_buffer(data, room);
    healthy = false;
    pending = pending || room > 0;
    return int(room);
  }
  write_buffer(data, size);
  pending = true;
  return int(size);
}

bool Disk_MemoryStorageStrategy::Reserve(unsigned end) {
  if (healthy && (end < capacity || grow(end))) return true;
  DISK_FAIL(NoRoom(), "Writing cannot be completed.\n");
  return false;
}

/// Makes room for bytes up to `end` and one more.
bool Disk_MemoryStorageStrategy::grow(std::uint64_t end) {
  std::uint64_t wanted = std::max<std::uint64_t>(capacity, 1) * 2;
  while (wanted - 1 <= end)
    wanted *= 2;
  if (wanted > std::numeric_limits<unsigned>::max()) return false;
  char* const bigger = Allocate(wanted);
  if (!bigger) return false;
  if (buffer) std::memcpy(bigger, buffer, capacity);
  delete[] buffer;
  buffer = bigger;
  capacity = unsigned(wanted);
  return true;
}

void Disk_MemoryStorageStrategy::write_buffer(void const* data, unsigned size) {
  if (size == 0) return;
  if (position > length) std::memset(buffer + length, 0, position - length); // a gap that a seek left
  std::memcpy(buffer + position, data, size);
  position += size;
  length = std::max(length, position);
}

long Disk_MemoryStorageStrategy::LSeek(long offset, int whence) {
  DISK_LOG(7, "Disk_MemoryWriterStrategy::LSeek().\n");
  if (whence < 0 || whence > 2) return -1;
  long const base = whence == 0 ? 0 : long(whence == 1 ? position : length);
  long target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0 || target >= long(capacity))
    return DISK_FAIL("LSeek outside boundary cannot be performed.\n");
  position = unsigned(target);
  return target;
}

bool Disk_MemoryStorageStrategy::Flush() {
  DISK_LOG(7, "Disk_MemoryWriterStrategy::Flush().\n");
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  bool const sought = system.Lseek(GetFd(), 0, SEEK_SET) == 0;
  if (sought && Util_FileSystem::WriteAll(GetFd(), buffer, length) == 0 && Util_FileSystem::SyncFile(GetFd()) == 0) {
    pending = false;
    return true;
  }
  Klb_Cause const cause = Klb_System(errno, "write what was pending").Unset();
  off_t const reached = sought ? std::max<off_t>(system.Lseek(GetFd(), 0, SEEK_CUR), 0) : 0;
  DISK_FAIL(cause, "Disk_MemoryWriterStrategy::Flush() - not all data (%d out of %d) could be flushed.\n", int(reached),
            int(length));
  return false;
}

int Disk_MemoryStorageStrategy::UpdateFromFile() {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (!pending) position = length = 0;
  off_t const noted = system.Lseek(GetFd(), 0, SEEK_CUR);
  off_t const size = system.Lseek(GetFd(), 0, SEEK_END);
  if (noted == -1 || size == -1 || system.Lseek(GetFd(), 0, SEEK_SET) == -1 || !load(std::size_t(size))) {
    DISK_FAIL(Klb_System(errno, "read the file into memory").Unset(),
              "Disk_MemoryStorageStrategy::UpdateFromFile() - memory storage could not be updated!\n");
    length = 0;
    healthy = false;
  }
  position = 0;
  if (noted == -1 || system.Lseek(GetFd(), noted, SEEK_SET) == -1) return -1;
  return int(noted);
}

/// Writes the whole file into the image, to which it is no news.
bool Disk_MemoryStorageStrategy::load(std::size_t size) {
  char* const block = size <= std::numeric_limits<int>::max() ? Allocate(size) : nullptr;
  bool const was_pending = pending;
  bool const loaded = block && Util_FileSystem::ReadAll(GetFd(), block, size) == ssize_t(size) &&
                      Write(block, unsigned(size)) == int(size);
  delete[] block;
  pending = was_pending;
  return loaded;
}
