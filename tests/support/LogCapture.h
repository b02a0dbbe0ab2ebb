// Takes the lines of the log for a scope, all levels unless told otherwise.
#pragma once

#include <infra/Klb_LogFile.h>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class LogCapture {
public:
  explicit LogCapture(int level = 7) : former_level_(Klb_LogFile::GetLogLevel(210000)) {
    KlbGLog.SetLogLevel(level);
    KlbGLog.SetSink([this](int line_level, std::string const& line) {
      std::lock_guard hold(mutex_);
      lines_.emplace_back(line_level, line);
    });
  }
  ~LogCapture() {
    KlbGLog.SetSink(nullptr);
    KlbGLog.SetLogLevel(former_level_);
  }
  LogCapture(LogCapture const&) = delete;
  LogCapture& operator=(LogCapture const&) = delete;

  // Level and text of each line so far, headline included, an unfinished line of this thread too.
  std::vector<std::pair<int, std::string>> Lines() {
    KlbGLog.Flush();
    std::lock_guard hold(mutex_);
    return lines_;
  }

  // How many lines of this level hold the text.
  int Count(int level, std::string const& text) {
    int count = 0;
    for (auto const& [line_level, line] : Lines())
      if (line_level == level && line.find(text) != std::string::npos) ++count;
    return count;
  }

private:
  int former_level_;
  std::mutex mutex_;
  std::vector<std::pair<int, std::string>> lines_;
};
