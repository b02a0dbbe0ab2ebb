// Six processes store into one study and into their own, query and fetch at once. Afterwards records, counters and
// files agree, and everything that was acknowledged is there.
#include "support/DicomdirWalk.h"
#include "support/FileSetFixture.h"

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

  using Note = std::function<void(std::string const& uid, std::string file)>;

  void CheckDirectoryFiles(Note const& note, int* studies) {
    auto const below = [this](IOD_Msg const& record) {
      std::string file = record.GetReferencedFileID().GetText();
      std::replace(file.begin(), file.end(), '\\', '/');
      return Records(file);
    };
    for (auto const& study : Records("DICOMDIR")) {
      if (study->Text(Dicom_Tag(0x0004, 0x1430)) != "STUDY") continue;
      ++*studies;
      int images = 0;
      auto const series_records = below(*study);
      EXPECT_EQ(int(study->GetNumberOfStudyRelatedSeries()), int(series_records.size()));
      for (auto const& series : series_records) {
        auto const instances = below(*series);
        EXPECT_EQ(int(series->GetNumberOfSeriesRelatedImages()), int(instances.size()));
        images += int(instances.size());
        for (auto const& instance : instances)
          note(instance->GetSOPInstanceUID().GetText(), instance->GetReferencedFileID().GetText());
      }
      EXPECT_EQ(int(study->GetNumberOfStudyRelatedImages()), images);
    }
  }

  void CheckDicomdir(Note const& note, int* studies) {
    DicomdirWalk const walk(At("DICOMDIR"));
    EXPECT_EQ(walk.problems, std::vector<std::string>());
    for (auto const* study : walk.Level(1)) {
      ++*studies;
      std::size_t images = 0;
      EXPECT_EQ(study->Number(0x00201206), int(study->children.size()));
      for (auto const& series : study->children) {
        EXPECT_EQ(series.Number(0x00201209), int(series.children.size()));
        images += series.children.size();
        for (auto const& instance : series.children)
          note(instance.Text(0x00041511), instance.Text(0x00041500));
      }
      EXPECT_EQ(study->Number(0x00201208), int(images));
    }
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

  // records, counters and files
  std::set<std::string> recorded, files;
  int studies = 0;
  auto const note = [&](std::string const& uid, std::string file) {
    EXPECT_TRUE(recorded.insert(uid).second) << "one record for each object";
    std::replace(file.begin(), file.end(), '\\', '/');
    EXPECT_TRUE(files.insert(file).second) << file;
  };
  if (structure)
    CheckDicomdir(note, &studies);
  else
    CheckDirectoryFiles(note, &studies);
  EXPECT_LE(studies, kProcesses + 1);
  EXPECT_EQ(recorded, acknowledged);
  for (auto const& [name, size] : Files()) {
    EXPECT_FALSE(name.ends_with(".tmp")) << name;
    std::string const base = name.substr(name.rfind('/') + 1);
    EXPECT_TRUE(!base.starts_with("I") || files.count(name) == 1) << name << " has no record";
  }
}
