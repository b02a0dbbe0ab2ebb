// What the benchmarks share: a directory on a disk, medians of runs, and the lines that they report.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace Bench {

/// What is wanted of a run.
struct Scope {
  std::string base; // a folder on the disk that is measured
  bool quick;       // with fewer objects
};

/// One figure, as a line of JSON on standard output: of whom (`ours`, a limit, a peer), in which state, in `unit`.
void Report(std::string const& area, std::string const& what, std::string const& who, long n, double value,
            char const* unit = "us");
/// A line for whoever waits.
void Progress(std::string const& text);

using Clock = std::chrono::steady_clock;

template <class Work>
double Microseconds(Work work) {
  auto const start = Clock::now();
  work();
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double Median(std::vector<double> times);

/// The median time of `runs` runs of `work`; one run before them isn't counted.
template <class Work>
double MedianOf(int runs, Work work) {
  std::vector<double> times;
  for (int run = 0; run <= runs; ++run) {
    double const took = Microseconds(work);
    if (run > 0) times.push_back(took);
  }
  return Median(std::move(times));
}

struct Pair {
  double first, second, difference;
};
/// The same for two works that take turns, so that what else the machine does falls upon both; and the median of
/// their differences.
template <class First, class Second>
Pair MedianOfTurns(int runs, First first, Second second) {
  std::vector<double> firsts, seconds, differences;
  for (int run = 0; run <= runs; ++run) {
    double const a = Microseconds(first), b = Microseconds(second);
    if (run == 0) continue;
    firsts.push_back(a);
    seconds.push_back(b);
    differences.push_back(b - a);
  }
  return {Median(std::move(firsts)), Median(std::move(seconds)), Median(std::move(differences))};
}

/// Waits until what was written is on the disk, so that its writing doesn't fall into a measurement.
inline void Settle() { ::sync(); }

/// Ends the program where a benchmark would otherwise measure a failure.
void Require(bool ok, std::string const& what);

/// A directory below `base` that goes with its scope.
class Folder {
public:
  explicit Folder(std::string const& base);
  ~Folder();
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  std::string const& Path() const { return path_; }

private:
  std::string path_;
};

// The areas, each by its name on the command line.
void DirectoryFiles(Scope const& scope);
void PrivateStores(Scope const& scope);
void StandardStores(Scope const& scope);
void Queries(Scope const& scope);
void Fetches(Scope const& scope);
void Deletes(Scope const& scope);
void Caches(Scope const& scope);
void Processes(Scope const& scope);
void Bulk(Scope const& scope);
void Toolkit(Scope const& scope);

/// What a process that has just begun does for Queries, which started it: opens the file-set and asks it.
int AskAfresh(std::string const& folder);
/// What a process does with which a peer takes turns.
int StoreWhenAsked(Scope const& scope, int objects);

} // namespace Bench
