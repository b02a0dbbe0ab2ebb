// What others do to a file-set, or what fails, between the steps of an operation and from one to the next.
#include "support/FaultyFileSystem.h"
#include "support/FileSetFixture.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class MeanwhileTest : public BothStructuresTest {
protected:
  static Phantom::Object Of(int patient, int image = 1) { return {.patient = patient, .image = image}; }
  static std::set<std::string> Images(Disk_RootDirectoryFile& root, Phantom::Object const& of) {
    return FileSetTest::Images(root, Phantom::StudyUid(of));
  }
  static int Delete(Disk_RootDirectoryFile& root, Phantom::Object const& of) {
    return FileSetTest::Delete(root, STUDY, of);
  }
};
FOR_BOTH_STRUCTURES(MeanwhileTest);

class PrivateMeanwhileTest : public MeanwhileTest {};
INSTANTIATE_TEST_SUITE_P(Structures, PrivateMeanwhileTest, testing::Values(0u), StructureName);

} // namespace

// Another patient's study of the same Study ID gets the same folder.
TEST_P(PrivateMeanwhileTest, AStoreFindsItsStudyAgainThoughItsFolderIsAnothers) {
  std::function<void()> meanwhile;
  FaultyFileSystem watched([&](std::string_view call, char const* path) {
    // in front of the first call for the study's lock, after that for the file-set was given up
    if (call == "Flock" && path && At("SA100000/LOCKFILE") == path && meanwhile) std::exchange(meanwhile, nullptr)();
    return 0;
  });
  auto root = Open(), other = Open();
  ASSERT_EQ(Store(*root, *Example(Of(1, 1))), 0);
  for (bool const comes_back : {false, true}) {
    bool done = false;
    meanwhile = [&] {
      done = true;
      EXPECT_EQ(Delete(*other, Of(1)), 0);
      EXPECT_EQ(Store(*other, *Example(Of(2, 1))), 0);
      if (comes_back) {
        EXPECT_EQ(Store(*other, *Example(Of(1, 3))), 0);
      }
    };
    EXPECT_EQ(Store(*root, *Example(Of(1, 2))), 0);
    EXPECT_TRUE(done);
    std::set<std::string> expected{ImageOf(Of(1, 2))};
    if (comes_back) expected.insert(ImageOf(Of(1, 3)));
    EXPECT_EQ(Images(*root, Of(1)), expected);
    EXPECT_EQ(Images(*root, Of(2)), std::set<std::string>{ImageOf(Of(2, 1))});
    ExpectSound();
    ASSERT_EQ(Delete(*root, Of(2)) | Delete(*root, Of(1)), 0);
    ASSERT_EQ(Store(*root, *Example(Of(1, 1))), 0);
  }
}

TEST_P(PrivateMeanwhileTest, ACorrectedPatientIsFoundByTheNewIdAlone) {
  auto root = Open();
  constexpr int kMany = 25; // enough for patients to be found by an index
  for (int patient = 1; patient <= kMany; ++patient)
    ASSERT_EQ(Store(*root, *Example(Of(patient))), 0);
  auto const fifth = Example(Of(5));
  Dicom_LO const old_id = fifth->GetPatientID();
  ASSERT_EQ(
      root->ChangePatientsName(old_id, fifth->GetIssuerOfPatientID(), Dicom_PN("New"), Dicom_LO("NEWID"), LO_NULL), 0);
  ASSERT_EQ(Store(*root, *Example({.patient = 5, .study = 2})), 0);
  auto fresh = Open();
  EXPECT_EQ(fresh->ChangePatientsName(old_id, fifth->GetIssuerOfPatientID(), Dicom_PN("Old"), old_id, LO_NULL), 0)
      << "the new study went to the patient whose ID has changed";
  ExpectSound();
}

// What a fetch found is known to the next one, until somebody changes it.
TEST_P(PrivateMeanwhileTest, AFetchSeesWhatOthersHaveDoneSinceTheLast) {
  auto const stores = [](Phantom::Object const& of) {
    return [of](auto& other) { return Store(other, *Example(of)); };
  };
  auto const deletes = [](SCL_QueryRetrieveLevel::Value level, Phantom::Object const& of) {
    return [=](auto& other) { return FileSetTest::Delete(other, level, of); };
  };
  auto const replaces = [](Phantom::Object const& of) { // the other patient's study gets the folder
    return [of](auto& other) { return Delete(other, Of(1)) | Store(other, *Example(of)); };
  };
  auto const corrects = [](auto& other) {
    auto const of = Example(Of(1));
    return other.ChangeManufacturerParms(of->GetPatientID(), of->GetIssuerOfPatientID(), Dicom_LO("Maker"), LO_NULL);
  };
  struct Case {
    std::function<int(Disk_RootDirectoryFile&)> change;
    std::set<int> left;
    char const* maker = "";
  } const cases[] = {{stores(Of(1, 3)), {1, 2, 3}}, {deletes(IMAGE, Of(1, 2)), {1}}, {deletes(SERIES, Of(1)), {}},
                     {deletes(STUDY, Of(1)), {}},   {replaces(Of(2)), {}},           {replaces(Of(1, 2)), {2}},
                     {corrects, {1, 2}, "Maker"}};
  for (Case const& c : cases) {
    SCOPED_TRACE(&c - cases);
    auto root = Open(), other = Open();
    ASSERT_EQ(Store(*other, *Example(Of(1, 1))) | Store(*other, *Example(Of(1, 2))), 0);
    for (int image : {1, 2, 1})
      ASSERT_TRUE(Fetch(*root, Uids(*Example(Of(1, image)))));
    EXPECT_EQ(c.change(*other), 0);
    for (int image : {1, 2, 3}) {
      auto const object = Fetch(*root, Uids(*Example(Of(1, image))));
      EXPECT_EQ(object != nullptr, c.left.count(image) == 1) << image;
      EXPECT_TRUE(!object || object->GetSOPInstanceUID() == Phantom::InstanceUid(Of(1, image)));
      EXPECT_TRUE(!object || !*c.maker || object->GetManufacturer() == Dicom_LO(c.maker));
    }
    root.reset(), other.reset();
    Clear();
  }
}

