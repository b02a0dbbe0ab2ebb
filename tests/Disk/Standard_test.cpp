// Store, query and fetch in the standard structure: what differs from the private one, and what meets there.
#include "support/FileSetFixture.h"
#include "support/Kill.h"

#include <Disk/Disk_DicomDir.h>
#include <Disk/Disk_StorageStrategy.h>

namespace {

class StandardTest : public FileSetTest {
protected:
  StandardTest() { structure = Disk_StoreParams::STANDARD_STRUCTURE; }

  void ExpectWhole(std::size_t images) {
    DicomdirWalk const walk(At("DICOMDIR"));
    EXPECT_EQ(walk.problems, std::vector<std::string>());
    EXPECT_EQ(walk.Level(3).size(), images);
  }

  static int Images(Disk_RootDirectoryFile& root, Phantom::Object const& of) {
    return int(FileSetTest::Images(root, Phantom::StudyUid(of)).size());
  }

  std::string Content() const { return directory.Read("DICOMDIR"); }
};

} // namespace

// Its series and image have records already when the modality turns out to find no room.
TEST_F(StandardTest, ModalitiesBeyondTheirBudgetLeaveNothing) {
  for (bool const in_memory : {false, true}) {
    Clear();
    Disk_MemoryStorageStrategy memory;
    auto root = Open(Disk_StoreParams::STORE_NATIVE, in_memory ? &memory : nullptr);
    auto const with_modality = [&](int series, std::string const& modality) {
      auto msg = Example({.series = series});
      msg->SetModality(Dicom_CS(modality));
      return Store(*root, *msg);
    };
    int stored = 0;
    while (stored < 12 && with_modality(stored + 1, "MODALITY_NO_" + std::to_string(11 + stored)) == 0)
      ++stored;
    EXPECT_EQ(stored, 6) << "of 14 characters and a separator in 100 bytes";
    EXPECT_EQ(with_modality(stored + 1, "M"), 0) << "the refused series, with a modality that fits";
    EXPECT_EQ(with_modality(1, "MODALITY_NO_11"), 0) << "a known series of a study with full budget";
    EXPECT_TRUE(!in_memory || memory.Flush());
    root.reset();
    ExpectWhole(std::size_t(stored) + 1);
  }
}

/// A strategy of the caller's own, with the operations that it can't do without.
struct OwnStrategy : Disk_StorageStrategy {
  int Write(void const* data, unsigned size) override { return image.Write(data, size); }
  long LSeek(long offset, int whence) override { return image.LSeek(offset, whence); }
  bool Flush() override { return image.InitFD(GetFd()), image.Flush(); }
  bool HasPendingData() override { return image.HasPendingData(); }
  int UpdateFromFile() override { return image.InitFD(GetFd()), image.UpdateFromFile(); }
  Disk_MemoryStorageStrategy image{4096};
};

TEST_F(StandardTest, AnyStrategyServesManyStudiesBetweenFlushes) {
  std::optional<OwnStrategy> strategy(std::in_place);
  auto root = Open(Disk_StoreParams::STORE_NATIVE, &*strategy);
  int stored = 0;
  auto const store = [&](int study, int series) {
    return Store(*root, *Example({.study = study, .series = series, .image = ++stored}));
  };
  for (int round = 1; round <= 3; ++round) {
    for (int study : {1, 2, 3, 1, 2})
      for (int series : {1, 2})
        ASSERT_EQ(store(study, series), 0);
    EXPECT_EQ(Images(*root, {.study = 1}), 4 * round);
    EXPECT_TRUE(strategy->HasPendingData());
    EXPECT_TRUE(round == 2 || strategy->Flush());
    if (round != 2) ExpectWhole(std::size_t(stored));
  }
  // reads and writes go by the strategy that is set, though another one stood where it does
  for (bool const has_strategy : {false, true}) {
    root->SetWritingStrategy(nullptr);
    strategy.reset();
    if (has_strategy) root->SetWritingStrategy(&strategy.emplace());
    EXPECT_EQ(store(3, 3), 0);
    EXPECT_EQ(Images(*root, {.study = 3}), 7 + has_strategy);
    EXPECT_TRUE(!has_strategy || strategy->Flush());
    ExpectWhole(std::size_t(stored));
  }
  // one that holds what isn't this file's waits for its Flush
  OwnStrategy another;
  another.Write("x", 1);
  root->SetWritingStrategy(&another);
  EXPECT_EQ(Studies(*root), -1);
  // private directory files are written without one
  root.reset();
  Clear();
  structure = 0;
  for (int const study : {1, 2})
    ASSERT_EQ(Store(*Open(0, study == 2 ? &another : nullptr), *Example({.study = study})), 0);
  EXPECT_EQ(Studies(*Open()), 2);
}

