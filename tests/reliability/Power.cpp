// The power goes after each step of an operation, and of a few one after the other, durable and relaxed ones mixed.
// Then the machine starts anew. Besides, each sync is left out: some state must show that.
#include "Power.h"

#include <unordered_set>

#include <tuple>

namespace {

constexpr std::size_t kNoStep = SIZE_MAX;

/// How thoroughly the states of a play are gone through.
struct Extent {
  std::size_t states = kNoStep; // at most
  std::size_t positions = 1;    // each so manieth, and those at which an operation returned
  std::size_t at_random = 0;    // states of one position, besides the corners
};

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

/// Hands the distinct states after the steps to `judge` until that gives false. `skipped` is a sync that is left out:
/// then those from there to where the others have made up for it.
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
    for (Fates const& fates : Corners(disk, extent.at_random, random)) {
      State state{disk.Build(fates, random), position, acked, sound};
      std::string all = std::to_string(acked);
      for (auto const& [name, content] : state.image)
        (all += name).append(content).push_back('\n');
      if (seen.insert(std::hash<std::string>()(all)).second && !judge(std::move(state))) return;
    }
  }
}

/// A sync in a play that makes it.
struct Use {
  Play const* play;
  Recording const* recording;
  std::size_t step;
};

/// Which sync it is: the last calls that lead to it, and, as several files may be synced by one loop, at which level of
/// the file-set, and whether it is a directory file's.
using Kind = std::tuple<std::size_t, std::ptrdiff_t, bool>;

Kind KindOf(Step const& step) {
  std::string const& path = step.data;
  std::string const name = path.substr(path.rfind('/') + 1);
  return {step.caller, std::count(path.begin(), path.end(), '/'),
          name.starts_with("DIRFILE") || name.starts_with("DICOMDIR")};
}

bool IsNoticed(Use const& use, unsigned seed, std::string const& place) {
  bool noticed = false;
  ForEachState(*use.play, *use.recording, use.step, {.at_random = 4}, seed, [&](State const& state) {
    try {
      JudgeCut(*use.play, state, place, true);
    } catch (Complaint const&) {
      noticed = true;
    }
    return !noticed;
  });
  return noticed;
}

/// Leaves out each sync that the engine makes of the plays that make it, until one of them shows it. Counts them in
/// `second`, those that nothing shows in `third`.
void LeaveSyncsOut(std::vector<Play> const& plays, unsigned seed, std::string const& place, Share& share) {
  std::vector<std::unique_ptr<Recording>> recordings;
  std::vector<std::vector<Use>> syncs; // in the order in which they were met: the same in all processes
  std::map<Kind, std::size_t> known;
  for (Play const& play : plays) {
    if (play.meeting != 0) continue; // what the other has synced is synced once more
    recordings.push_back(std::make_unique<Recording>(Record(play, place)));
    auto const& steps = recordings.back()->steps;
    for (std::size_t at = 0; at < steps.size(); ++at) {
      if (!IsSync(steps[at])) continue;
      auto const [sync, is_new] = known.emplace(KindOf(steps[at]), syncs.size());
      if (is_new) syncs.emplace_back();
      syncs[sync->second].push_back({&play, recordings.back().get(), at});
    }
  }
  for (std::vector<Use> const& uses : syncs) {
    if (!share.IsMine()) continue;
    ++share.counts.second;
    Step const& step = uses[0].recording->steps[uses[0].step];
    share.Run(uses[0].play->Name() + ", step " + std::to_string(uses[0].step + 1) + ", no sync of " + step.data, [&] {
      for (Use const& use : uses)
        if (IsNoticed(use, seed, place)) return;
      ++share.counts.third;
      throw Complaint("nothing shows that it is missing, " + std::to_string(uses.size()) + " times");
    });
  }
}

void RunStates(Play const& play, Extent extent, unsigned seed, std::string const& place, Share& share) {
  Recording recording;
  share.Run(play.Name() + ", no fault", [&] { recording = Record(play, place); });
  std::vector<State> states;
  ForEachState(play, recording, kNoStep, extent, seed, [&](State state) {
    states.push_back(std::move(state));
    return true;
  });
  std::mt19937 random(seed);
  std::shuffle(states.begin(), states.end(), random);
  if (states.size() > extent.states) states.resize(extent.states);
  std::size_t number = 0;
  for (State const& state : states)
    share.Run(play.Name() + ", cut after step " + std::to_string(state.position) + ", state " +
                  std::to_string(number++),
              [&] {
                ++share.counts.first;
                JudgeCut(play, state, place, number % 4 == 0);
              });
}

} // namespace

Result RunPower(Options const& options) {
  Extent const extent =
      options.full ? Extent{.states = 170, .at_random = 12} : Extent{.states = 3, .positions = 9, .at_random = 1};
  Counts const counts = InShares(options, [&](Share& share, std::vector<Case> const& cases, std::string const& place) {
    std::vector<Play> const plays = Plays(cases);
    if (options.full) LeaveSyncsOut(plays, options.seed, place, share);
    for (Play const& play : plays)
      if (share.IsMine()) RunStates(play, extent, options.seed, place, share);
  });
  return {std::to_string(counts.first) + " states, " + std::to_string(counts.second) + " syncs left out, " +
              std::to_string(counts.third) + " of them unnoticed",
          counts.failures};
}
