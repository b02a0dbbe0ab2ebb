#include "Power.h"

#include <algorithm>
#include <unordered_set>

namespace {

using Fates = std::vector<Disk::Fate>;

/// What may become of the pending things: all alike, each alone otherwise than the rest, and some at random.
std::vector<Fates> Corners(Disk const& disk, std::size_t at_random, std::mt19937& random) {
  std::size_t const n = disk.Choices();
  auto const fates = [&](Disk::Fate entries, Disk::Fate bytes) {
    Fates all(n, bytes);
    for (std::size_t i = 0; i < n && disk.IsEntry(i); ++i)
      all[i] = entries;
    return all;
  };
  std::vector<Fates> corners{fates(Disk::Lost, Disk::Lost), fates(Disk::Kept, Disk::Kept),
                             fates(Disk::Lost, Disk::Kept)};
  for (int bytes = Disk::Lost; bytes < Disk::kFates; ++bytes)
    corners.push_back(fates(Disk::Kept, Disk::Fate(bytes)));
  for (std::size_t i = 0; i < n; ++i)
    for (int fate = Disk::Lost; fate < (disk.IsEntry(i) ? Disk::Zeros : Disk::kFates); ++fate) {
      corners.push_back(fates(Disk::Kept, Disk::Kept));
      corners.back()[i] = Disk::Fate(fate);
      corners.push_back(fates(Disk::Lost, Disk::Lost));
      corners.back()[i] = disk.IsEntry(i) ? Disk::Kept : Disk::Fate((fate + 1) % Disk::kFates);
    }
  for (std::size_t i = 0; i < at_random; ++i) {
    Fates some(n);
    for (std::size_t k = 0; k < n; ++k)
      some[k] = disk.IsEntry(k) ? Disk::Fate(random() % 2) : Disk::Fate(random() % Disk::kFates);
    corners.push_back(some);
  }
  return corners;
}

/// Whether two disks may hold different things.
bool Differ(Disk const& a, Disk const& b) {
  if (a.Choices() != b.Choices()) return true;
  std::mt19937 random;
  return a.Build(Fates(a.Choices(), Disk::Lost), random) != b.Build(Fates(b.Choices(), Disk::Lost), random);
}

} // namespace

void ForEachState(Play const& play, Recording const& recording, std::size_t skipped, Extent const& extent,
                  unsigned seed, std::function<bool(State)> const& judge) {
  std::mt19937 random(seed);
  std::unordered_set<std::size_t> seen;
  Disk disk(recording.start), complete(recording.start);
  for (std::size_t position = 0; position <= recording.steps.size(); ++position) {
    if (position > 0) complete.Apply(recording.steps[position - 1]);
    if (position > 0 && position - 1 != skipped) disk.Apply(recording.steps[position - 1]);
    if (skipped != kNoStep && position <= skipped) continue;
    if (skipped != kNoStep && !Differ(disk, complete)) return;
    bool const returned = std::count(recording.done.begin(), recording.done.end(), position) != 0;
    if (!returned && (position + seed) % extent.positions != 0) continue;
    auto const acked = std::size_t(std::count_if(recording.done.begin(), recording.done.end(),
                                                 [&](std::size_t done) { return done <= position; }));
    bool const sound = returned && play.IsDurable(acked);
    std::vector<Fates> corners = Corners(disk, extent.at_random, random);
    if (corners.size() > extent.of_one) {
      std::shuffle(corners.begin() + 8, corners.end(), random); // the first ones are all alike
      corners.resize(extent.of_one);
    }
    for (Fates const& fates : corners) {
      State state{disk.Build(fates, random), position, acked, sound};
      std::string all = std::to_string(acked);
      for (auto const& [name, content] : state.image)
        (all += name).append(content).push_back('\n');
      if (seen.insert(std::hash<std::string>()(all)).second && !judge(std::move(state))) return;
    }
  }
}
