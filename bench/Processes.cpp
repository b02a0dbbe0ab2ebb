// Two processes that store into different known studies, beside one; the same on a disk that has as much for each as
// for one alone; two that do nothing but write what is written; and two that show what the disk has for a second one:
// each overwrites one block of its own and syncs it.
#include "FileSet.h"
#include "Limits.h"

#include <fcntl.h>
#include <functional>
#include <sys/wait.h>

namespace {

using namespace Bench;

constexpr int kStudies = 20, kObjects = 300, kRuns = 5;
constexpr int kBehindAllRuns = 100 * kObjects; // the number of an image that no run has come to

/// A disk whose syncs take their time, and don't wait for those of others.
class PatientDisk : public Util_FileSystemInterface {
public:
  PatientDisk() { SetCurrent(this); }
  ~PatientDisk() override { SetCurrent(nullptr); }
  int Fsync(int) override { return usleep(kSync); }
  int Fdatasync(int) override { return usleep(kSync); }
  int SyncFileRange(int, off_t, off_t, unsigned) override { return 0; }

private:
  static constexpr useconds_t kSync = 250;
};

/// A process's share, of kObjects objects: into its study, from image number `first` on.
using Work = std::function<void(int study, int first)>;

/// The time that so many processes take for their shares.
double Take(Work const& work, int processes, int first) {
  return Microseconds([&] {
    std::vector<pid_t> children;
    for (int study = 1; study <= processes; ++study) {
      pid_t const child = fork();
      Require(child != -1, "forking");
      if (child == 0) {
        work(study, first);
        _exit(0);
      }
      children.push_back(child);
    }
    for (pid_t const child : children) {
      int status = 0;
      Require(waitpid(child, &status, 0) == child && status == 0, "a process that stores");
    }
  });
}

void Measure(char const* one, char const* two, Work const& work, int first) {
  Pair const took = MedianOfTurns(
      kRuns, [&] { Take(work, 1, std::exchange(first, first + kObjects)); },
      [&] { Take(work, 2, std::exchange(first, first + kObjects)); });
  Report("processes", "stores into known studies", one, kStudies, took.first / kObjects);
  Report("processes", "stores into known studies", two, kStudies, took.second / (2 * kObjects));
}

/// The same block, again and again: after the first time no call changes anything but its bytes.
void Overwrite(std::string const& path) {
  std::string const block(4096, 'x');
  int const file = open(path.c_str(), O_RDWR | O_CREAT, 0664);
  Require(file != -1, "making " + path);
  for (int i = 0; i < kObjects; ++i)
    Require(pwrite(file, block.data(), block.size(), 0) == ssize_t(block.size()) && fdatasync(file) == 0, "syncing");
  close(file);
}

} // namespace

void Bench::Processes(Scope const& scope) {
  Progress("two processes");
  Folder const folder(scope.base), bare(scope.base);
  auto const place = [](int i) { return Phantom::Object{.patient = i + 1, .study = i + 1}; };
  {
    auto const root = Open(folder.Path());
    Fill(*root, kStudies, place);
  }
  Util_FileSystem::SetDurability(Util_Durability::Full);
  auto const store = [&](int study, int first) {
    auto const root = Open(folder.Path());
    for (int i = first; i < first + kObjects; ++i)
      Store(*root, {.patient = study, .study = study, .series = i / kImages + 1, .image = i % kImages + 1});
  };
  Measure("one", "two", store, kImages);
  Measure(
      "patient disk, one", "patient disk, two",
      [&](int study, int first) {
        PatientDisk const disk;
        store(study, first);
      },
      kBehindAllRuns);
  // the directory files as they have become; each process has its own, and waits for no lock
  std::string const object = PathOf(*Open(folder.Path()), place(0));
  Measure(
      "bare, one", "bare, two",
      [&](int study, int first) {
        PrivateLimit limit(bare.Path() + "/" + std::to_string(study) + "-" + std::to_string(first), folder.Path(),
                           object);
        for (int i = 0; i < kObjects; ++i)
          limit.Write(true);
      },
      0);
  Measure(
      "disk, one", "disk, two", [&](int study, int) { Overwrite(bare.Path() + "/" + std::to_string(study)); }, 0);
}
