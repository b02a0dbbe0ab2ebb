// Six processes store into one study and into their own, query and fetch at once. Afterwards records, counters and
// files agree, and everything that was acknowledged is there.
#include "support/FileSetFixture.h"
#include "support/TestImage.h"

#include <chrono>
#include <cstdlib>
#include <random>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class ProcessesTest : public BothStructuresTest {
protected:
  static constexpr int kProcesses = 6;

  static std::chrono::seconds Duration() { return std::chrono::seconds(std::getenv("DISK_LONG_TESTS") ? 30 : 5); }

  /// What one process does until the time is over. Writes the UIDs of what was acknowledged to a file; the number of
  /// failures is its exit code.
  int Work(int process, std::chrono::steady_clock::time_point end) {
    auto root = Open(process % 2 ? unsigned(Disk_StoreParams::STORE_NATIVE) : 0u);
    std::ofstream journal(At("../journal" + std::to_string(getppid()) + "_" + std::to_string(process)));
    std::minstd_rand random(unsigned(process) + 1);
    int failures = 0, image = 0;
    std::vector<Phantom::Object> stored;
    while (std::chrono::steady_clock::now() < end) {
      int const what = int(random() % 4);
      if (what < 2) {
        // a series of one's own, in the study of all or in one's own
        Phantom::Object const o{.study = what ? 1 : 2 + process, .series = process + 1, .image = ++image, .size = 16};
        auto msg = Phantom::Make(o);
        if (Store(*root, *msg) == 0) {
          stored.push_back(o);
          journal << Phantom::InstanceUid(o).GetText() << std::endl;
        } else {
          ++failures;
        }
      } else if (what == 2 && !stored.empty()) {
        auto const wanted = Phantom::Make(stored[random() % stored.size()]);
        auto const fetched = Fetch(*root, Uids(*wanted));
        if (!fetched || fetched->GetSOPInstanceUID() != wanted->GetSOPInstanceUID()) ++failures;
      } else {
        SCL_QueryIdentifier identifier(SCL_QueryRetrieveLevel::IMAGE);
        identifier.SetStudyInstanceUID(Phantom::StudyUid({.study = 1}));
        identifier.SetSOPInstanceUID(UI_NULL);
        Dicom_Sequence results;
        if (root->Query(identifier, 1, &results) == -1) ++failures;
      }
    }
    return std::min(failures, 100);
  }

  std::set<std::string> Acknowledged() {
    std::set<std::string> uids;
    for (int process = 0; process < kProcesses; ++process) {
      std::string const name = At("../journal" + std::to_string(getpid()) + "_" + std::to_string(process));
      std::ifstream journal(name);
      for (std::string uid; std::getline(journal, uid);)
        uids.insert(uid);
      std::filesystem::remove(name);
    }
    return uids;
  }
};

INSTANTIATE_TEST_SUITE_P(Structures, ProcessesTest, kBothStructures, StructureName);

} // namespace

TEST_P(ProcessesTest, StoreQueryAndFetchAtOnce) {
  auto const end = std::chrono::steady_clock::now() + Duration();
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    pid_t const child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) std::_Exit(Work(process, end));
    children.push_back(child);
  }
  for (pid_t const child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "failures of a process";
  }
  std::set<std::string> const acknowledged = Acknowledged();
  ASSERT_GT(acknowledged.size(), 10u);

  ExpectSound();
  EXPECT_EQ(Check().instances, acknowledged.size());
  SCL_QueryIdentifier identifier(SCL_QueryRetrieveLevel::IMAGE);
  identifier.SetSOPInstanceUID(UI_NULL);
  Dicom_Sequence results;
  EXPECT_EQ(Open()->Query(identifier, 1, &results), 0);
  std::set<std::string> recorded;
  for (int i = 0; i < results.GetNItems(); ++i)
    recorded.insert(static_cast<IOD_Msg const*>(results.Get(i))->GetSOPInstanceUID().GetText());
  EXPECT_EQ(recorded, acknowledged);
}

// A fetch gives a whole object or none, while its study is deleted and stored again.
TEST_P(ProcessesTest, DeleteAndFetchAtOnce) {
  auto const end = std::chrono::steady_clock::now() + Duration();
  constexpr int kStudies = 3, kImages = 4;
  auto const object = [](int study, int image) { return Phantom::Object{.study = study, .image = image, .size = 32}; };
  for (int study = 1; study <= kStudies; ++study)
    for (int image = 1; image <= kImages; ++image)
      ASSERT_EQ(Store(*Open(), *Phantom::Make(object(study, image))), 0);
  pid_t const child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    auto root = Open();
    Disk_SupportPar par;
    par.delete_supported = 1;
    root->SetSupportPar(par);
    std::minstd_rand random(7);
    int failures = 0;
    while (std::chrono::steady_clock::now() < end) {
      int const study = int(random() % kStudies) + 1;
      int error = 0;
      SCL_MoveIdentifier identifier(SCL_QueryRetrieveLevel::STUDY, &error);
      identifier.SetStudyInstanceUID(Phantom::StudyUid(object(study, 1)));
      MXL_SubOperationsReport report;
      SCL_ResponseStatus status;
      failures += root->Delete(identifier, 1, &report, status) == -1;
      for (int image = 1; image <= kImages; ++image)
        failures += Store(*root, *Phantom::Make(object(study, image))) == -1;
    }
    std::_Exit(std::min(failures, 100));
  }
  auto root = Open();
  std::minstd_rand random(8);
  int whole = 0, missing = 0;
  while (std::chrono::steady_clock::now() < end) {
    auto const wanted = Phantom::Make(object(int(random() % kStudies) + 1, int(random() % kImages) + 1));
    auto const fetched = Fetch(*root, Uids(*wanted));
    missing += !fetched;
    whole += fetched != nullptr;
    if (fetched) {
      ASSERT_EQ(fetched->GetSOPInstanceUID(), wanted->GetSOPInstanceUID());
      ASSERT_EQ(*fetched->Get(kPixelData), *wanted->Get(kPixelData));
    }
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failures of the deleter";
  EXPECT_GT(whole, 10);
  EXPECT_GT(missing, 0);
  std::printf("%d whole, %d not found\n", whole, missing);
  ExpectSound();
}
