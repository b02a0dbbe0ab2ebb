// Six processes store into one study and into their own, query and fetch at once. Afterwards records, counters and
// files agree, and everything that was acknowledged is there.
#include "support/FileSetFixture.h"

#include <chrono>
#include <cstdlib>
#include <random>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class ProcessesTest : public FileSetTest {
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

} // namespace

TEST_F(ProcessesTest, StoreQueryAndFetchAtOnce) {
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

  // records, counters and files
  std::set<std::string> recorded, files;
  int studies = 0;
  for (auto const& study : Records("DICOMDIR")) {
    if (study->Text(Dicom_Tag(0x0004, 0x1430)) != "STUDY") continue;
    ++studies;
    std::string study_file = study->GetReferencedFileID().GetText();
    std::replace(study_file.begin(), study_file.end(), '\\', '/');
    int images = 0;
    auto const series_records = Records(study_file);
    EXPECT_EQ(int(study->GetNumberOfStudyRelatedSeries()), int(series_records.size()));
    for (auto const& series : series_records) {
      std::string series_file = series->GetReferencedFileID().GetText();
      std::replace(series_file.begin(), series_file.end(), '\\', '/');
      auto const instances = Records(series_file);
      EXPECT_EQ(int(series->GetNumberOfSeriesRelatedImages()), int(instances.size()));
      images += int(instances.size());
      for (auto const& instance : instances) {
        EXPECT_TRUE(recorded.insert(instance->GetSOPInstanceUID().GetText()).second) << "one record for each object";
        std::string file = instance->GetReferencedFileID().GetText();
        std::replace(file.begin(), file.end(), '\\', '/');
        EXPECT_TRUE(files.insert(file).second) << file;
      }
    }
    EXPECT_EQ(int(study->GetNumberOfStudyRelatedImages()), images);
  }
  EXPECT_LE(studies, kProcesses + 1);
  EXPECT_EQ(recorded, acknowledged);
  for (auto const& [name, size] : Files()) {
    EXPECT_FALSE(name.ends_with(".tmp")) << name;
    std::string const base = name.substr(name.rfind('/') + 1);
    EXPECT_TRUE(!base.starts_with("I") || files.count(name) == 1) << name << " has no record";
  }
}
