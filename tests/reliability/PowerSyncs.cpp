#include "Power.h"

#include <map>
#include <memory>

namespace {

/// A sync in a play that makes it.
struct Use {
  Play const* play;
  Recording const* recording;
  std::size_t step;
};

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

/// A sync is told by the last calls that lead to it. It is left out of the plays that make it, until one of them shows
/// it.
void LeaveSyncsOut(std::vector<Play> const& plays, unsigned seed, std::string const& place, Share& share) {
  std::vector<std::unique_ptr<Recording>> recordings;
  std::vector<std::vector<Use>> syncs; // in the order in which they were met: the same in all processes
  std::map<std::size_t, std::size_t> known;
  for (Play const& play : plays) {
    recordings.push_back(std::make_unique<Recording>(Record(play, place)));
    auto const& steps = recordings.back()->steps;
    for (std::size_t at = 0; at < steps.size(); ++at) {
      if (!IsSync(steps[at])) continue;
      auto const [sync, is_new] = known.emplace(steps[at].caller, syncs.size());
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
