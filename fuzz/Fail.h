#pragma once
#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process when there is a problem.
inline void FailIf(std::string const& problem) {
  if (problem.empty()) return;
  std::fprintf(stderr, "%s\n", problem.c_str());
  std::abort();
}
