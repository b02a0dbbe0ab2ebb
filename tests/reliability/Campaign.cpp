#include "Campaign.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// What a process tells about itself in memory that outlives it.
struct Told {
  Counts counts;
  std::array<char, 512> at;
};

void Print(std::string const& name, std::string const& complaint) {
  std::string const line = "  " + name + ": " + complaint + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) == -1) std::abort();
}

Told* s_told = nullptr; // this process's own

} // namespace

void Share::Run(std::string const& name, std::function<void()> const& work) {
  if (!point_.empty() && name.find(point_) == name.npos && name.find(", no fault") == name.npos) return;
  std::strncpy(s_told->at.data(), name.c_str(), s_told->at.size() - 1);
  try {
    work();
  } catch (std::exception const& complaint) {
    ++counts.failures;
    Print(name, complaint.what());
  }
  s_told->counts = counts;
}

Counts InShares(Options const& options, Work const& work) {
  TempDirectory const prepared;
  std::vector<Case> const cases = Cases(options.selection, prepared.Path());
  if (!options.point.empty()) {
    Told told{};
    s_told = &told;
    TempDirectory const directory;
    Share share(0, 1, options.point);
    work(share, cases, directory / "site");
    return share.counts;
  }
  unsigned const processes = std::max(std::thread::hardware_concurrency(), 1u);
  auto* const told = static_cast<Told*>(
      mmap(nullptr, sizeof(Told) * processes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (told == MAP_FAILED) std::abort();
  std::vector<pid_t> children;
  for (unsigned number = 0; number < processes; ++number) {
    pid_t const child = fork();
    if (child == 0) {
      s_told = told + number;
      {
        TempDirectory const directory;
        Share share(number, processes, {});
        work(share, cases, directory / "site");
        s_told->counts = share.counts;
      }
      _exit(0);
    }
    children.push_back(child);
  }
  Counts sum;
  for (unsigned number = 0; number < processes; ++number) {
    int status = 0;
    waitpid(children[number], &status, 0);
    Counts& counts = told[number].counts;
    if (status != 0) {
      ++counts.failures;
      Print(told[number].at.data(), "it ends the process, status " + std::to_string(status));
    }
    sum.first += counts.first;
    sum.second += counts.second;
    sum.third += counts.third;
    sum.failures += counts.failures;
  }
  munmap(told, sizeof(Told) * processes);
  return sum;
}
