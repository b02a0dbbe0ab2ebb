#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

#include <infra/Util_FileSystem.h>

namespace fs = std::filesystem;

class RelaxedTest : public BothStructuresTest {
protected:
  ~RelaxedTest() override { Util_FileSystem::SetDurability(Util_Durability::Full); }

  std::unique_ptr<IOD_Msg> StoreNew(int image, Util_Durability durability) {
    auto object = Example({.image = image});
    Util_FileSystem::SetDurability(durability);
    EXPECT_EQ(Store(*Open(), *object), 0);
    Util_FileSystem::SetDurability(Util_Durability::Full);
    return object;
  }
  /// As a power cut may leave them: the bytes that weren't synced are gone.
  void Tear(std::string const& name) const {
    auto const size = fs::file_size(At(name));
    fs::resize_file(At(name), size / 2);
    fs::resize_file(At(name), size);
  }
  /// The machine starts anew.
  void Reboot() const {
    std::fstream boot(At("RELAXED/BOOT"), std::ios::in | std::ios::out);
    boot << "00000000-0000";
  }
};

TEST_P(RelaxedTest, WhatWasDurableSurvivesAPowerCut) {
  auto const durable = StoreNew(1, Util_Durability::Full);
  auto const lost = StoreNew(2, Util_Durability::Relaxed);
  ASSERT_TRUE(fs::exists(At("RELAXED/DICOMDIR")));
  for (auto const& [name, size] : Files())
    if (!name.starts_with("RELAXED") && (name.ends_with("DICOMDIR") || name.ends_with("DIRFILE"))) Tear(name);
  Reboot();
  auto root = Open();
  ASSERT_TRUE(root);
  EXPECT_TRUE(Fetch(*root, Uids(*durable)));
  EXPECT_FALSE(Fetch(*root, Uids(*lost)));
  EXPECT_FALSE(fs::exists(At("RELAXED")));
  EXPECT_EQ(Store(*root, *Example({.image = 2})), 0);
  ExpectNoDamage();
}

TEST_P(RelaxedTest, ATornRecordIsNoObstacle) {
  auto const durable = StoreNew(1, Util_Durability::Full), torn = StoreNew(2, Util_Durability::Relaxed);
  std::string const uid = torn->GetSOPInstanceUID().GetText();
  int tears = 0;
  for (auto const& [name, size] : Files()) {
    if (!name.ends_with("DICOMDIR") && !name.ends_with("DIRFILE")) continue;
    std::string const bytes = directory.Read(name);
    std::size_t const at = bytes.rfind(uid);
    if (at == bytes.npos) continue;
    fs::resize_file(At(name), at + uid.size() / 2); // the last block wasn't written
    fs::resize_file(At(name), bytes.size());
    ++tears;
  }
  EXPECT_EQ(tears, 1);
  Reboot();
  EXPECT_EQ(Store(*Open(), *Example({.image = 2})), 0);
  EXPECT_TRUE(Fetch(*Open(), Uids(*durable)));
  EXPECT_TRUE(Fetch(*Open(), Uids(*torn)));
  ExpectNoDamage();
}

TEST_P(RelaxedTest, WholeFilesOutliveAReboot) {
  StoreNew(1, Util_Durability::Full);
  auto const relaxed = StoreNew(2, Util_Durability::Relaxed);
  Reboot();
  EXPECT_EQ(Check().findings.at(0).kind, "recovery-pending");
  EXPECT_TRUE(Fetch(*Open(), Uids(*relaxed)));
  EXPECT_FALSE(fs::exists(At("RELAXED")));
  ExpectSound();
}

TEST_P(RelaxedTest, AFolderThatIsGoneTakesNoStoreAlong) {
  for (int const depth : {1, 0}) { // a series', then a study's: the records above them outlived the power cut
    StoreNew(1, Util_Durability::Relaxed);
    std::vector<fs::path> gone;
    for (auto entry = fs::recursive_directory_iterator(At(".")); entry != fs::recursive_directory_iterator(); ++entry)
      if (entry->is_directory() && entry.depth() == depth && entry->path().filename() != "RELAXED")
        gone.push_back(entry->path());
    ASSERT_EQ(gone.size(), 1u);
    fs::remove_all(gone[0]);
    Reboot();
    EXPECT_TRUE(Fetch(*Open(), Uids(*StoreNew(1, Util_Durability::Full))));
  }
  ExpectNoDamage();
}

TEST_P(RelaxedTest, SyncEndsTheEpoch) {
  auto const first = StoreNew(1, Util_Durability::Relaxed), second = StoreNew(2, Util_Durability::Relaxed);
  ExpectSound();
  EXPECT_EQ(Open()->Sync(), 0);
  EXPECT_FALSE(fs::exists(At("RELAXED")));
  EXPECT_TRUE(Fetch(*Open(), Uids(*second)));
  ExpectSound();
}

TEST_P(RelaxedTest, OnlyTheFirstStoreSyncs) {
  StoreNew(1, Util_Durability::Full);
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  auto const root = Open();
  ASSERT_EQ(Store(*root, *Example({.image = 2})), 0);
  {
    FaultyFileSystem counting;
    EXPECT_EQ(Store(*root, *Example({.image = 3})), 0);
    EXPECT_EQ(counting.calls["Fsync"] + counting.calls["Fdatasync"] + counting.calls["Syncfs"], 0);
  }
  StoreNew(4, Util_Durability::Full);
  EXPECT_FALSE(fs::exists(At("RELAXED/DICOMDIR"))) << "the durable store makes the copy superfluous";
}

INSTANTIATE_TEST_SUITE_P(, RelaxedTest, kBothStructures, StructureName);
