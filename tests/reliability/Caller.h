#pragma once

#include <dlfcn.h>
#include <execinfo.h>
#include <string_view>

/// From where in the engine this was called: a number for the last calls in it that led here, the same for the same
/// ones in one process and in those that it forks.
inline std::size_t Caller() {
  constexpr int kMost = 64, kTold = 7; // those of the engine that are looked at: to the operation's part at one level
  void* frames[kMost];
  std::size_t caller = 0;
  for (int i = 0, told = 0, n = backtrace(frames, kMost); i < n && told < kTold; ++i) {
    Dl_info info{};
    bool const in_engine = dladdr(frames[i], &info) != 0 && info.dli_fname &&
                           std::string_view(info.dli_fname).find("libDisk") != std::string_view::npos;
    if (!in_engine) continue;
    caller = caller * 1000003 + reinterpret_cast<std::size_t>(frames[i]);
    ++told;
  }
  return caller;
}
