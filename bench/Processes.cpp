// Two processes that store into different known studies, beside one; and two that do nothing but write what is written.
#include "FileSet.h"
#include "Limits.h"

#include <functional>
#include <sys/wait.h>

namespace {

using namespace Bench;

constexpr int kStudies = 20, kObjects = 300, kRuns = 5;

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
  Measure(
      "one", "two",
      [&](int study, int first) {
        auto const root = Open(folder.Path());
        for (int i = 0; i < kObjects; ++i)
          Store(*root, {.patient = study, .study = study, .image = first + i});
      },
      2);
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
}