// What a killed process had committed and not yet applied: readers who can't write see it too.
TEST_F(StandardTest, ReadOnlyRootsSeeWhatAKilledProcessCommitted) {
  auto live = Open();
  ASSERT_EQ(Store(*live, *Example()), 0);
  auto reader = Open(Disk_StoreParams::READ_ONLY);
  ASSERT_EQ(Images(*reader, {}), 1);
  std::string const before = Content();
  ASSERT_EQ(InChild([this] {
              FaultyFileSystem const killing([](std::string_view call, char const* path) {
                if (call == "Pwrite" && !std::string_view(path).ends_with(".redo")) _exit(kKilled);
                return 0;
              });
              return Store(*Open(), *Example({.image = 2}));
            }),
            kKilled);
  EXPECT_EQ(Content(), before);
  std::filesystem::copy_file(At("DICOMDIR.redo"), At("saved.redo"));
  EXPECT_EQ(Images(*reader, {}), 2);
  EXPECT_TRUE(Fetch(*reader, Uids(*Example({.image = 2}))));
  EXPECT_EQ(Content(), before) << "a reader writes nothing";
  EXPECT_EQ(Images(*live, {}), 2) << "a live process completes it";
  ExpectWhole(2);
  // one of another file: the place that it writes to lies beyond the end
  std::string const redo = directory.Read("saved.redo"), now = Content();
  ASSERT_FALSE(redo.empty());
  directory.Write("DICOMDIR.redo", redo);
  directory.Write("DICOMDIR", now.substr(0, 400));
  EXPECT_EQ(Disk_DicomDir::Replay(Prefix().c_str()), 0);
  EXPECT_EQ(Content().size(), 400u);
  directory.Write("DICOMDIR", now);
  // one that isn't whole never had any effect
  directory.Write("DICOMDIR.redo", "DISKREDO torn");
  EXPECT_EQ(Images(*reader, {}), 2);
  EXPECT_EQ(Images(*live, {}), 2);
  EXPECT_FALSE(std::filesystem::exists(At("DICOMDIR.redo")));
  // one without its DICOMDIR ends no operation in a loop
  std::filesystem::remove(At("DICOMDIR"));
  directory.Write("DICOMDIR.redo", "x");
  EXPECT_EQ(Studies(*live), -1);
  EXPECT_EQ(Store(*live, *Example()), -1);
}

// A medium as others make it: a lower-case name, and no lock file, versions or permission to write.
TEST_F(StandardTest, LowercaseMediumIsReadAndWritten) {
  ASSERT_EQ(Store(*Open(), *Example()), 0);
  for (auto const& [name, size] : Files()) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    std::filesystem::create_directories(std::filesystem::path(At(lower)).parent_path());
    std::filesystem::rename(At(name), At(lower));
    if (lower.ends_with("version") || lower == "lockfile") std::filesystem::remove(At(lower));
  }
  auto const files = Files();
  auto reader = Open(Disk_StoreParams::READ_ONLY);
  EXPECT_EQ(Images(*reader, {}), 1);
  EXPECT_TRUE(Fetch(*reader, Uids(*Example())));
  EXPECT_EQ(Files(), files) << "no lock file, no version";
  ASSERT_EQ(Store(*Open(), *Example({.image = 2})), 0);
  EXPECT_TRUE(Fetch(*Open(), Uids(*Example({.image = 2}))));
  EXPECT_FALSE(std::filesystem::exists(At("DICOMDIR")));
}

// A stored object costs the same writes and nothing read, however many came before it.
TEST_F(StandardTest, CallsPerStoreStayTheSame) {
  struct {
    unsigned with;
    bool in_memory;
    Util_Durability durability;
    int contents, folders, new_folders; // syncs: of folders, and of those of a first object besides
  } const cases[] = {{structure, false, Util_Durability::Full, 3, 1, 2}, // object, redo record, DICOMDIR
                     {structure, true, Util_Durability::Full, 1, 1, 2},
                     {structure, false, Util_Durability::Relaxed, 0, 0, 0},
                     {0, false, Util_Durability::Full, 4, 3, 0}, // object and three directory files, and where they are
                     {0, false, Util_Durability::Relaxed, 0, 0, 0}};
  for (auto const& [with, in_memory, durability, contents, folders, new_folders] : cases) {
    SCOPED_TRACE(&with - &cases[0].with);
    Clear();
    structure = with;
    Disk_MemoryStorageStrategy memory;
    auto root = Open(Disk_StoreParams::STORE_NATIVE, in_memory ? &memory : nullptr);
    std::map<std::string_view, int> early;
    ASSERT_EQ(Store(*root, *Example({.patient = 4})), 0);
    root->SetDurability(durability);
    ASSERT_EQ(Store(*root, *Example({.patient = 4, .image = 2})), 0); // begins an epoch
    for (int image = 1; image <= 20; ++image) {                       // 10 and 20 meet the names of 1 and 2
      FaultyFileSystem counting;
      ASSERT_EQ(Store(*root, *Phantom::Make({.patient = 5, .image = image, .size = 16})), 0);
      if (image == 10) early = counting.calls;
      EXPECT_TRUE(image != 20 || counting.calls == early);
      if (image == 1 && !with) continue;
      EXPECT_EQ(counting.calls["Fdatasync"], contents) << image;
      EXPECT_EQ(counting.calls["Fsync"], folders + (image == 1 ? new_folders : 0)) << image;
      EXPECT_EQ(counting.calls["Syncfs"], 0);
    }
    EXPECT_TRUE(!in_memory || memory.Flush());
    EXPECT_EQ(Images(*Open(), {.patient = 5}), 20);
  }
}

TEST_F(StandardTest, AnImageWithoutRoomStaysWhole) {
  struct Strategy : Disk_MemoryStorageStrategy {
    bool has_room = true;
    bool Reserve(unsigned end) override { return has_room && Disk_MemoryStorageStrategy::Reserve(end); }
  } strategy;
  EXPECT_EQ(Studies(*Open()), 0);
  {
    FaultyFileSystem watched;
    auto root = Open(Disk_StoreParams::STORE_NATIVE, &strategy);
    EXPECT_EQ(watched.calls["Fsync"], 1) << "no power cut brings a redo record back";
    ASSERT_EQ(Store(*root, *Example()), 0);
    strategy.has_room = false;
    EXPECT_EQ(Store(*root, *Example({.image = 2})), -1);
    strategy.has_room = true;
    EXPECT_EQ(Store(*root, *Example({.image = 3})), 0);
    EXPECT_TRUE(strategy.Flush());
  }
  ExpectMedium(Prefix(), {ImageOf({}), ImageOf({.image = 3})});
}
