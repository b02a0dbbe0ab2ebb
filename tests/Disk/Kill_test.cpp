// A store into a standard file-set is killed at the entry of each call that writes, and so is the recovery. After
// that the next open succeeds, everything acknowledged is found and fetched, and the DICOMDIR has neither holes nor
// links that lead nowhere; readers who can't write see the same.
#include "support/DicomdirWalk.h"
#include "support/FileSetFixture.h"
#include "support/Kill.h"

#include <set>

namespace {

namespace fs = std::filesystem;

class KillTest : public FileSetTest {
protected:
  KillTest() { structure = Disk_StoreParams::STANDARD_STRUCTURE; }

  bool StoreOne(Phantom::Object const& object) {
    auto root = Open();
    auto msg = Phantom::Make(object);
    return root && Store(*root, *msg) == 0;
  }

  /// What a root tells and fetches.
  void ExpectAll(unsigned flags, std::vector<Phantom::Object> const& acknowledged) {
    auto root = Open(flags);
    ASSERT_TRUE(root);
    for (Phantom::Object const& object : acknowledged)
      EXPECT_TRUE(Fetch(*root, Uids(*Phantom::Make(object)))) << object.patient << object.series << object.image;
  }

  void ExpectWhole(std::vector<Phantom::Object> const& acknowledged) {
    DicomdirWalk const walk(At("DICOMDIR"));
    EXPECT_EQ(walk.problems, std::vector<std::string>());
    std::set<std::string> uids, files;
    for (auto const* study : walk.Level(1)) {
      std::size_t images = 0;
      for (auto const& series : study->children) {
        images += series.children.size();
        EXPECT_EQ(series.Number(0x00201209), int(series.children.size()));
      }
      EXPECT_EQ(study->Number(0x00201208), int(images));
    }
    for (auto const* image : walk.Level(3)) {
      EXPECT_TRUE(uids.insert(image->Text(0x00041511)).second);
      std::string file = image->Text(0x00041500);
      std::replace(file.begin(), file.end(), '\\', '/');
      EXPECT_TRUE(files.insert(file).second && fs::exists(At(file))) << file;
    }
    for (Phantom::Object const& object : acknowledged)
      EXPECT_EQ(uids.count(Phantom::InstanceUid(object).GetText()), 1u);
    EXPECT_FALSE(fs::exists(At("DICOMDIR.redo")));
  }
};

} // namespace

TEST_F(KillTest, EveryPointOfAStoreAndOfItsRecovery) {
  constexpr int kSize = 16;
  std::vector<Phantom::Object> const before{{.size = kSize}, {.image = 2, .size = kSize}, {.series = 2, .size = kSize}};
  Phantom::Object const later{.patient = 3, .size = kSize};
  struct Case {
    char const* name;
    Phantom::Object object;
  } const cases[] = {{"new patient", {.patient = 2, .size = kSize}},
                     {"new series", {.series = 3, .size = kSize}},
                     {"further image", {.image = 3, .size = kSize}},
                     {"known image", {.image = 2, .size = kSize}}};
  for (auto const& object : before)
    ASSERT_TRUE(StoreOne(object));
  TempDirectory saved;
  auto const bring_back = [&](std::string const& from) {
    for (auto const& entry : fs::directory_iterator(Prefix()))
      fs::remove_all(entry.path());
    fs::copy(from, Prefix(), fs::copy_options::recursive);
  };
  fs::copy(Prefix(), saved / "start", fs::copy_options::recursive);
  int points = 0, recoveries = 0;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    for (int point = 1;; ++point) {
      SCOPED_TRACE(point);
      bring_back(saved / "start");
      bool const done = RunUntil(point, [&] { return StoreOne(c.object); });
      ++points;
      auto acknowledged = before;
      if (done) acknowledged.push_back(c.object);
      ExpectAll(Disk_StoreParams::READ_ONLY, acknowledged);
      fs::remove_all(saved / "killed");
      fs::copy(Prefix(), saved / "killed", fs::copy_options::recursive);
      bool recovered = !fs::exists(At("DICOMDIR.redo"));
      for (int second = 1; !recovered; ++second) {
        SCOPED_TRACE(second);
        bring_back(saved / "killed");
        recovered = RunUntil(second, [&] { return Open() != nullptr; });
        ++recoveries;
        ExpectAll(Disk_StoreParams::READ_ONLY, acknowledged);
        ExpectAll(0, acknowledged);
        ExpectWhole(acknowledged);
      }
      ExpectAll(0, acknowledged);
      ExpectWhole(acknowledged);
      ASSERT_TRUE(StoreOne(later));
      acknowledged.push_back(later);
      ExpectAll(0, acknowledged);
      ExpectWhole(acknowledged);
      if (done || HasFailure()) break;
    }
  }
  std::printf("%d points of a store, %d of a recovery\n", points, recoveries);
}

// The first open of an empty directory makes the DICOMDIR.
TEST_F(KillTest, EveryPointOfTheFirstOpen) {
  bool done = false;
  for (int point = 1; !done && !HasFailure(); ++point) {
    SCOPED_TRACE(point);
    for (auto const& entry : fs::directory_iterator(Prefix()))
      fs::remove_all(entry.path());
    done = RunUntil(point, [&] { return StoreOne({.size = 16}); });
    ASSERT_TRUE(StoreOne({.image = 2, .size = 16}));
    ExpectWhole({{.image = 2, .size = 16}});
  }
}
