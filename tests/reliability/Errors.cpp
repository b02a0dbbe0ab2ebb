// Every call of every operation fails: with each errno, once, and from there on; reads and writes move few bytes; and
// allocations fail.
#include "Attempt.h"
#include "Campaign.h"

#include <array>
#include <cerrno>
#include <set>
#include <vector>

namespace {

// ENOENT comes once: that it is false is found out, or what is told to fail does; nothing is lost by it.
constexpr std::array kErrors{ENOSPC, EIO, EDQUOT, EMFILE, EACCES, EROFS, EINTR, ENFILE, ENOENT};

struct Sample {
  int calls, allocations; // every so manieth call; at most so many allocations of a case
};

// In a sample each place in the engine that calls the file system meets a failure at least once, whichever operation
// comes by.
void Calls(Case const& c, Sample const& sample, unsigned offset, std::set<std::size_t>& known, std::string const& place,
           Share& share) {
  for (int const few : {1, 7}) {
    Fault const fault{.kind = Fault::ShortCounts, .ordinal = few, .thorough = true};
    if (share.IsMine()) share.Run(c.Name() + ", " + fault.Name(), [&] { Attempt(c, fault, place); });
  }
  std::vector<std::size_t> callers;
  share.Run(c.Name() + ", no fault", [&] { callers = CallersOf(c, place); });
  for (int ordinal = 1; ordinal <= int(callers.size()); ++ordinal) {
    bool const is_new = known.insert(callers[std::size_t(ordinal) - 1]).second;
    for (std::size_t which = 0; which < kErrors.size() * 2; ++which) {
      Fault fault{.ordinal = ordinal, .error = kErrors[which / 2], .once = which % 2 == 0};
      unsigned const turn = unsigned(ordinal) + unsigned(which) + offset;
      fault.same_root = turn % 3 == 0;
      fault.thorough = turn % unsigned(kErrors.size() * 2 + 1) == 0;
      if (fault.error == ENOENT && !fault.once) continue;
      bool const is_first =
          is_new && (fault.error == ENOENT || which / 2 == (unsigned(ordinal) + offset) % (kErrors.size() - 1));
      bool const wanted = is_first || turn % unsigned(sample.calls) == 0;
      share.counts.third += !wanted && share.IsFirst();
      if (!wanted || !share.IsMine()) continue;
      ++share.counts.first;
      share.Run(c.Name() + ", " + fault.Name(), [&] { Attempt(c, fault, place); });
    }
  }
}

void Allocations(Case const& c, Sample const& sample, unsigned offset, std::string const& place, Share& share) {
  int allocations = 0;
  share.Run(c.Name() + ", no fault", [&] { allocations = CountAllocations(c, place); });
  int const step = allocations / sample.allocations + 1;
  for (int ordinal = int(offset % unsigned(step)) + 1; ordinal <= allocations; ordinal += step) {
    if (!share.IsMine()) continue;
    ++share.counts.second;
    Fault const fault{.kind = Fault::Allocations,
                      .ordinal = ordinal,
                      .once = ordinal / step % 4 != 0,
                      .same_root = ordinal / step % 2 == 0};
    share.Run(c.Name() + ", " + fault.Name(), [&] { Attempt(c, fault, place); });
  }
}

} // namespace

Result RunErrors(Options const& options) {
  Sample const sample = !options.point.empty() ? Sample{1, 1 << 30} : options.full ? Sample{1, 400} : Sample{149, 3};
  Counts const counts = InShares(options, [&](Share& share, std::vector<Case> const& cases, std::string const& place) {
    unsigned offset = options.seed; // samples of different cases, and of different runs, meet different calls
    std::set<std::size_t> known;
    for (Case const& c : cases) {
      Calls(c, sample, offset, known, place, share);
      Allocations(c, sample, offset, place, share);
      offset += 7;
    }
  });
  return {std::to_string(counts.first) + " calls x errnos, " + std::to_string(counts.third) + " not in the sample, " +
              std::to_string(counts.second) + " allocations",
          counts.failures};
}
