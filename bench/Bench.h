// What the benchmarks share: a directory on a disk, medians of runs, and a line of a table.
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

constexpr int kRuns = 7;

/// The median time of `runs` runs of `work`, in microseconds; one run before them isn't counted.
template <class Work>
double Median(Work work, int runs = kRuns) {
  std::vector<double> times;
  for (int run = 0; run <= runs; ++run) {
    auto const start = std::chrono::steady_clock::now();
    work();
    std::chrono::duration<double, std::micro> const took = std::chrono::steady_clock::now() - start;
    if (run > 0) times.push_back(took.count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

struct Pair {
  double first, second, difference;
};
/// The same for two works that take turns, so that what else the machine does falls upon both; and the median of
/// their differences.
template <class First, class Second>
Pair MedianOfTurns(First first, Second second, int runs) {
  std::vector<double> firsts, seconds, differences;
  for (int run = 0; run < runs; ++run) {
    firsts.push_back(Median(first, 1));
    seconds.push_back(Median(second, 1));
    differences.push_back(seconds.back() - firsts.back());
  }
  auto const median = [](std::vector<double>& times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
  };
  return {median(firsts), median(seconds), median(differences)};
}

/// Waits until what was written is on the disk, so that its writing doesn't fall into a measurement.
inline void Settle() { ::sync(); }

/// Ends the program where a benchmark would otherwise measure a failure.
inline void Require(bool ok, char const* what) {
  if (ok) return;
  std::fprintf(stderr, "bench: %s failed\n", what);
  std::exit(1);
}

/// A directory below `base` that goes with its scope.
class Folder {
public:
  explicit Folder(std::string const& base) : path_(base + "/disk_bench_XXXXXX") {
    Require(mkdtemp(path_.data()) != nullptr, "making a folder");
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  std::string const& Path() const { return path_; }

private:
  std::string path_;
};

void DirectoryFiles(std::string const& base);
void FileSets(std::string const& base);
void Standard(std::string const& base);
void Caches(std::string const& base);

} // namespace Bench
