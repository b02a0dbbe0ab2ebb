#include "Power.h"

#include <algorithm>
#include <map>
#include <memory>
#include <tuple>

namespace {

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

} // namespace

/// A sync is left out of the plays that make it, until one of them shows it.
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
