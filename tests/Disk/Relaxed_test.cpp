#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

namespace fs = std::filesystem;

class RelaxedTest : public BothStructuresTest {
protected:
  std::unique_ptr<IOD_Msg> StoreNew(int image, Util_Durability durability) {
    auto object = Example({.image = image});
    Util_FileSystem::SetDurability(durability);
    EXPECT_EQ(Store(*Open(), *object), 0);
    Util_FileSystem::SetDurability(Util_Durability::Full);
    return object;
  }
  /// As a power cut may leave directory files: the bytes that weren't synced are gone, from the middle of a text or of
  /// the file on. How many files that befell.
  int Tear(std::string const& text = {}) const {
    int torn = 0;
    for (auto const& [name, size] : Files()) {
      if (name.starts_with("RELAXED") || !(name.ends_with("DICOMDIR") || name.ends_with("DIRFILE"))) continue;
      std::size_t const at = text.empty() ? size / 2 : directory.Read(name).rfind(text);
      if (at == std::string::npos) continue;
      fs::resize_file(At(name), at + text.size() / 2);
      fs::resize_file(At(name), size);
      ++torn;
    }
    return torn;
  }
  /// The machine starts anew.
  void Reboot() const {
    std::fstream boot(At("RELAXED/BOOT"), std::ios::in | std::ios::out);
    boot << "00000000-0000";
  }
};

TEST_P(RelaxedTest, WhatWasDurableOutlivesAReboot) {
  enum Damage { None, Everywhere, InTheLastRecord };
  for (Damage const damage : {None, Everywhere, InTheLastRecord}) {
    SCOPED_TRACE(damage);
    auto const durable = StoreNew(1, Util_Durability::Full), relaxed = StoreNew(2, Util_Durability::Relaxed);
    ASSERT_TRUE(fs::exists(At("RELAXED/DICOMDIR")));
    std::string const last = relaxed->GetSOPInstanceUID().GetText();
    int const torn = damage == None ? 0 : damage == Everywhere ? Tear() : Tear(last);
    EXPECT_EQ(torn, damage == Everywhere && !structure ? 3 : int(damage != None));
    Reboot();
    EXPECT_TRUE(damage != None || Check().findings.at(0).kind == "recovery-pending");
    auto root = Open();
    ASSERT_TRUE(root);
    EXPECT_FALSE(fs::exists(At("RELAXED")));
    EXPECT_TRUE(Fetch(*root, Uids(*durable)));
    EXPECT_EQ(Fetch(*root, Uids(*relaxed)) != nullptr, damage == None);
    damage == None ? ExpectSound() : ExpectNoDamage();
    EXPECT_EQ(Store(*root, *Example({.image = 2})), 0);
    EXPECT_TRUE(Fetch(*Open(), Uids(*relaxed)));
    ExpectNoDamage();
    Clear();
  }
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
