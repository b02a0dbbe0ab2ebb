// Puts the engine through faults. See docs/reliability.md.
#include "Campaign.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <thread>

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

int main(int argc, char** argv) {
  std::map<std::string, Result (*)(Options const&)> const campaigns{{"errors", RunErrors},
                                                                    {"hostile", RunHostile},
                                                                    {"kill", RunKills},
                                                                    {"power", RunPower},
                                                                    {"processes", RunProcesses}};
  Options options;
  std::string name;
  CLI::App app("Puts the file-set engine through faults, and tells what it lost");
  app.add_option("CAMPAIGN", name, "Which faults")->required()->check(CLI::IsMember(campaigns));
  app.add_flag("--full", options.full, "Every point, instead of a sample");
  app.add_option("--seed", options.seed, "Of what is chosen at random")->capture_default_str();
  app.add_option("--only", options.selection.operation, "This operation only");
  app.add_option("--point", options.point, "Only what has this in its name, as a failure tells it; under a debugger");
  app.add_option("--structure", options.selection.structure, "This structure only")
      ->check(CLI::IsMember({"private", "standard"}));
  CLI11_PARSE(app, argc, argv);

  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0); // a point takes milliseconds there
  auto const start = std::chrono::steady_clock::now();
  Result const result = campaigns.at(name)(options);
  std::chrono::duration<double> const seconds = std::chrono::steady_clock::now() - start;
  std::printf("%-9s %s, %llu failures, %.0f s\n", name.c_str(), result.text.c_str(),
              static_cast<unsigned long long>(result.failures), seconds.count());
  return result.failures == 0 ? 0 : 1;
}
