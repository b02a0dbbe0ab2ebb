// Stores into private file-sets that grow, beside the bare writing of the same bytes.
#include "FileSet.h"
#include "Limits.h"

#include <functional>

namespace {

using namespace Bench;
using Place = std::function<Phantom::Object(int)>;

/// Turns of our next store, of the objects at `place`, and of the bare writing of what it writes at that moment.
void Measure(std::string const& what, long n, Disk_RootDirectoryFile& root, Place place) {
  for (Util_Durability const durability : {Util_Durability::Relaxed, Util_Durability::Full}) {
    std::vector<std::unique_ptr<IOD_Msg>> next(kTurns + 2);
    for (int i = 0; auto& object : next)
      object = Phantom::Make(place(i++));
    Util_FileSystem::SetDurability(durability);
    Store(root, *next[0]);
    PrivateLimit limit(root.GetFileSetPrefix(), PathOf(root, place(0)));
    Settle();
    std::size_t turn = 0;
    bool const durable = durability == Util_Durability::Full;
    Pair const took = MedianOfTurns(
        kTurns, [&] { Store(root, *next[++turn]); }, [&] { limit.Write(durable); });
    std::string const area = std::string("store, private, ") + NameOf(durability);
    Report(area, what, "ours", n, took.first);
    Report(area, what, "bare", n, took.second);
    place = [place](int i) { return place(i + kTurns + 2); };
  }
}

void GrowingSeries(Scope const& scope) {
  Folder const folder(scope.base);
  auto const root = Open(folder.Path());
  int stored = 0;
  auto const place = [](int i) { return Phantom::Object{.image = i + 1}; };
  for (int const n : scope.quick ? std::vector{10, 1000} : std::vector{10, 1000, 10000}) {
    Progress("a series of " + std::to_string(n) + " images");
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    for (; stored < n; ++stored)
      Store(*root, place(stored));
    Measure("images of one series", n, *root, [&](int i) { return place(stored + i); });
    stored += 2 * (kTurns + 2);
  }
}

/// Of `images` each; what is measured goes into the last study, as objects come study by study.
void ManyStudies(Scope const& scope, std::string const& what, int studies, int images, long n) {
  Progress(std::to_string(studies) + " studies of " + std::to_string(images) + " images");
  Folder const folder(scope.base);
  auto const root = Open(folder.Path());
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  auto const place = [](int study, int image) {
    return Phantom::Object{.patient = (study + 1) / 2, .study = study, .image = image};
  };
  for (int study = 1; study <= studies; ++study)
    for (int image = 1; image <= images; ++image)
      Store(*root, place(study, image));
  Measure(what, n, *root, [&](int i) { return place(studies, images + i + 1); });
  if (images > 1)
    Measure(what + ", another study each time", n, *root,
            [&](int i) { return place(i % studies + 1, images + 1000 + i / studies); });
}

} // namespace

void Bench::PrivateStores(Scope const& scope) {
  GrowingSeries(scope);
  ManyStudies(scope, "studies", 7, 1, 7);
  ManyStudies(scope, "studies", 700, 1, 700);
  if (!scope.quick) ManyStudies(scope, "objects in 700 studies", 700, 20000 / 700 + 1, 20000);
}

/// A line in, a durable store, and a line out with its time, so that another process can take turns with us.
int Bench::StoreWhenAsked(Scope const& scope, int objects) {
  Folder const folder(scope.base);
  {
    // made elsewhere: what a moment ago held the directory files before isn't free for others yet
    Folder const maker(scope.base);
    Fill(*Open(maker.Path()), objects, Usual);
    std::filesystem::copy(maker.Path(), folder.Path(), std::filesystem::copy_options::recursive);
  }
  auto const root = Open(folder.Path());
  Settle();
  Util_FileSystem::SetDurability(Util_Durability::Full);
  for (int image = 1000; std::getchar() != EOF; ++image) {
    auto const next = Phantom::Make({.image = image});
    std::printf("%f\n", Microseconds([&] { Store(*root, *next); }));
    std::fflush(stdout);
  }
  return 0;
}
