#include "ReadAhead.h"

#include "StoreObject.h"

#include <algorithm>
#include <dicom/Dicom_Compressor.h>
#include <exception>
#include <filesystem>

namespace {

constexpr std::size_t kMostWorkers = 8, kAhead = 4;        // objects for each worker
constexpr std::size_t kMostBytes = std::size_t(256) << 20; // of files that wait; one alone may be larger

} // namespace

ReadAhead::ReadAhead(std::vector<std::string> const& files, bool compress) : files_(files), compress_(compress) {
  std::size_t const workers = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, kMostWorkers);
  for (std::size_t i = 0; i < workers; ++i)
    workers_.emplace_back([this] { work(); });
}

ReadAhead::~ReadAhead() {
  {
    std::lock_guard const lock(mutex_);
    stops_ = true;
  }
  changed_.notify_all();
  for (std::thread& worker : workers_)
    worker.join();
}

bool ReadAhead::may_begin() const {
  if (begun_ == taken_) return true;
  return begun_ - taken_ < kAhead * workers_.size() && bytes_ < kMostBytes;
}

void ReadAhead::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stops_ || begun_ == files_.size() || may_begin(); });
    if (stops_ || begun_ == files_.size()) return;
    std::size_t const number = begun_++;
    std::error_code error;
    std::uintmax_t const size = std::filesystem::file_size(files_[number], error);
    bytes_ += sizes_[number] = error ? 0 : std::size_t(size);
    lock.unlock();
    Object object = read(files_[number]);
    std::size_t const length = object.object ? object.object->GetDumpLen() : 0; // a deflated one has become longer
    lock.lock();
    std::size_t& counted = sizes_[number];
    bytes_ += std::max(counted, length) - counted;
    counted = std::max(counted, length);
    ready_[number] = std::move(object);
    changed_.notify_all();
  }
}

ReadAhead::Object ReadAhead::read(std::string const& file) const {
  Object result;
  try {
    result.object = ReadObject(file, &result.problem);
    // what can't be compressed is told when it is stored
    if (result.object && compress_) Dicom_Compressor().Compress(result.object.get(), 0);
  } catch (std::exception const& failure) {
    result = {nullptr, failure.what()};
  }
  return result;
}

ReadAhead::Object ReadAhead::Next() {
  std::unique_lock lock(mutex_);
  std::size_t const number = taken_;
  changed_.wait(lock, [&] { return ready_.count(number) != 0; });
  Object object = std::move(ready_.extract(number).mapped());
  bytes_ -= sizes_.extract(number).mapped();
  ++taken_;
  lock.unlock();
  changed_.notify_all();
  return object;
}
