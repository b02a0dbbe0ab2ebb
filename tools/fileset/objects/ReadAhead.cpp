#include "objects/ReadAhead.h"

#include "objects/StoreObject.h"
#include "program/Interruption.h"

#include <algorithm>
#include <dicom/Dicom_Compressor.h>
#include <exception>
#include <infra/Klb_GError.h>
#include <new>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr std::size_t kMostWorkers = 8, kAhead = 4;        // objects for each worker
constexpr std::size_t kMostBytes = std::size_t(256) << 20; // of files that wait; one alone may be larger

// No worker for a single file: there is nothing to read ahead.
std::size_t WorkersFor(std::size_t files) {
  std::size_t const most = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMostWorkers);
  return files > 0 ? std::min(most, files - 1) : 0;
}

std::size_t SizeOf(std::string const& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? std::size_t(status.st_size) : 0;
}

} // namespace

ReadAhead::ReadAhead(std::vector<std::string> const& files, bool compress)
    : files_(files), compress_(compress), slots_(kAhead * WorkersFor(files.size())) {
  try {
    start(WorkersFor(files.size()));
  } catch (std::exception const&) { // no more threads can be made: those that there are will do
  }
}

ReadAhead::~ReadAhead() { stop(); }

void ReadAhead::start(std::size_t workers) {
  workers_.reserve(workers);
  while (workers_.size() < workers)
    workers_.emplace_back([this] { work(); });
}

void ReadAhead::stop() {
  {
    std::lock_guard const lock(mutex_);
    stops_ = true;
  }
  changed_.notify_all();
  for (std::thread& worker : workers_)
    worker.join();
  workers_.clear();
}

bool ReadAhead::ends() const { return stops_ || begun_ == files_.size() || IsInterrupted(); }

bool ReadAhead::may_begin() const {
  if (begun_ == taken_) return true;
  return begun_ - taken_ < slots_.size() && bytes_ < kMostBytes;
}

void ReadAhead::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ends() || may_begin(); });
    if (ends()) return;
    std::string const& file = files_[begun_];
    Slot& slot = slots_[begun_++ % slots_.size()];
    std::size_t const size = SizeOf(file);
    bytes_ += slot.bytes = size;
    lock.unlock();
    fill(slot, file);
    lock.lock();
    bytes_ += slot.bytes - size;
    slot.ready = true;
    stops_ = stops_ || slot.given_back; // memory is short, so no more is read ahead
    changed_.notify_all();
  }
}

void ReadAhead::fill(Slot& slot, std::string const& file) const noexcept {
  try {
    slot.object = read(file);
    // a deflated object is longer than its file
    if (slot.object.object) slot.bytes = std::max<std::size_t>(slot.bytes, slot.object.object->GetDumpLen());
  } catch (...) { // the failure comes again, and is told, when the file is read alone
    slot.object = {};
    slot.given_back = true;
  }
}

ReadAhead::Object ReadAhead::read(std::string const& file) const {
  Object result;
  KlbGError.Set(0);
  result.object = ReadObject(file, &result.problem);
  bool const compresses = compress_ && !IsInterrupted();
  bool const done = result.object && (!compresses || Dicom_Compressor().Compress(result.object.get(), 0) == 0);
  if (!done && RanOutOfMemory()) throw std::bad_alloc();
  return result; // what can't be compressed is told when it is stored
}

ReadAhead::Object ReadAhead::Next() {
  std::unique_lock lock(mutex_);
  std::size_t const number = taken_;
  if (begun_ == number) { // by nobody, and perhaps nobody is going to
    begun_ = ++taken_;
    lock.unlock();
    return read(files_[number]);
  }
  Slot& slot = slots_[number % slots_.size()];
  changed_.wait(lock, [&] { return slot.ready; });
  Slot taken = std::exchange(slot, {});
  bytes_ -= taken.bytes;
  ++taken_;
  lock.unlock();
  changed_.notify_all();
  if (taken.given_back) throw std::bad_alloc();
  return std::move(taken.object);
}

bool ReadAhead::DropOthers() {
  if (workers_.empty()) return false;
  stop();
  slots_.clear();
  begun_ = taken_;
  return true;
}

ReadAhead::Object ReadAhead::Again() { return read(files_[taken_ - 1]); }
