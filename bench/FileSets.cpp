// Stores into a series that grows, and queries over many studies.
#include "Bench.h"
#include "Phantom.h"

#include <Disk/Disk_RootDirectoryFile.h>
#include <infra/Util_FileSystem.h>

#include <memory>

namespace {

std::unique_ptr<Disk_RootDirectoryFile> Open(std::string const& folder) {
  int status = 0;
  auto root = std::make_unique<Disk_RootDirectoryFile>(folder.c_str(), Disk_StoreParams(Disk_StoreParams::STORE_NATIVE),
                                                       0, &status, nullptr);
  Bench::Require(status == 0, "opening");
  return root;
}

void Store(Disk_RootDirectoryFile& root, Phantom::Object const& object) {
  auto const msg = Phantom::Make(object);
  Bench::Require(root.Store(msg.get(), false, 0, 0, nullptr, 0, nullptr, nullptr, nullptr) == 0, "storing");
}

/// The bare writing of the same files: each under a temporary name, and renamed.
void Bare(std::string const& folder, std::vector<std::string> const& files, bool durable) {
  for (std::string const& name : files) {
    std::string const path = folder + "/" + name, temporary = path + ".tmp";
    auto const bytes = Util_FileSystem::ReadWholeFile(path.c_str());
    Bench::Require(bytes != nullptr, "reading bytes");
    std::string_view const parts[] = {{bytes->data(), bytes->size()}};
    Bench::Require(Util_FileSystem::WriteNewFile(temporary.c_str(), parts, durable) == 0, "writing bytes");
    Bench::Require(std::rename(temporary.c_str(), path.c_str()) == 0, "renaming");
    if (durable && name.find("/I") == std::string::npos)
      Bench::Require(Util_FileSystem::SyncDirectory(path.substr(0, path.rfind('/')).c_str()) == 0, "syncing");
  }
}

void GrowingSeries(std::string const& base, Util_Durability durability) {
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  Bench::Folder const folder(base);
  auto const root = Open(folder.Path());
  int image = 0;
  std::string study;
  for (int const stored : {10, 100, 1000}) {
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
    while (image < stored)
      Store(*root, {.image = ++image});
    Util_FileSystem::SetDurability(durability);
    std::vector<std::unique_ptr<IOD_Msg>> next;
    for (int i = 0; i <= Bench::kRuns; ++i)
      next.push_back(Phantom::Make({.image = ++image}));
    Bench::Settle();
    std::size_t run = 0;
    double const ours = Bench::Median([&] {
      Bench::Require(root->Store(next[run++].get(), false, 0, 0, nullptr, 0, nullptr, nullptr, nullptr) == 0,
                     "storing");
    });
    std::vector<std::string> files; // an object and the three directory files, of the sizes that they have now
    for (auto const& entry : std::filesystem::recursive_directory_iterator(folder.Path())) {
      std::string const name = std::filesystem::relative(entry.path(), folder.Path());
      if (name == "DICOMDIR" || name.ends_with("/DIRFILE") || name.ends_with("/I1000000")) files.push_back(name);
    }
    double const bare = Bench::Median([&] {
      Bench::Require(files.size() == 4, "four files"), Bare(folder.Path(), files, durability == Util_Durability::Full);
    });
    std::printf("%-10s %8d %12.1f %12.1f %8.2f\n", durability == Util_Durability::Full ? "durable" : "relaxed", stored,
                ours, bare, ours / bare);
  }
}

void Queries(std::string const& base) {
  constexpr int kStudies = 700;
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  Bench::Folder const folder(base);
  auto const root = Open(folder.Path());
  for (int study = 1; study <= kStudies; ++study)
    Store(*root, {.patient = (study + 4) / 5, .study = study, .size = 16});
  for (int image = 2; image <= 50; ++image)
    Store(*root, {.patient = 1, .study = 1, .image = image, .size = 16});

  SCL_QueryIdentifier all(SCL_QueryRetrieveLevel::STUDY);
  all.SetPatientsName(PN_NULL);
  all.SetPatientID(LO_NULL);
  all.SetStudyInstanceUID(UI_NULL);
  all.SetStudyDate(DA_NULL);
  all.SetModalitiesInStudy(CS_NULL);
  SCL_QueryIdentifier one = all;
  one.SetStudyInstanceUID(Phantom::StudyUid({.patient = 140, .study = 700}));
  SCL_QueryIdentifier images(SCL_QueryRetrieveLevel::IMAGE);
  images.SetStudyInstanceUID(Phantom::StudyUid({}));
  images.SetSeriesInstanceUID(Phantom::SeriesUid({}));
  images.SetSOPInstanceUID(UI_NULL);
  images.SetImageNumber(IS_NULL);

  auto const ask = [](Disk_RootDirectoryFile& from, SCL_QueryIdentifier const& identifier, int answers) {
    Dicom_Sequence results;
    Bench::Require(from.Query(identifier, 1, &results) == 0 && results.GetNItems() == answers, "querying");
  };
  std::printf("%-44s %10.1f\n", "study level, all of 700, warm", Bench::Median([&] { ask(*root, all, kStudies); }));
  std::printf("%-44s %10.1f\n", "study level, all of 700, new root object",
              Bench::Median([&] { ask(*Open(folder.Path()), all, kStudies); }));
  std::printf("%-44s %10.1f\n", "study level, by Study Instance UID, warm", Bench::Median([&] { ask(*root, one, 1); }));
  std::printf("%-44s %10.1f\n", "image level, a series of 50", Bench::Median([&] { ask(*root, images, 50); }));
}

} // namespace

void Bench::FileSets(std::string const& base) {
  std::printf("\nStore into a series that holds n images (us per store, median of %d)\n", kRuns);
  std::printf("%-10s %8s %12s %12s %8s\n", "", "n", "ours", "bare files", "ratio");
  GrowingSeries(base, Util_Durability::Relaxed);
  GrowingSeries(base, Util_Durability::Full);
  std::printf("\nQuery (us, median of %d)\n", kRuns);
  Queries(base);
}
