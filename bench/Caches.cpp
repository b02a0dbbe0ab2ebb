// Admission to a cache of few and of many objects.
#include "Bench.h"
#include "Phantom.h"

#include <Disk/Disk_CacheRepository.h>
#include <fstream>
#include <infra/I18n.h>
#include <infra/Util_Cfg.h>
#include <infra/Util_FileSystem.h>
#include <thread>

namespace {

constexpr int kStudies = 700, kTurns = 41;

Phantom::Object Numbered(int study, int image) {
  return {.patient = (study + 4) / 5, .study = study, .image = image, .size = 16};
}

class Cache {
public:
  Cache(std::string const& base, int images) : folder_(base) {
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    int status = 0;
    Disk_RootDirectoryFile root(folder_.Path().c_str(), Disk_StoreParams(), 0, &status, nullptr);
    for (int study = 1; study <= kStudies; ++study)
      for (int image = 1; image <= images; ++image)
        Bench::Require(root.Store(Phantom::Make(Numbered(study, image)).get(), false, 0, 0, nullptr, 0, nullptr,
                                  nullptr, nullptr) == 0,
                       "storing");
    repository_.SetPath(FromUTF8(folder_.Path().c_str()));
    Bench::Require(repository_.Construct() == 0, "opening the cache");
  }
  /// What is measured at first is measured once more, later than a step of the file system's times.
  void WarmUp() {
    for (int i = 0; i < 2; ++i) {
      Admit(++image_);
      std::this_thread::sleep_for(std::chrono::seconds(3));
      repository_.FreeSpaceKB();
    }
  }
  void AdmitNext() { Admit(++image_); }

private:
  void Admit(int image) {
    auto const msg = Phantom::Make(Numbered(kStudies + 1, image));
    Bench::Require(repository_.Store(msg.get(), false) == 0, "admitting");
  }

  Bench::Folder folder_;
  Disk_CacheRepository repository_;
  int image_ = 0;
};

} // namespace

void Bench::Caches(std::string const& base) {
  {
    Folder const folder(base);
    std::string const path = folder.Path() + "/cache.yaml";
    std::ofstream(path) << "push: {max_cached_studies: 0, max_repository_size_mb: 1000000, "
                           "max_repository_hd_percentage: 100}\n";
    Require(Util_Cfg::Load(path.c_str()) == 0, "configuring");
  }
  std::printf("\nDurable store into a cache of %d studies (us per store, median of %d turns)\n", kStudies, kTurns);
  std::printf("%-28s %-28s %8s\n", "2 objects each", "300 objects each", "ratio");
  Cache few(base, 2), many(base, 300);
  Settle();
  Util_FileSystem::SetDurability(Util_Durability::Full);
  few.WarmUp();
  many.WarmUp();
  Pair const took = MedianOfTurns([&] { few.AdmitNext(); }, [&] { many.AdmitNext(); }, kTurns);
  std::printf("%-28.1f %-28.1f %8.2f\n", took.first, took.second, took.second / took.first);
  Util_Cfg::Clear();
}
