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

void Grow(std::string const& base, Way const& way, bool studies, std::vector<int> const& points) {
  Bench::Folder const folder(base);
  Disk_MemoryStorageStrategy memory;
  int status = 0, number = 0;
  Disk_RootDirectoryFile root(folder.Path().c_str(),
                              Disk_StoreParams(Disk_StoreParams::STORE_NATIVE | Disk_StoreParams::STANDARD_STRUCTURE),
                              0, &status, way.in_memory ? &memory : nullptr);
  Bench::Require(status == 0, "opening");
  auto const store = [&root](IOD_Msg& msg) {
    Bench::Require(root.Store(&msg, false, 0, 0, nullptr, 0, nullptr, nullptr, nullptr) == 0, "storing");
  };
  double first = 0;
  for (int const point : points) {
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    while (number < point)
      store(*Phantom::Make(Numbered(studies, ++number)));
    Util_FileSystem::SetDurability(way.durability);
    std::vector<std::unique_ptr<IOD_Msg>> next;
    for (int i = 0; i <= Bench::kRuns; ++i)
      next.push_back(Phantom::Make(Numbered(studies, ++number)));
    Counting counting;
    std::size_t run = 0;
    double const time = Bench::Median([&] { store(*next[run++]); });
    if (first == 0) first = time;
    std::printf("%-10s %-8s %8d %12.1f %8.2f %14ld\n", way.name, studies ? "studies" : "images", point, time,
                time / first, counting.bytes / long(run));
  }
}

} // namespace

void Bench::Standard(std::string const& base) {
  std::printf("\nStore through one root object, standard structure (us per store, median of %d)\n", kRuns);
  std::printf("%-10s %-8s %8s %12s %8s %14s\n", "", "", "stored", "time", "growth", "bytes written");
  for (Way const& way : {Way{"relaxed", Util_Durability::Relaxed, false}, Way{"durable", Util_Durability::Full, false},
                         Way{"in memory", Util_Durability::Relaxed, true}}) {
    Grow(base, way, false, {10, 1000, 10000});
    Grow(base, way, true, {10, 100, 1000});
  }
}
