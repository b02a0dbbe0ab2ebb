// Gives the fuzz targets their seeds, and so many simple mutations of these: fuzz_replay CORPUS [MUTATIONS [SEED]]
// What it does follows from its arguments alone.
#include "support/Files.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

using Run = int(unsigned char const*, std::size_t);
extern "C" {
Run fuzz_dataset, fuzz_private, fuzz_dicomdir, fuzz_config, fuzz_identifier;
}

namespace {

struct Target {
  char const* name;
  Run* run;
  int weight; // its part of the mutations
} const kTargets[] = {{"dataset", fuzz_dataset, 8},
                      {"private", fuzz_private, 3},
                      {"dicomdir", fuzz_dicomdir, 3},
                      {"config", fuzz_config, 2},
                      {"identifier", fuzz_identifier, 4}};

std::vector<std::string> Seeds(std::filesystem::path const& folder) {
  std::vector<std::string> seeds;
  for (auto const& [name, text] : ReadFiles(folder))
    seeds.push_back(text);
  return seeds;
}

class Mutator {
public:
  Mutator(std::vector<std::string> const& seeds, unsigned seed) : seeds_(seeds), random_(seed) {}

  std::string Next() {
    std::string text = seeds_[Below(seeds_.size())];
    for (std::size_t steps = 1 + Below(4); steps > 0 && !text.empty(); --steps)
      Step(text);
    return text;
  }

private:
  std::size_t Below(std::size_t limit) { return limit ? random_() % limit : 0; }

  void Step(std::string& text) {
    std::size_t const at = Below(text.size()), length = 1 + Below(std::min<std::size_t>(text.size() - at, 64));
    switch (Below(7)) {
    case 0:
      text[at] = char(text[at] ^ 1 << Below(8));
      break;
    case 1:
      text[at] = "\0\x01\x7F\x80\xFF\\./"[Below(8)];
      break;
    case 2:
      text.erase(at, length);
      break;
    case 3:
      text.insert(at, text, at, length);
      break;
    case 4:
      text.resize(at);
      break;
    case 5: { // a part of another seed
      std::string const& other = seeds_[Below(seeds_.size())];
      std::size_t const from = Below(other.size());
      text.replace(at, length, other, from, 1 + Below(64));
      break;
    }
    default: { // a number
      static unsigned const numbers[] = {0, 1, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
      unsigned const number = Below(2) ? numbers[Below(std::size(numbers))] : unsigned(Below(text.size() + 16));
      for (std::size_t i = 0; i < 4 && at + i < text.size(); ++i)
        text[at + i] = char(number >> 8 * i);
    }
    }
  }

  std::vector<std::string> const& seeds_;
  std::minstd_rand random_;
};

void Give(Target const& target, std::string const& text) {
  target.run(reinterpret_cast<unsigned char const*>(text.data()), text.size());
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  int const mutations = argc > 2 ? std::atoi(argv[2]) : 6000;
  unsigned const seed = argc > 3 ? unsigned(std::atoi(argv[3])) : 1;
  auto const start = std::chrono::steady_clock::now();
  int runs = 0;
  for (Target const& target : kTargets) {
    std::fprintf(stderr, "fuzz_replay: %s\n", target.name); // the last one named is the one that failed
    std::vector<std::string> const seeds = Seeds(std::filesystem::path(argv[1]) / target.name);
    if (seeds.empty()) return 2;
    for (std::string const& text : seeds)
      Give(target, text);
    Mutator mutator(seeds, seed);
    int const count = mutations * target.weight / 20;
    for (int i = 0; i < count; ++i)
      Give(target, mutator.Next());
    runs += int(seeds.size()) + count;
  }
  std::chrono::duration<double> const time = std::chrono::steady_clock::now() - start;
  std::printf("%-9s %d inputs, 0 failures, %.0f s\n", "fuzz", runs, time.count());
  return 0;
}
