// Stores through one root object of the standard structure, beside the bare writing of the same bytes.
#include "FileSet.h"
#include "Limits.h"

#include <Disk/Disk_StorageStrategy.h>
#include <functional>
#include <set>

namespace {

using namespace Bench;

/// The real file system, and what is written to the redo record and the DICOMDIR.
class Recorder : public Util_FileSystemInterface {
public:
  Recorder() { SetCurrent(this); }
  ~Recorder() override { SetCurrent(nullptr); }

  int Open(char const* path, int flags, mode_t mode) override {
    int const fd = Util_FileSystemInterface::Open(path, flags, mode);
    opened_.insert(fd);
    return fd;
  }
  ssize_t Pwrite(int fd, void const* data, size_t n, off_t at) override {
    ssize_t const count = Util_FileSystemInterface::Pwrite(fd, data, n, at);
    bool const is_open_long = opened_.count(fd) == 0; // the redo record's file, and the DICOMDIR
    bool const is_redo = std::string_view(static_cast<char const*>(data), n).starts_with("DISKREDO");
    if (is_redo) redo += std::size_t(count);
    if (is_open_long && !is_redo) changed.push_back({std::size_t(at), std::size_t(count)});
    return count;
  }

  std::size_t redo = 0;
  std::vector<StandardLimit::Extent> changed;

private:
  std::set<int> opened_;
};

void Measure(std::string const& what, long n, Disk_RootDirectoryFile& root, bool in_memory,
             std::function<Phantom::Object()> const& next_place) {
  for (Util_Durability const durability : {Util_Durability::Relaxed, Util_Durability::Full}) {
    std::vector<std::unique_ptr<IOD_Msg>> next(kTurns + 2);
    for (auto& object : next)
      object = Phantom::Make(next_place());
    Util_FileSystem::SetDurability(durability);
    Store(root, *next[0]); // the first relaxed one keeps a copy of the DICOMDIR
    auto recorder = std::make_unique<Recorder>();
    Phantom::Object const recorded = next_place();
    Store(root, *Phantom::Make(recorded));
    std::size_t const redo = recorder->redo;
    std::vector<StandardLimit::Extent> const changed = recorder->changed;
    recorder.reset();
    Require(in_memory || (redo > 0 && !changed.empty()), "recording a store");
    StandardLimit limit(root.GetFileSetPrefix(), PathOf(root, recorded), redo, changed);
    Settle();
    std::size_t turn = 0;
    bool const durable = durability == Util_Durability::Full;
    Pair const took = MedianOfTurns(
        kTurns, [&] { Store(root, *next[++turn]); }, [&] { limit.Write(durable); });
    std::string const area = std::string("store, standard, ") + (in_memory ? "in memory" : NameOf(durability));
    Report(area, what, "ours", n, took.first);
    if (in_memory) return;
    Report(area, what, "bare", n, took.second);
  }
}

/// Behind `n` objects, in turns with the first ones of another file-set: the disk changes its mind within seconds.
void Flat(Scope const& scope, long n, Disk_RootDirectoryFile& large, int next) {
  constexpr int kFirst = 10;
  Folder const folder(scope.base);
  auto const small = Open(folder.Path(), kNative | Disk_StoreParams::STANDARD_STRUCTURE);
  Fill(*small, kFirst, Usual);
  std::vector<std::unique_ptr<IOD_Msg>> behind, first;
  for (int i = 0; i <= kTurns; ++i) {
    behind.push_back(Phantom::Make(Usual(next + i)));
    first.push_back(Phantom::Make(Usual(kFirst + i)));
  }
  Settle();
  std::size_t turn = 0;
  Pair const took = MedianOfTurns(
      kTurns, [&] { Store(large, *behind[turn]); }, [&] { Store(*small, *first[turn++]); });
  Report("store, standard, relaxed", "objects, in turns", "ours", n, took.first);
  Report("store, standard, relaxed", "objects, in turns", "ours, the first ones", n, took.second);
}

void Grow(Scope const& scope, std::string const& what, bool in_memory, std::vector<int> const& points,
          Phantom::Object (*place)(int)) {
  Folder const folder(scope.base);
  Disk_MemoryStorageStrategy memory;
  auto const root = Open(folder.Path(), kNative | Disk_StoreParams::STANDARD_STRUCTURE, in_memory ? &memory : nullptr);
  int stored = 0;
  for (int const n : points) {
    Progress(std::string("standard, ") + (in_memory ? "in memory, " : "") + std::to_string(n) + " " + what);
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    while (stored < n)
      Store(*root, place(stored++));
    Measure(what, n, *root, in_memory, [&] { return place(stored++); });
  }
  if (place == Usual && !in_memory) Flat(scope, points.back(), *root, stored);
}

} // namespace

void Bench::StandardStores(Scope const& scope) {
  std::vector<int> const points = scope.quick ? std::vector{10, 1000} : std::vector{10, 1000, 10000, 20000};
  Grow(scope, "objects", false, points, Usual);
  Grow(scope, "objects", true, {10, 1000}, Usual);
  Grow(scope, "images of one series", false, points, [](int i) { return Phantom::Object{.image = i + 1}; });
  Grow(scope, "studies", false, {10, scope.quick ? 100 : 1000},
       [](int i) { return Phantom::Object{.patient = i / 2 + 1, .study = i + 1}; });
}
