// A campaign puts the cases through one kind of fault. It prints one line, and one per failure with what repeats it.
#pragma once

#include "Operations.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct Options {
  bool full = false;
  unsigned seed = 1; // of what is chosen at random, where anything is
  std::string point; // only what has this in its name, and in this process
  Selection selection;
};

/// The numbers of one campaign; each has its own meaning for them.
struct Counts {
  std::uint64_t first = 0, second = 0, third = 0, failures = 0;
};

/// One process's share of a campaign: share number `number` of `all`.
class Share {
public:
  Share(unsigned number, unsigned all, std::string point) : number_(number), all_(all), point_(std::move(point)) {}
  /// Whether this process is to run the next point. Say so for each, in the same order in all processes.
  bool IsFirst() const { return number_ == 0; }
  bool IsMine() { return next_++ % all_ == number_; }
  /// Runs `work`, which throws what is wrong, and reports that under a name which repeats it.
  void Run(std::string const& name, std::function<void()> const& work);
  Counts counts;

private:
  unsigned number_, all_, next_ = 0;
  std::string point_;
};

/// Runs `work` on the cases in as many processes as there are processors, and adds up what they counted. A process that
/// ends by itself is a failure of the point that it was at.
using Work = std::function<void(Share&, std::vector<Case> const&, std::string const& directory)>;
Counts InShares(Options const& options, Work const& work);

// The campaigns. Each gives the text between its name and the number of failures.
struct Result {
  std::string text;
  std::uint64_t failures = 0;
};
Result RunKills(Options const& options);
Result RunErrors(Options const& options);
Result RunHostile(Options const& options);
Result RunProcesses(Options const& options);
Result RunPower(Options const& options);
