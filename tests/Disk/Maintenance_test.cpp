// Protection, ageing, corrections and listing; and what is left of an operation that was killed.
#include "support/FileSetFixture.h"
#include "support/Kill.h"
#include "support/Readers.h"

#include <Disk/Disk_Access.h>
#include <set>
#include <sys/mount.h>

namespace {

namespace fs = std::filesystem;
constexpr int kSize = 16;

class MaintenanceTest : public BothStructuresTest {
protected:
  int StoreOne(Phantom::Object object) {
    object.size = kSize;
    auto root = Open();
    return Store(*root, *Phantom::Make(object));
  }
  bool Has(Phantom::Object const& object) { return Fetch(*Open(), Uids(*Phantom::Make(object))) != nullptr; }
  int Delete(SCL_QueryRetrieveLevel::Value level, Phantom::Object const& object) {
    return FileSetTest::Delete(*Open(), level, object);
  }
};
INSTANTIATE_TEST_SUITE_P(Structures, MaintenanceTest, kBothStructures, StructureName);

class PrivateTest : public MaintenanceTest {};
INSTANTIATE_TEST_SUITE_P(Structures, PrivateTest, testing::Values(0u), StructureName);

} // namespace

// The store of B is killed anywhere, B is stored again, and A beside it is deleted: B is still there.
TEST_P(MaintenanceTest, ADeleteTakesNothingOfAKilledStore) {
  Phantom::Object const a{.size = kSize};
  struct {
    SCL_QueryRetrieveLevel::Value level;
    Phantom::Object b;
  } const cases[] = {{IMAGE, {.image = 2, .size = kSize}},
                     {SERIES, {.series = 2, .size = kSize}},
                     {STUDY, {.study = 2, .size = kSize}}};
  int points = 0;
  for (auto const& c : cases) {
    auto const level = c.level;
    Phantom::Object const& b = c.b;
    bool done = false;
    for (int point = 1; !done && !HasFailure(); ++point, ++points) {
      SCOPED_TRACE("level " + std::to_string(level) + ", point " + std::to_string(point));
      Clear();
      ASSERT_EQ(StoreOne(a), 0);
      done = KillAt(point, [&] { return StoreOne(b); }) == 0;
      ExpectNoDamage();
      ASSERT_EQ(StoreOne(b), 0);
      EXPECT_EQ(Delete(level, a), 0);
      EXPECT_TRUE(Has(b));
      EXPECT_FALSE(Has(a));
      ExpectNoDamage();
    }
  }
  std::printf("%d points\n", points);
}

TEST_P(MaintenanceTest, ProtectionAndStatus) {
  Phantom::Object const o{.size = kSize};
  ASSERT_EQ(StoreOne(o), 0);
  auto root = OpenForDeletes(true);
  MXL_SubOperationsReport report;
  SCL_ResponseStatus status;
  auto const study = Named(STUDY, o);
  if (structure) {
    EXPECT_EQ(root->ProtectImages(study, 1, nullptr), -1);
    EXPECT_EQ(root->UnprotectImages(study, 1, nullptr), -1);
    EXPECT_EQ(root->SetStudyCompleted(Phantom::StudyUid(o)), -1);
    EXPECT_EQ(root->Delete(study, 1, &report, status), -1) << "no flag, which counts as protected";
    EXPECT_EQ(int(status), 3);
    EXPECT_EQ(Delete(STUDY, o), 0);
    return;
  }
  KlbGError.Set(0);
  EXPECT_EQ(root->ProtectImages(Named(SERIES, o), 1, nullptr), -1);
  EXPECT_EQ(root->ProtectImages(Named(IMAGE, o), 1, nullptr), -1);
  EXPECT_EQ(KlbGError.Get(), 0);
  EXPECT_EQ(root->ProtectImages(Named(SCL_QueryRetrieveLevel::UNKNOWN, o), 1, nullptr), -1);
  EXPECT_EQ(KlbGError.Get(), 211002);
  EXPECT_EQ(root->ProtectImages(study, 2, nullptr), -1);
  EXPECT_EQ(KlbGError.Get(), 211007);
  EXPECT_EQ(root->ProtectImages(Named(STUDY, {.study = 2}), 1, nullptr), -1);
  EXPECT_EQ(RootRecord("STUDY")->GetProtectionFlag().GetText(), "N");

  EXPECT_EQ(root->ProtectImages(study, 1, nullptr), 0);
  EXPECT_EQ(root->ProtectImages(study, 1, nullptr), 0);
  EXPECT_EQ(root->Delete(study, 1, &report, status), -1);
  EXPECT_EQ(int(status), 3);
  EXPECT_EQ(root->SetStudyCompleted(Phantom::StudyUid(o)), 0);
  EXPECT_EQ(root->SetStudyCompleted(Dicom_UI("1.2.3")), -1);
  EXPECT_EQ(RootRecord("STUDY")->Value<Dicom_CS>(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED).GetText(), "Y");
  EXPECT_EQ(root->UnprotectImages(study, 1, nullptr), 0);
  EXPECT_EQ(root->Delete(study, 1, &report, status), 0);
}

