// Stores through one root object of the standard structure, into a series and into studies that become many.
#include "Bench.h"
#include "Phantom.h"

#include <Disk/Disk_RootDirectoryFile.h>
#include <Disk/Disk_StorageStrategy.h>
#include <infra/Util_FileSystem.h>

#include <memory>

namespace {

/// The real file system, and the bytes that go to it.
class Counting : public Util_FileSystemInterface {
public:
  Counting() { SetCurrent(this); }
  ~Counting() override { SetCurrent(nullptr); }
  ssize_t Write(int fd, void const* data, size_t n) override {
    return count(Util_FileSystemInterface::Write(fd, data, n));
  }
  ssize_t Pwrite(int fd, void const* data, size_t n, off_t at) override {
    return count(Util_FileSystemInterface::Pwrite(fd, data, n, at));
  }
  ssize_t Writev(int fd, iovec const* parts, int n) override {
    return count(Util_FileSystemInterface::Writev(fd, parts, n));
  }
  long bytes = 0;

private:
  ssize_t count(ssize_t n) {
    bytes += std::max<ssize_t>(n, 0);
    return n;
  }
};

constexpr int kStores = 101;

struct Way {
  char const* name;
  Util_Durability durability;
  bool in_memory;
};

Phantom::Object Numbered(bool studies, int number) {
  Phantom::Object object{.size = 16};
  if (studies) {
    object.patient = (number + 4) / 5;
    object.study = number;
  } else {
    object.image = number;
  }
  return object;
}

/// A file-set that holds a number of objects, and the root object through which all of them came.
class Filled {
public:
  Filled(std::string const& base, Way const& way, bool studies, int objects)
      : folder_(base), studies_(studies), stored(objects),
        root_(folder_.Path().c_str(),
              Disk_StoreParams(Disk_StoreParams::STORE_NATIVE | Disk_StoreParams::STANDARD_STRUCTURE), 0, &status_,
              way.in_memory ? &memory_ : nullptr) {
    Bench::Require(status_ == 0, "opening");
    while (number_ < objects)
      StoreNext();
  }

  /// In microseconds; the object is made before.
  double StoreNext() {
    auto const msg = Phantom::Make(Numbered(studies_, ++number_));
    Counting counting;
    auto const start = std::chrono::steady_clock::now();
    Bench::Require(root_.Store(msg.get(), false, 0, 0, nullptr, 0, nullptr, nullptr, nullptr) == 0, "storing");
    std::chrono::duration<double, std::micro> const took = std::chrono::steady_clock::now() - start;
    bytes = counting.bytes;
    return took.count();
  }

private:
  Bench::Folder folder_;
  Disk_MemoryStorageStrategy memory_;
  bool studies_;
  int status_ = 0, number_ = 0;

public:
  int stored;
  long bytes = 0; // that the last store wrote
  std::vector<double> times;

private:
  Disk_RootDirectoryFile root_;
};

/// The file-sets are stored into in turns, so that what else the disk does falls upon all of them alike.
void Grow(std::string const& base, Way const& way, bool studies, std::vector<int> const& points) {
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  std::vector<std::unique_ptr<Filled>> sets;
  for (int const point : points)
    sets.push_back(std::make_unique<Filled>(base, way, studies, point));
  Bench::Settle();
  Util_FileSystem::SetDurability(way.durability);
  for (int round = 0; round < kStores; ++round)
    for (auto& set : sets)
      set->times.push_back(set->StoreNext());
  double first = 0;
  for (auto& set : sets) {
    std::sort(set->times.begin(), set->times.end());
    double const time = set->times[set->times.size() / 2];
    if (first == 0) first = time;
    std::printf("%-10s %-8s %8d %12.1f %8.2f %14ld\n", way.name, studies ? "studies" : "images", set->stored, time,
                time / first, set->bytes);
  }
}

} // namespace

void Bench::Standard(std::string const& base) {
  std::printf("\nStore through one root object, standard structure (us per store, median of %d)\n", kStores);
  std::printf("%-10s %-8s %8s %12s %8s %14s\n", "", "", "stored", "time", "growth", "bytes written");
  for (Way const& way : {Way{"relaxed", Util_Durability::Relaxed, false}, Way{"durable", Util_Durability::Full, false},
                         Way{"in memory", Util_Durability::Relaxed, true}}) {
    Grow(base, way, false, {10, 1000, 10000});
    Grow(base, way, true, {10, 100, 1000});
  }
}
