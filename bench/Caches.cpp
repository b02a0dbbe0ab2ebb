// Admission to a cache of few and of many objects, and what its cleaning takes.
#include "FileSet.h"

#include <Disk/Disk_CacheRepository.h>
#include <fstream>
#include <infra/I18n.h>
#include <infra/Util_Cfg.h>
#include <thread>

namespace {

using namespace Bench;

constexpr int kStudies = 700;

class Cache {
public:
  Cache(std::string const& base, int studies, int images) : folder_(base), studies_(studies) {
    {
      auto const root = Open(folder_.Path());
      Util_FileSystem::SetDurability(Util_Durability::Relaxed);
      for (int study = 1; study <= studies; ++study)
        for (int image = 1; image <= images; ++image)
          Store(*root, Numbered(study, image));
      Require(root->Sync() == 0, "syncing");
    }
    repository_.SetPath(FromUTF8(folder_.Path().c_str()));
    Require(repository_.Construct() == 0, "opening the cache");
  }
  /// What is measured at first is measured once more, later than a step of the file system's times.
  void WarmUp() {
    for (int i = 0; i < 2; ++i) {
      AdmitNext();
      std::this_thread::sleep_for(std::chrono::seconds(3));
      repository_.FreeSpaceKB();
    }
  }
  void AdmitNext() {
    Require(repository_.Store(Phantom::Make(Numbered(studies_ + 1, ++image_)).get(), false) == 0, "admitting");
  }
  void Delete(int study) {
    Require(repository_.DeleteStudyByInstanceUID(Phantom::StudyUid(Numbered(study, 1))) == 0, "deleting");
  }
  void Clean(int studies) {
    repository_.SetThreshold(100); // so that those of today may go
    Require(repository_.AutoCleanNStudies(studies) == 0, "cleaning");
  }

private:
  static Phantom::Object Numbered(int study, int image) {
    return {.patient = (study + 4) / 5, .study = study, .image = image, .size = 16};
  }

  Folder folder_;
  Disk_CacheRepository repository_;
  int studies_, image_ = 0;
};

void Admission(Scope const& scope) {
  int const many = scope.quick ? 30 : 300;
  Progress("caches of " + std::to_string(kStudies) + " studies of 2 and " + std::to_string(many) + " objects");
  Cache small(scope.base, kStudies, 2), large(scope.base, kStudies, many);
  Settle();
  Util_FileSystem::SetDurability(Util_Durability::Full);
  small.WarmUp();
  large.WarmUp();
  Pair const took = MedianOfTurns(
      2 * kTurns, [&] { small.AdmitNext(); }, [&] { large.AdmitNext(); });
  Report("cache", "durable admission", "2 objects a study", kStudies, took.first);
  Report("cache", "durable admission", "more objects a study", kStudies * many, took.second);
}

void Cleaning(Scope const& scope) {
  constexpr int kGoing = 10, kImagesEach = 50, kRuns = 5, kAll = 3 * kGoing * (kRuns + 1);
  Progress("cleaning of a cache");
  Cache cache(scope.base, kAll, kImagesEach);
  cache.WarmUp();
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  int study = kAll; // the newest, which cleaning gives up last
  Settle();
  Pair const took = MedianOfTurns(
      kRuns,
      [&] {
        for (int i = 0; i < kGoing; ++i)
          cache.Delete(study--);
      },
      [&] { cache.Clean(kGoing); });
  Report("cache", "a study of 50 objects goes", "delete", kGoing, took.first / kGoing);
  Report("cache", "a study of 50 objects goes", "cleaning", kGoing, took.second / kGoing);
}

} // namespace

void Bench::Caches(Scope const& scope) {
  {
    Folder const folder(scope.base);
    std::string const path = folder.Path() + "/cache.yaml";
    std::ofstream(path) << "push: {max_cached_studies: 0, max_repository_size_mb: 1000000, "
                           "max_repository_hd_percentage: 100}\n";
    Require(Util_Cfg::Load(path.c_str()) == 0, "configuring");
  }
  Cleaning(scope);
  Admission(scope);
  Util_Cfg::Clear();
}