// The oldest studies go, in order, until the space is free; the protected and the young ones stay. The disk is one
// whose free space follows from what the file-set takes.
TEST_P(PrivateTest, AutoDeleteFreesWhatIsWanted) {
  class SmallDisk : public Util_FileSystemInterface {
  public:
    explicit SmallDisk(std::string prefix) : prefix_(std::move(prefix)) { SetCurrent(this); }
    ~SmallDisk() override { SetCurrent(nullptr); }
    int Statvfs(char const*, struct statvfs* status) override {
      constexpr unsigned long kObjects = 10, kObjectKb = 1000;
      *status = {};
      status->f_frsize = 1;
      unsigned long used = 0;
      for (auto const& entry : fs::recursive_directory_iterator(prefix_))
        if (entry.is_regular_file() && entry.path().filename().string()[0] == 'I') ++used;
      status->f_bavail = (kObjects - used) * kObjectKb * 1024;
      return 0;
    }

  private:
    std::string prefix_;
  };
  constexpr std::time_t kStart = 1700000000, kDay = 86400;
  int const ages[] = {50, 90, 30, 70, 5, 60}; // in days, of studies 1 to 6
  int study = 0;
  for (int const age : ages) {
    Util_Clock::SetNow(kStart - age * kDay);
    ASSERT_EQ(StoreOne({.study = ++study}), 0);
  }
  Util_Clock::SetNow(kStart);
  ASSERT_EQ(Open()->ProtectImages(Named(STUDY, {.study = 4}), 1, nullptr), 0);
  SmallDisk const disk(Prefix());
  auto const left = [this] {
    std::string studies;
    for (int number = 1; number <= 6; ++number)
      if (Has({.study = number, .size = kSize})) studies += std::to_string(number);
    return studies;
  };
  auto root = OpenForDeletes();
  EXPECT_EQ(root->FreeSpace(), 4000);
  std::vector<Disk_AutoDeleteCandidate> candidates;
  root->SetAutoDeletePar({4, 20});
  EXPECT_EQ(root->ListAutoDelete(&candidates), 0);
  EXPECT_EQ(candidates.size(), 4u); // 2, 6, 1, 3
  struct {
    int wanted_mb, min_age_days;
    char const* left;
  } const steps[] = {{3, 0, "123456"}, {4, 20, "13456"}, // exactly the limit isn't enough
                     {5, 60, "13456"},                   // 60 days old is young still
                     {6, 20, "345"},   {100, 20, "45"},  {100, 4, "4"}};
  for (auto const& step : steps) {
    SCOPED_TRACE(step.left);
    root->SetAutoDeletePar({step.wanted_mb, step.min_age_days});
    EXPECT_EQ(root->AutoDelete(), 0);
    EXPECT_EQ(left(), step.left);
    ExpectSound();
  }
}

