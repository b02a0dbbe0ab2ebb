// Protection, corrections and listing; and what is left of an operation that was killed.
#include "support/FileSetFixture.h"

#include <Disk/Disk_Access.h>
#include <infra/CToolParse.h>

namespace {

namespace fs = std::filesystem;
constexpr int kSize = 16;

class MaintenanceTest : public BothStructuresTest {
protected:
  int StoreOne(Phantom::Object object) {
    object.size = kSize;
    return Store(*Open(), *Phantom::Make(object));
  }
};
FOR_BOTH_STRUCTURES(MaintenanceTest);

} // namespace

TEST_P(MaintenanceTest, ProtectionAndStatus) {
  Phantom::Object const o{.size = kSize};
  ASSERT_EQ(StoreOne(o), 0);
  auto root = OpenForDeletes(true);
  auto const study = Named(STUDY, o);
  Deletion const refused{-1, SCL_ResponseStatus::RefusedProtected, 0, 0};
  if (structure) {
    EXPECT_EQ(DeleteObjects(*root, study), refused) << "no flag, which counts as protected";
    EXPECT_EQ(Delete(*Open(), STUDY, o), 0);
    return;
  }
  EXPECT_EQ(root->ProtectImages(study, 1, nullptr), 0);
  EXPECT_EQ(DeleteObjects(*root, study), refused);
  EXPECT_EQ(root->UnprotectImages(study, 1, nullptr), 0);
  EXPECT_EQ(DeleteObjects(*root, study).result, 0);
}

TEST_F(FileSetTest, AScanHandsOverWhatNoRecordNamesAndTellsWhyItStops) {
  struct Report : CToolParseDICOMReport {
    std::vector<std::string> given;
    int result = 0;
    int ProcessFile(RWCString path) override { return given.push_back(path.str()), result; }
    int ProcessFolder(RWCString path) override { return ProcessFile(path); }
  };
  std::string const prefix = At("a\\b/DIRFILE");
  fs::create_directories(prefix);
  int status = 0;
  Disk_RootDirectoryFile root(prefix.c_str(), Disk_StoreParams(), 0, &status, nullptr);
  auto const first = Example(), second = Example({.image = 2});
  ASSERT_EQ(Store(root, *first), 0);
  std::string in_place = prefix + "/SA100000/S3000000/DIRFILE2";
  ASSERT_EQ(Phantom::Write({.image = 2, .size = kSize}, in_place), 0);
  ASSERT_EQ(StoreInPlace(root, second.get(), in_place), 0);
  fs::create_directories(prefix + "/SA100000\\S3000000/x");
  directory.Write("a\\b/DIRFILE/SA100000/S3000000/I9.tmp", "x");
  Report report;
  EXPECT_EQ(root.ProcessZombieFiles(report), 0);
  EXPECT_EQ(report.given, (std::vector<std::string>{prefix + "/SA100000\\S3000000/x", prefix + "/SA100000\\S3000000",
                                                    prefix + "/SA100000/S3000000/I9.tmp"}));
  report.result = -1;
  LogCapture log;
  EXPECT_EQ(root.ProcessZombieFiles(report), -1);
  EXPECT_EQ(log.Count(3, "The cause: the report refused it"), 1);
}

TEST_F(FileSetTest, ACorrectionReachesEveryObject) {
  auto root = Open();
  for (int number = 0; number < 8; ++number)
    ASSERT_EQ(Store(*root, *Example({.study = number / 4 + 1, .series = number / 2 % 2 + 1, .image = number % 2 + 1})),
              0);
  auto const before = Example({.study = 2, .series = 2, .image = 2});
  Dicom_LO const id = before->GetPatientID(), issuer = before->GetIssuerOfPatientID();
  auto const correct = [&](Disk_RootDirectoryFile& at) {
    return at.ChangePatientsName(id, issuer, Dicom_PN("Neu^Name"), Dicom_LO("NEW-ID"), Dicom_LO("NEW-ISSUER"));
  };
  int done = 0;
  root->SetObjectDone([&done] { ++done; });
  root->SetStop([&done] { return done == 3; });
  EXPECT_EQ(correct(*root), -1);
  root->SetStop(nullptr);
  EXPECT_EQ(correct(*root), 0);
  EXPECT_EQ(done, 3 + 8) << "all of them once more";
  EXPECT_EQ(correct(*root), -1) << "nobody has the old ID any more";
  ExpectSound();
  auto const object = Fetch(*root, Uids(*before)), patient = RootRecord("PATIENT"), study = RootRecord("STUDY");
  for (IOD_Msg const* msg : {object.get(), patient.get(), study.get()})
    EXPECT_EQ(msg->GetPatientsName().GetText() + msg->GetPatientID().GetText() + msg->GetIssuerOfPatientID().GetText(),
              "Neu^NameNEW-IDNEW-ISSUER");
}

TEST_P(MaintenanceTest, AListIsFetchedOneByOne) {
  for (int image = 1; image <= 3; ++image)
    for (int series = 1; series <= 2; ++series)
      ASSERT_EQ(StoreOne({.series = series, .image = image}), 0);
  auto root = Open();
  Disk_Access access(*root);
  IOD_Msg* object = nullptr;
  EXPECT_EQ(access.FetchNext(&object), 0);
  EXPECT_EQ(object, nullptr);
  auto const uid = [](int image) { return ImageOf({.image = image}); };
  std::tuple<QueryLevel, int, std::string, char const*> const rows[] = {
      {STUDY, 2, "", "1/1 1/2 1/3 2/1 2/2 2/3 "}, // of all series
      {SERIES, 2, "", "2/1 2/2 2/3 "},
      // the UIDs meet the file-set only when they are fetched, in their order
      {IMAGE, 1, uid(3) + "\\1.2.3\\" + uid(1), "1/3 - 1/1 "},
      {IMAGE, 1, "", nullptr}}; // there is no list
  for (auto const& [level, series, images, expected] : rows) {
    Keys const keys{{kStudyUid, StudyOf({})}, {kSeriesUid, SeriesOf({.series = series})}, {kSopUid, images}};
    EXPECT_EQ(access.OpenQuery(Asking(level, keys), 1), expected ? 0 : -1);
    std::string fetched;
    EXPECT_EQ(Disk_Access(access).GetNItems(), access.GetNItems()); // a copy has the list too
    while (access.HasMore()) {
      std::unique_ptr<IOD_Msg> const owner(access.FetchNext(&object) == 0 ? object : nullptr);
      fetched += owner ? owner->GetSeriesNumber().GetText() + "/" + owner->GetImageNumber().GetText() + " " : "- ";
    }
    EXPECT_EQ(fetched, expected ? expected : "");
  }
}
