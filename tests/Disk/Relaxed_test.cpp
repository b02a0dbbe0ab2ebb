#include "support/FileSetFixture.h"

#include <Disk/Disk_CacheRepository.h>
#include <future>
#include <infra/I18n.h>

namespace fs = std::filesystem;

struct SyncsOfThread : Util_FileSystemInterface {
  SyncsOfThread() { SetCurrent(this); }
  ~SyncsOfThread() override { SetCurrent(nullptr); }
  int Fsync(int fd) override { return ++count, Util_FileSystemInterface::Fsync(fd); }
  int Fdatasync(int fd) override { return ++count, Util_FileSystemInterface::Fdatasync(fd); }
  int Syncfs(int fd) override { return ++count, Util_FileSystemInterface::Syncfs(fd); }
  static inline thread_local int count = 0;
};

class RelaxedTest : public BothStructuresTest {
protected:
  std::unique_ptr<IOD_Msg> StoreNew(int image, Util_Durability durability) {
    auto object = Example({.image = image});
    auto const root = Open();
    root->SetDurability(durability);
    EXPECT_EQ(Store(*root, *object), 0);
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
      ExpectSound(true);
      Clear();
    }
}

TEST_P(RelaxedTest, AnEpochEndsWithASyncOrAReboot) {
  StoreNew(1, Util_Durability::Full);
  StoreNew(2, Util_Durability::Relaxed);
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

// Whatever the process's is: in two threads, and in the middle of another's operation.
TEST_P(RelaxedTest, EachRootHasADurabilityOfItsOwn) {
  for (auto const process : {Util_Durability::Relaxed, Util_Durability::Full}) {
    Util_FileSystem::SetDurability(process);
    SyncsOfThread const counting;
    TempDirectory other, third;
    auto const last_store = [&](std::string const& folder, Util_Durability own) {
      int before = 0;
      Disk_RootDirectoryFile root(folder.c_str(), Disk_StoreParams(structure), 0, &before, nullptr);
      root.SetDurability(own);
      for (int image = 1; image <= 9; ++image, before = std::exchange(SyncsOfThread::count, 0))
        EXPECT_EQ(Store(root, *Example({.image = image})), 0);
      return before;
    };
    auto relaxed = std::async(std::launch::async, [&] { return last_store(Prefix(), Util_Durability::Relaxed); });
    EXPECT_GT(last_store(other.Path(), Util_Durability::Full), 0);
    EXPECT_EQ(relaxed.get(), 0);
    EXPECT_TRUE(fs::exists(At("RELAXED")) && !fs::exists(other / "RELAXED"));
    Disk_CacheRepository cache;
    cache.SetPath(FromUTF8(third.Path().c_str()));
    if (process == Util_Durability::Relaxed) cache.SetDurability(Util_Durability::Full);
    auto const root = Open();
    root->SetDurability(Util_Durability::Relaxed);
    root->SetObjectDone([&] { EXPECT_EQ(cache.Store(Example().get(), true), 0); });
    EXPECT_EQ(cache.Construct(), 0);
    Dicom_LO const id = Example()->GetPatientID(), issuer = Example()->GetIssuerOfPatientID();
    EXPECT_EQ(root->ChangePatientsName(id, issuer, Dicom_PN("Other"), LO_NULL, LO_NULL), structure ? -1 : 0);
    EXPECT_EQ(fs::exists(third / "DICOMDIR"), !structure);
    EXPECT_FALSE(fs::exists(third / "RELAXED"));
    Clear();
  }
}

FOR_BOTH_STRUCTURES(RelaxedTest);