// A disk that is full to the last block: the oldest studies go, and stores succeed again.
TEST_P(PrivateTest, AutoDeleteWorksOnAFullDisk) {
  constexpr int kDiskMb = 8, kWantedMb = 3, kPixels = 512; // half a megabyte an object
  if (mount("tmpfs", Prefix().c_str(), "tmpfs", 0, ("size=" + std::to_string(kDiskMb) + "m").c_str()) == -1)
    GTEST_SKIP() << "no file system can be mounted here; AutoDeleteFreesWhatIsWanted runs";
  constexpr std::time_t kStart = 1700000000, kDay = 86400;
  auto const store = [this](int study) {
    Util_Clock::SetNow(kStart + study * kDay);
    return Store(*Open(), *Phantom::Make({.study = study, .size = kPixels}));
  };
  int study = 1;
  while (store(study) == 0) {
    if (study == 2) {
      EXPECT_EQ(Open()->ProtectImages(Named(STUDY, {.study = study}), 1, nullptr), 0);
    }
    ++study;
  }
  EXPECT_GT(study, 8);
  ExpectNoDamage();
  auto root = OpenForDeletes();
  root->SetAutoDeletePar({kWantedMb, 1});
  EXPECT_LT(root->FreeSpace(), kWantedMb * 1000);
  EXPECT_EQ(root->AutoDelete(), 0);
  EXPECT_GT(root->FreeSpace(), kWantedMb * 1000);
  EXPECT_LT(root->FreeSpace(), kWantedMb * 1000 + 600) << "no more than was wanted";
  std::string left;
  for (int number = 1; number < study; ++number)
    left += Has({.study = number, .size = kPixels}) ? '+' : '-';
  EXPECT_TRUE(left.starts_with("-+---")) << left;
  EXPECT_EQ(left.find('-', left.find('+', 2)), left.npos) << "the oldest first: " << left;
  ExpectNoDamage();
  EXPECT_EQ(store(study), 0);
  umount2(Prefix().c_str(), MNT_DETACH);
}

TEST_P(PrivateTest, ACorrectionIsCompletedByRepeatingIt) {
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  constexpr int kStudies = 2, kSeries = 5, kImages = 50;
  auto root = Open();
  for (int number = 0; number < kStudies * kSeries * kImages; ++number)
    ASSERT_EQ(Store(*root, *Phantom::Make({.study = number / (kSeries * kImages) + 1,
                                           .series = number / kImages % kSeries + 1,
                                           .image = number % kImages + 1,
                                           .size = kSize})),
              0);
  Phantom::Object const other{.patient = 2, .size = kSize};
  ASSERT_EQ(StoreOne(other), 0);
  auto const before = Phantom::Make({.size = kSize});
  Dicom_LO const id = before->GetPatientID(), issuer = before->GetIssuerOfPatientID();
  auto const correct = [&](Disk_RootDirectoryFile& at) {
    return at.ChangePatientsName(id, issuer, Dicom_PN("Neu^Name"), Dicom_LO("NEW-ID"), Dicom_LO("NEW-ISSUER"));
  };
  EXPECT_EQ(root->ChangePatientsName(Dicom_LO("nobody"), issuer, Dicom_PN("X"), LO_NULL, LO_NULL), -1);
  constexpr int kHalfWay = 800; // of the calls that write
  EXPECT_EQ(KillAt(kHalfWay, [&] { return correct(*Open()); }), kKilled);
  EXPECT_EQ(RootRecord("PATIENT")->GetPatientID(), id);
  ExpectNoDamage();
  int done = 0;
  root = Open();
  root->SetObjectDone([&done] { ++done; });
  EXPECT_EQ(correct(*root), 0);
  EXPECT_EQ(done, kStudies * kSeries * kImages);
  EXPECT_EQ(correct(*root), -1) << "nobody has the old ID any more";
  ExpectSound();

  // told by a tool that isn't ours
  if (!HasReaders()) GTEST_SKIP() << "dcmdump (dcmtk) isn't installed";
  std::string const told = RunTool("dcmdump -q +P 0010,0010 +P 0010,0020 +P 0010,0021 +r +sd '" + Prefix() + "'").text;
  std::map<std::string, int> counts;
  for (std::size_t at = 0; (at = told.find('[', at)) != told.npos; ++at)
    ++counts[told.substr(at, told.find(']', at) - at + 1)];
  int const expected = kStudies * kSeries * kImages + kStudies + 1; // objects, studies, patient
  EXPECT_EQ(counts["[Neu^Name]"], expected);
  EXPECT_EQ(counts["[NEW-ID]"], expected);
  EXPECT_EQ(counts["[NEW-ISSUER]"], expected);
  EXPECT_EQ(counts["[" + id.GetText() + "]"], 0);
  EXPECT_TRUE(Has(other));
}

