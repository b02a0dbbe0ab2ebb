#include "Bench.h"

#include <nlohmann/json.hpp>

namespace Bench {

void Report(std::string const& area, std::string const& what, std::string const& who, long n, double value,
            char const* unit) {
  nlohmann::ordered_json const line{{"area", area}, {"what", what},   {"who", who},
                                    {"n", n},       {"value", value}, {"unit", unit}};
  std::printf("%s\n", line.dump().c_str());
  std::fflush(stdout);
}

void Progress(std::string const& text) { std::fprintf(stderr, "%s\n", text.c_str()); }

double Median(std::vector<double> times) {
  Require(!times.empty(), "a median of nothing");
  std::nth_element(times.begin(), times.begin() + std::ptrdiff_t(times.size() / 2), times.end());
  return times[times.size() / 2];
}

void Require(bool ok, std::string const& what) {
  if (ok) return;
  std::fprintf(stderr, "bench: %s failed\n", what.c_str());
  std::exit(1);
}

Folder::Folder(std::string const& base) : path_(base + "/disk_bench_XXXXXX") {
  Require(mkdtemp(path_.data()) != nullptr, "making a folder");
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

} // namespace Bench