// A store into a known study has no other lock than the study's.
TEST_P(PrivateMeanwhileTest, WhoeverWritesBelowAStudyHoldsItsLock) {
  auto const patient = Example(Of(1));
  ASSERT_EQ(Store(*Open(), *patient), 0);
  Dicom_LO const id = patient->GetPatientID(), issuer = patient->GetIssuerOfPatientID();
  std::function<int(Disk_RootDirectoryFile&)> const operations[] = {
      [&](auto& root) { return Store(root, *Example(Of(1, 2))); },
      [&](auto& root) { return root.ChangeManufacturerParms(id, issuer, Dicom_LO("Maker"), LO_NULL); },
      [&](auto& root) { return root.ChangePatientsName(id, issuer, Dicom_PN("New^Name"), LO_NULL, LO_NULL); },
      [&](auto& root) { return Delete(root, Of(1)); }};
  for (auto const& operation : operations) {
    auto root = Open();
    int written = 0, unlocked = 0;
    FaultyFileSystem watched([&](std::string_view call, char const* path) {
      std::string const name = path ? path : "", lock = At("SA100000/LOCKFILE");
      bool const writes = call == "Writev" || call == "Rename" || call == "Exchange" || call == "Unlink";
      if (!writes || name.find("/SA100000/") == name.npos || !fs::exists(lock)) return 0;
      Util_FileDescriptor const file(open(lock.c_str(), O_RDONLY | O_CLOEXEC));
      ++written;
      unlocked += flock(file.Get(), LOCK_EX | LOCK_NB) == 0;
      return 0;
    });
    EXPECT_EQ(operation(*root), 0);
    EXPECT_GT(written, 0);
    EXPECT_EQ(unlocked, 0) << "operation " << &operation - operations;
  }
}

// The delete counts what stands in the study's file, where the store has brought its series already.
TEST_P(PrivateMeanwhileTest, CountsAgreeAfterADeleteInTheMiddleOfAStore) {
  Phantom::Object const second{.series = 2}, third{.series = 3};
  for (auto const& object : {Phantom::Object(), second})
    ASSERT_EQ(Store(*Open(), *Example(object)), 0);
  bool is_stored = false, is_deleted = false;
  FaultyFileSystem watched([&](std::string_view call, char const* path) {
    std::string const name = path ? path : "";
    if (call == "Flock" && name == At("LOCKFILE") && is_stored && !is_deleted) { // the study's is given up by now
      is_deleted = true;
      EXPECT_EQ(FileSetTest::Delete(*Open(), SERIES, second), 0);
    }
    is_stored = is_stored || name == At("SA100000/DIRFILE.tmp");
    return 0;
  });
  EXPECT_EQ(Store(*Open(), *Example(third)), 0);
  EXPECT_TRUE(is_deleted);
  ExpectSound();
  EXPECT_EQ(Check().instances, 2u);
}

TEST_P(MeanwhileTest, OnAReadOnlyMediumAFailedReadIsRepeated) {
  for (int patient = 1; patient <= 5; ++patient)
    ASSERT_EQ(Store(*Open(), *Example(Of(patient))), 0);
  for (auto const& [name, size] : Files())
    if (name.ends_with("VERSION") || name.ends_with("LOCKFILE")) fs::remove(At(name));
  int failures = 0;
  for (int left = 0; left <= 0;) { // until there is no such read
    auto root = Open(Disk_StoreParams::READ_ONLY);
    left = ++failures;
    {
      FaultyFileSystem faulty([&](std::string_view call, char const*) {
        return (call == "Read" || call == "Pread") && --left == 0 ? EIO : 0;
      });
      Studies(*root);
    }
    EXPECT_EQ(Studies(*root), 5) << "after the failure of read " << failures;
  }
  EXPECT_GT(failures, 1);
  EXPECT_FALSE(fs::exists(At("LOCKFILE")) || fs::exists(At("VERSION"))) << "reading leaves nothing";
}

TEST_P(MeanwhileTest, AFileSetThatIsReplacedIsTheOneThatCounts) {
  auto root = Open();
  ASSERT_EQ(Store(*root, *Example(Of(1))), 0);
  fs::path const elsewhere = Prefix() + ".moved";
  fs::rename(Prefix(), elsewhere);
  fs::create_directory(Prefix());
  ASSERT_EQ(Store(*Open(), *Example(Of(2))), 0);
  ASSERT_EQ(Store(*root, *Example(Of(3))), 0);
  fs::remove_all(elsewhere);
  auto fresh = Open();
  for (auto* const reader : {root.get(), fresh.get()}) {
    EXPECT_EQ(Studies(*reader), 2);
    EXPECT_TRUE(Fetch(*reader, Uids(*Example(Of(3)))));
  }
  ExpectSound();
}