TEST_P(MaintenanceTest, ManufacturerIsCorrectedInObjectsOnly) {
  Phantom::Object const o{.size = kSize};
  ASSERT_EQ(StoreOne(o), 0);
  auto const msg = Phantom::Make(o);
  int const result =
      Open()->ChangeManufacturerParms(msg->GetPatientID(), msg->GetIssuerOfPatientID(), Dicom_LO("Maker"), LO_NULL);
  EXPECT_EQ(result, structure ? -1 : 0);
  if (structure) return;
  auto const fetched = Fetch(*Open(), Uids(*msg));
  ASSERT_TRUE(fetched);
  EXPECT_EQ(fetched->GetManufacturer().GetText(), "Maker");
  EXPECT_EQ(fetched->GetManufacturersModelName(), msg->GetManufacturersModelName());
  EXPECT_EQ(fetched->GetPatientsName(), msg->GetPatientsName());
  ExpectSound();
  // an object that can't be read stops the walk
  for (auto const& [name, size] : Files())
    if (name.ends_with("I1000000")) directory.Write(name, "no object");
  EXPECT_EQ(Open()->ChangeManufacturerParms(msg->GetPatientID(), msg->GetIssuerOfPatientID(), Dicom_LO("M"), LO_NULL),
            -1);
}

TEST_P(MaintenanceTest, AListIsFetchedOneByOne) {
  for (int image = 1; image <= 3; ++image)
    for (int series = 1; series <= 2; ++series)
      ASSERT_EQ(StoreOne({.series = series, .image = image}), 0);
  auto root = Open();
  Disk_Access access(*root);
  IOD_Msg* object = nullptr;
  EXPECT_EQ(access.GetNItems(), 0);
  EXPECT_EQ(access.FetchNext(&object), 0);
  EXPECT_EQ(object, nullptr);
  auto const drain = [&](int* failed) {
    std::string images;
    while (access.HasMore()) {
      if (access.FetchNext(&object) == -1) {
        ++*failed;
        continue;
      }
      std::unique_ptr<IOD_Msg> const owner(object);
      images += owner->GetSeriesNumber().GetText() + "/" + owner->GetImageNumber().GetText() + " ";
    }
    return images;
  };
  int failed = 0;
  SCL_QueryIdentifier study(STUDY), series(SERIES), images(IMAGE);
  for (auto* identifier : {&study, &series, &images})
    identifier->SetStudyInstanceUID(Phantom::StudyUid({}));
  study.SetSeriesInstanceUID(Phantom::SeriesUid({.series = 2})); // is blanked at study level
  EXPECT_EQ(access.OpenQuery(study, 1), 0);
  EXPECT_EQ(access.GetNItems(), 6);
  series.SetSeriesInstanceUID(Phantom::SeriesUid({.series = 2}));
  EXPECT_EQ(access.OpenQuery(series, 1), 0);
  EXPECT_EQ(drain(&failed), "2/1 2/2 2/3 ");
  // at image level the UIDs meet the file-set only when they are fetched, in their order
  images.SetSeriesInstanceUID(Phantom::SeriesUid({}));
  images.SetSOPInstanceUID(Dicom_UI(Phantom::InstanceUid({.image = 3}).GetText() + "\\1.2.3\\" +
                                    Phantom::InstanceUid({.image = 1}).GetText()));
  EXPECT_EQ(access.OpenQuery(images, 1), 0);
  EXPECT_EQ(drain(&failed), "1/3 1/1 ");
  EXPECT_EQ(failed, 1);
  study.SetStudyInstanceUID(Dicom_UI("1.2.3"));
  EXPECT_EQ(access.OpenQuery(study, 1), 0);
  EXPECT_FALSE(access.HasMore());
  images.SetSOPInstanceUID(UI_NULL);
  EXPECT_EQ(access.OpenQuery(images, 1), -1);
}
