// A bar on standard error for work that takes longer than a second; nothing where nobody watches.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <unistd.h>

class Progress {
public:
  explicit Progress(long total) : total_(total), watched_(isatty(STDERR_FILENO) == 1) {}
  ~Progress() { Clear(); }
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  void Show(long done) {
    if (!watched_) return;
    auto const now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    shown_ = true;
    constexpr long kWidth = 40;
    auto const filled = std::size_t(kWidth * done / total_);
    std::string const bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    std::fprintf(stderr, "\r[%s] %ld of %ld", bar.c_str(), done, total_);
  }

  // Makes room for a line of text; the bar comes back with the next Show.
  void Clear() {
    if (shown_) std::fputs("\r\033[K", stderr);
    shown_ = false;
  }

private:
  long total_;
  bool watched_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + std::chrono::seconds(1);
};
