#include <stdexcept>
#include <support/LogCapture.h>
#include <support/TempDirectory.h>

#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

namespace {

// The text behind the headline.
std::string text_of(std::string const& line) {
  size_t const at = line.find("LogFile_test.cpp:");
  size_t const end = line.find(": ", at);
  return end == std::string::npos ? line : line.substr(end + 2);
}

TEST(LogFile, TextIsEscapedAndComplete) {
  std::string const longest(100000, 'x');
  std::pair<std::string, std::string> const cases[] = {
      {"a\n2024-01-01 00:00:00.000 error forged", "a\\x0A2024-01-01 00:00:00.000 error forged"},
      {"\r\t\x1b[31m\x7f", "\\x0D\\x09\\x1B[31m\\x7F"},
      {"ends\n", "ends\\x0A"},
      {longest, longest},
  };
  for (auto const& [text, expected] : cases) {
    LogCapture log;
    DISK_LOG(3, "%s\n", text.c_str());
    DISK_LOG(3, "%s", text.c_str()); // its newline isn't ours
    ASSERT_EQ(log.Lines().size(), 2U);
    for (auto const& [level, line] : log.Lines())
      EXPECT_EQ(text_of(line), expected);
  }
}

TEST(LogFile, LinesAreContinued) {
  int computed = 0;
  DISK_LOG(3, "%d\n", ++computed); // nowhere to write to
  LogCapture log(6);
  DISK_LOG(7, "%d\n", ++computed); // nor is this one wanted
  EXPECT_EQ(computed, 0);
  DISK_LOG(3, "one");
  DISK_LOG_MORE(6, " two\n");
  DISK_LOG_MORE(5, "no headline\n");
  DISK_LOG(4, "unfinished");
  DISK_LOG(5, "next\n");
  Klb_LogFile::PrintOrLog(nullptr, "%d", 12);
  Klb_LogFile::PrintOrLog(nullptr, "%d\n", 34);
  std::string seen;
  for (auto const& [level, line] : log.Lines())
    seen += std::to_string(level) + " " + text_of(line) + "|";
  EXPECT_EQ(seen, "3 one two|5 no headline|4 unfinished|5 next|6 1234|");
}

TEST(LogFile, ThreadsDoNotMixLines) {
  LogCapture log;
  std::vector<std::thread> threads;
  for (int id = 0; id < 4; ++id)
    threads.emplace_back([id] {
      for (int i = 0; i < 500; ++i) {
        DISK_LOG(3, "<%d", id);
        DISK_LOG_MORE(3, " %d>", id); // the last one goes out with the thread
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  for (std::string const id : {"0", "1", "2", "3"})
    EXPECT_EQ(log.Count(3, ": <" + id + " " + id + ">"), 500);
  EXPECT_EQ(log.Lines().size(), 2000U);
}

TEST(LogFile, KeepsErrnoAndSurvivesItsSink) {
  std::vector<std::string> lines;
  bool fail = true;
  KlbGLog.SetSink([&](int, std::string const& line) {
    DISK_LOG(3, "from the sink\n");
    errno = EBADF;
    if (fail) throw std::runtime_error("full");
    lines.push_back(line);
  });
  errno = ENOSPC;
  DISK_LOG(3, "lost\n");
  DISK_LOG(3, "lost too\n");
  EXPECT_EQ(errno, ENOSPC);
  fail = false;
  DISK_LOG(3, "kept\n");
  KlbGLog.SetSink(nullptr);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], "2 lines of the log were lost");
  EXPECT_EQ(text_of(lines[1]), "kept");
}

} // namespace
