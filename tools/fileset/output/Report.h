// What a command tells on standard error while it works: a line for each failure, and a progress bar on a terminal.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Progress;

class Report {
public:
  using Failure = std::pair<std::string, std::string>; // what failed, and why

  Report();
  ~Report();
  Report(Report const&) = delete;
  Report& operator=(Report const&) = delete;

  // One line, "fileset: WHAT: CAUSE".
  void Fail(std::string_view what, std::string_view cause);
  // The same for what isn't a failure.
  void Warn(std::string_view what, std::string_view note) const;
  std::vector<Failure> const& Failures() const { return failures_; }
  // kDone, or kFailed after a failure.
  int Result() const;

  // Shows a bar of this many steps until End.
  void Begin(std::size_t steps);
  void Step();
  void End();

private:
  void print(std::string_view what, std::string_view text) const;

  std::vector<Failure> failures_;
  std::unique_ptr<Progress> progress_;
  std::size_t steps_done_ = 0;
};
