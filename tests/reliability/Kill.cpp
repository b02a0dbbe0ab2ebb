// Every operation is killed at the entry of each call that writes; and the opening that follows, with the operation
// done again, at each of its calls.
#include "support/Kill.h"
#include "Campaign.h"
#include "Oracle.h"

namespace {

int Act(Case const& c, Site const& site) {
  Session session(site, c.operation->flags);
  return c.operation->act(session) == 0 ? 0 : 1;
}

// What comes after a kill: the next open, and the operation again.
int OpenAndAct(Case const& c, Site const& site) {
  { OpenForAll(site.Set(), site.Structure()); }
  c.BringBack(site);
  Act(c, site);
  return 0;
}

struct Steps {
  int first, second; // each so manieth point, and of each every so manieth second one
};

void Twice(Case const& c, Site const& killed, std::string const& name, int from, int step, Share& share) {
  std::string const place = killed.directory + ".again";
  int const calls = CountWrites([&] { return OpenAndAct(c, killed.Copy(place)); });
  for (int second = from % step + 1; second <= calls; second += step)
    share.Run(name + " and " + std::to_string(second), [&] {
      ++share.counts.second;
      Site const site = killed.Copy(place);
      Require(KillAt(second, [&] { return OpenAndAct(c, site); }) == kKilled, "it isn't killed again");
      Judge(c, site, Outcome::Unknown);
    });
}

void Kills(Case const& c, Steps const& steps, unsigned offset, std::string const& place, Share& share) {
  int calls = 0;
  share.Run(c.Name() + ", no fault", [&] {
    Site const site = c.Copy(place);
    int result = 0;
    calls = CountWrites([&] { result = Act(c, site); });
    Require(result == 0, "it fails");
    Judge(c, site, Outcome::Done);
  });
  for (int point = 1; point <= calls; ++point) {
    bool const wanted = (unsigned(point) + offset) % unsigned(steps.first) == 0 || point == calls;
    if (!wanted || !share.IsMine()) continue;
    std::string const name = c.Name() + ", call " + std::to_string(point);
    std::string const killed_place = place + ".killed";
    Site const killed{killed_place, c.standard};
    share.Run(name, [&] {
      ++share.counts.first;
      Site const site = c.Copy(killed_place);
      Require(KillAt(point, [&] { return Act(c, site); }) == kKilled, "it isn't killed");
      Judge(c, site.Copy(place), Outcome::Unknown);
    });
    Twice(c, killed, name, point, steps.second, share);
  }
}

} // namespace

Result RunKills(Options const& options) {
  Steps const steps = options.full || !options.point.empty() ? Steps{1, 5} : Steps{9, 31};
  Counts const counts = InShares(options, [&](Share& share, std::vector<Case> const& cases, std::string const& place) {
    unsigned offset = options.seed; // samples of different cases meet different calls
    for (Case const& c : cases)
      Kills(c, steps, offset++, place, share);
  });
  return {std::to_string(counts.first) + " points, " + std::to_string(counts.second) + " doubly killed",
          counts.failures};
}
