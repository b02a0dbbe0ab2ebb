// The power goes after each step of an operation, and of a few one after the other, durable and relaxed ones mixed.
// Then the machine starts anew. Besides, each sync is left out: some state must show that.
#include "Power.h"

#include <algorithm>

namespace {

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
