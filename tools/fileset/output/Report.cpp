#include "output/Report.h"

#include "output/Text.h"
#include "phantom/Progress.h"
#include "program/Exit.h"

#include <cstdio>

Report::Report() = default;
Report::~Report() = default;

void Report::Fail(std::string_view what, std::string_view cause) {
  print(what, cause);
  failures_.emplace_back(what, cause);
}

void Report::Warn(std::string_view what, std::string_view note) const { print(what, note); }

int Report::Result() const { return failures_.empty() ? kDone : kFailed; }

void Report::Begin(std::size_t steps) {
  steps_done_ = 0;
  progress_ = steps > 0 ? std::make_unique<Progress>(long(steps)) : nullptr;
}

void Report::Step() {
  ++steps_done_;
  if (progress_) progress_->Show(long(steps_done_));
}

void Report::End() { progress_.reset(); }

void Report::print(std::string_view what, std::string_view text) const {
  if (progress_) progress_->Clear();
  std::fprintf(stderr, "fileset: %s: %s\n", Printable(what).c_str(), Printable(text).c_str());
}
