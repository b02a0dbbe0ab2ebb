// What we write is read by tools that aren't ours, without error or warning. Skipped where they aren't installed.
#include "support/FileSetFixture.h"
#include "support/Readers.h"

using JudgesTest = BothStructuresTest;
INSTANTIATE_TEST_SUITE_P(Structures, JudgesTest, kBothStructures, StructureName);

TEST_P(JudgesTest, DirectoryFilesAndObjectsAreReadWithoutErrorOrWarning) {
  int patient = 0;
  std::set<std::string> uids;
  for (auto const kind : {Phantom::Kind::CT, Phantom::Kind::MR, Phantom::Kind::US, Phantom::Kind::MultiFrame,
                          Phantom::Kind::PR, Phantom::Kind::SR})
    for (unsigned flags : {0u, unsigned(Disk_StoreParams::STORE_NATIVE)}) {
      auto msg = Phantom::Make(
          {.kind = kind, .patient = ++patient, .size = 16, .charset = Phantom::Charset::Japanese, .key_image = "Y"});
      ASSERT_EQ(Store(*Open(flags), *msg, false, true), 0);
      uids.insert(msg->GetSOPInstanceUID().GetText());
    }
  if (structure) ExpectMedium(Prefix(), uids);
  if (!HasReaders()) GTEST_SKIP() << "dcmdump (dcmtk) and gdcmdump (libgdcm-tools) aren't installed";
  int directories = 0;
  for (auto const& [name, size] : Files()) {
    std::string const base = name.substr(name.rfind('/') + 1);
    if (base == "LOCKFILE" || base == "VERSION") continue;
    directories += base == "DIRFILE" || base == "DICOMDIR";
    ExpectReadersTake(At(name));
  }
  EXPECT_EQ(directories, structure ? 1 : 1 + 2 * patient);
}
