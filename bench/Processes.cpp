// Two processes that store into different known studies, beside one.
#include "FileSet.h"

#include <sys/wait.h>

namespace {

using namespace Bench;

constexpr int kStudies = 20, kObjects = 300;

/// Stores of one process into its study, from image number `first` on.
void Work(std::string const& folder, int study, int first) {
  auto const root = Open(folder);
  for (int i = 0; i < kObjects; ++i)
    Store(*root, {.patient = study, .study = study, .image = first + i});
}

/// The time that so many processes take for kObjects each.
double Take(std::string const& folder, int processes, int first) {
  return Microseconds([&] {
    std::vector<pid_t> children;
    for (int study = 1; study <= processes; ++study) {
      pid_t const child = fork();
      Require(child != -1, "forking");
      if (child == 0) {
        Work(folder, study, first);
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

} // namespace

void Bench::Processes(Scope const& scope) {
  Progress("two processes");
  constexpr int kRuns = 5;
  Folder const folder(scope.base);
  {
    auto const root = Open(folder.Path());
    Fill(*root, kStudies, [](int i) { return Phantom::Object{.patient = i + 1, .study = i + 1}; });
  }
  Util_FileSystem::SetDurability(Util_Durability::Full);
  int first = 2;
  Pair const took = MedianOfTurns(
      kRuns, [&] { Take(folder.Path(), 1, std::exchange(first, first + kObjects)); },
      [&] { Take(folder.Path(), 2, std::exchange(first, first + kObjects)); });
  Report("processes", "stores into known studies", "one", kStudies, took.first / kObjects);
  Report("processes", "stores into known studies", "two", kStudies, took.second / (2 * kObjects));
}
