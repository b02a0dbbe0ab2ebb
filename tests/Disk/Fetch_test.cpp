#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

#include <Disk/Disk_ObjectFile.h>

namespace {

class FetchTest : public FileSetTest {
protected:
  static SCL_MoveIdentifier ByFile(char const* id, Dicom_UI const& study = UI_NULL) {
    SCL_MoveIdentifier identifier;
    identifier.SetReferencedFileID(Dicom_CS(id));
    if (study != UI_NULL) identifier.SetStudyInstanceUID(study);
    return identifier;
  }

  std::string AccessDate() const {
    return RootRecord("STUDY")->Text(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE);
  }
};

} // namespace

TEST_F(FetchTest, BothRoadsGiveWhatWasStored) {
  for (unsigned flags : {unsigned(Disk_StoreParams::STORE_NATIVE), 0u}) {
    auto root = Open(flags);
    Phantom::Object const place{.study = int(flags) + 1};
    auto msg = Example(place);
    msg->SetStudyID(Dicom_SH(flags ? "A1" : "B1"));
    ASSERT_EQ(Store(*root, *msg), 0);
    EXPECT_EQ(msg->GetEncapsulatedSyntax(), flags ? UI_NULL : Dicom_UIDic::JPEG_LS_LOSSLESS);
    auto const by_uids = Fetch(*root, Uids(*msg));
    auto const by_file = Fetch(*root, ByFile(flags ? "SA100000\\S3000000\\I7000000" : "SB100000\\S3000000\\I7000000"));
    ASSERT_TRUE(by_uids && by_file);
    EXPECT_EQ(Dumped(*by_uids), Dumped(*msg));
    EXPECT_EQ(Dumped(*by_file), Dumped(*msg));
    EXPECT_FALSE(by_file->GetOriginalBuffer().empty());
  }
}

TEST_F(FetchTest, AccessDateOncePerChangeOfStudy) {
  auto root = Open();
  auto msg = Example();
  Util_Clock::SetNow(1700000000);
  ASSERT_EQ(Store(*root, *msg), 0);
  {
    FaultyFileSystem faulty([](std::string_view call, char const*) { return call == "Rename" ? EROFS : 0; });
    EXPECT_TRUE(Fetch(*Open(), Uids(*msg))) << "a date that can't be written fails nothing";
  }
  EXPECT_EQ(AccessDate(), "");
  ASSERT_TRUE(Fetch(*root, Uids(*msg)));
  std::string const first = AccessDate();
  EXPECT_EQ(first.substr(0, 8), "20231114");
  int const version = Version("");
  EXPECT_EQ(version, 2);
  Util_Clock::SetNow(1700086400);
  ASSERT_TRUE(Fetch(*root, Uids(*msg)));
  EXPECT_EQ(Version(""), version) << "the same study again";

  EXPECT_FALSE(Fetch(*Open(), ByFile("NOT\\THERE", msg->GetStudyInstanceUID())));
  EXPECT_GT(AccessDate(), first) << "a fetch that failed was an access";
  Util_Clock::SetNow(1600000000);
  ASSERT_TRUE(Fetch(*Open(), Uids(*msg)));
  EXPECT_GT(AccessDate(), first) << "a later date stays";
  LogCapture log;
  EXPECT_TRUE(Fetch(*Open(), ByFile("SA100000\\S3000000\\I7000000", Dicom_UI("1.2.3"))));
  EXPECT_EQ(log.Count(3, "Study not found (uid: <1.2.3>)."), 1);

  int const before = Version("");
  EXPECT_TRUE(Fetch(*Open(Disk_StoreParams::READ_ONLY), Uids(*msg)));
  EXPECT_TRUE(Fetch(*Open(), ByFile("SA100000\\S3000000\\I7000000")));
  EXPECT_EQ(Version(""), before) << "read-only, or no study named: nothing is written";
  // asked for as such it is set, whatever it was
  ASSERT_EQ(root->SetStudyAccessed(msg->GetStudyInstanceUID()), 0);
  EXPECT_EQ(AccessDate().substr(0, 4), "2020");
  std::filesystem::remove(At("VERSION"));
  FaultyFileSystem watched;
  EXPECT_TRUE(Fetch(*Open(), Uids(*msg)));
  EXPECT_EQ(watched.calls["Writev"] + watched.calls["Write"], 0) << "without VERSION two fetches might write at once";
}

TEST_F(FetchTest, FileNamesWithADotAreFoundUnderAnUnderscore) {
  std::filesystem::create_directories(At("D_R"));
  ASSERT_EQ(Phantom::Write({.size = 16}, At("D_R/A.B")), 0);
  auto root = Open();
  EXPECT_TRUE(Fetch(*root, ByFile("D_R\\A_B")));
  EXPECT_FALSE(Fetch(*root, ByFile("D_R\\AB")));
}

TEST_F(FetchTest, ObjectFileKeepsItsRules) {
  Disk_FileID const id(Prefix().c_str(), Dicom_CS("OBJ"), 0);
  auto msg = Example();
  EXPECT_EQ(Disk_ObjectFile(id).Store(msg.get()), -1) << "for reading only";
  IOD_Msg* none = nullptr;
  EXPECT_EQ(Disk_ObjectFile(id).Get(&none, nullptr), -1);
  for (std::uint16_t element : {0x0016, 0x0018}) {
    auto without = Example();
    without->Remove(Dicom_Tag(0x0008, element));
    EXPECT_EQ(Disk_ObjectFile(id, Disk_StoreParams()).Store(without.get()), -1);
  }
  EXPECT_TRUE(Files().empty());
  ASSERT_EQ(Disk_ObjectFile(id, Disk_StoreParams()).Store(msg.get()), 0);
  auto const size = Files()["OBJ"];
  ASSERT_EQ(Disk_ObjectFile(id, Disk_StoreParams()).Store(msg.get()), 0) << "compressed already";
  EXPECT_EQ(Files()["OBJ"], size);
  LogCapture log;
  ASSERT_EQ(Disk_ObjectFile(id).Get(&none, nullptr), 0);
  delete none;
  EXPECT_EQ(log.Count(5, "Read(): Transfer Syntax should be native for file "), 1);
}
