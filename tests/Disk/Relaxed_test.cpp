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
  /// The machine starts anew.
  void Reboot() const {
    std::fstream boot(At("RELAXED/BOOT"), std::ios::in | std::ios::out);
    boot << "00000000-0000";
  }
};

// Records outlive what they lead to: a killed delete's, or after a power cut.
TEST_P(RelaxedTest, WhatIsGoneTakesNoStoreAlong) {
  for (bool const by_power_cut : {false, true})
    for (std::string const name :
         {"DICOMDIR", "SA100000/DIRFILE", "SA100000/S3000000/DIRFILE", "SA100000/S3000000", "SA100000"}) {
      if (structure && name != "DICOMDIR") continue;
      StoreNew(1, by_power_cut ? Util_Durability::Relaxed : Util_Durability::Full);
      SCOPED_TRACE(name);
      fs::remove_all(At(name));
      if (by_power_cut) Reboot();
      LogCapture log(4);
      EXPECT_TRUE(structure || Ask(*Open(), IMAGE, {{kSopUid, ""}}).empty());
      EXPECT_TRUE(Fetch(*Open(), Uids(*StoreNew(1, Util_Durability::Full))));
      EXPECT_TRUE(log.Count(4, At(name)) > 0) << "nothing tells what is gone";
      ExpectNoDamage();
      Clear();
    }
}

TEST_P(RelaxedTest, AnEpochSyncsOnceAndEndsWithASyncOrAReboot) {
  StoreNew(1, Util_Durability::Full);
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  auto const root = Open();
  ASSERT_EQ(Store(*root, *Example({.image = 2})), 0);
  {
    FaultyFileSystem counting;
    EXPECT_EQ(Store(*root, *Example({.image = 3})), 0);
    EXPECT_EQ(counting.calls["Fsync"] + counting.calls["Fdatasync"] + counting.calls["Syncfs"], 0);
  }
  auto const last = StoreNew(4, Util_Durability::Full);
  EXPECT_FALSE(fs::exists(At("RELAXED/DICOMDIR"))) << "the durable store makes the copy superfluous";
  for (bool const reboots : {false, true}) {
    EXPECT_EQ(reboots ? Open() == nullptr : Open()->Sync(), 0);
    EXPECT_FALSE(fs::exists(At("RELAXED")));
    EXPECT_TRUE(Fetch(*Open(), Uids(*last)));
    StoreNew(5, Util_Durability::Relaxed);
    Reboot();
    EXPECT_EQ(Check().findings.at(0).kind, "recovery-pending");
  }
}

INSTANTIATE_TEST_SUITE_P(, RelaxedTest, kBothStructures, StructureName);
