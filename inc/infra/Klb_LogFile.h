// The log. A line takes two calls, so that what an unwanted line would print is never computed: StoreParams
// says whether the line is wanted, Log writes it. The macros below do both:
//
//   DISK_LOG(3, "Can't open %s\n", path);
//
// Levels: 3 error, 4 warning, 5 notice, 6 information, 7 debug; a line is wanted up to the level in force (4
// at first). Nothing is written anywhere until a file or a sink is set. Each thread builds a line of its own,
// which goes out when its newline comes, when the thread starts another line, or when the thread ends; lines
// of two threads never mix. Control characters in a text are written as `\x0A`: what comes from outside can't
// forge a line. No operation throws, and all of them leave errno as it was.
#pragma once

#include <infra/Disk_Export.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <string>

class DISK_EXPORT Klb_LogFile {
public:
  /// Gets a finished line, headline included, without its newline. Calls come one at a time, from the thread
  /// that logs; a sink must neither change the sinks nor wait for another thread that logs. What a sink itself
  /// logs is dropped.
  using Sink = std::function<void(int level, std::string const& line)>;

  constexpr Klb_LogFile() = default;
  Klb_LogFile(Klb_LogFile const&) = delete;
  Klb_LogFile& operator=(Klb_LogFile const&) = delete;

  /// Not 0 if a line of this level is wanted; then keeps for this thread what the headline needs. `file` must
  /// stay good until the line is out (`__FILE__` does). Costs one comparison when the line isn't wanted.
  int StoreParams(char const* file, int line, int level, int category, int flag) noexcept {
    return level > s_threshold.load(std::memory_order_relaxed) ? 0 : store_params(file, line, level, category, flag);
  }

  /// Starts a line: headline (time, level, file and line of the last StoreParams), then the text. Only a
  /// newline that ends the format itself ends the line.
  void Log(char const* format, ...) noexcept __attribute__((format(printf, 2, 3)));

  /// Continues this thread's line, or, where none is open, starts one without a headline.
  void LogNoHeadline(char const* format, ...) noexcept __attribute__((format(printf, 2, 3)));

  /// Writes a line whose text is chosen at run time; a newline that ends it may stand in `text`.
  void LogText(char const* text) noexcept;

  /// Sends this thread's open line out as it stands.
  void Flush() noexcept;

  /// The level in force, for every category.
  static int GetLogLevel(int category_code) noexcept;

  /// Writes to `stream` as fprintf does, without a look at the text; where `stream` is null, continues a line
  /// of the log at level 6.
  static void PrintOrLog(FILE* stream, char const* format, ...) noexcept __attribute__((format(printf, 2, 3)));

  /// A level outside 3 to 7 becomes the nearest of these.
  void SetLogLevel(int level) noexcept;

  /// Lets lines go to a file as well, which is appended to and moved aside when it has grown to 10 MiB (5 old
  /// ones are kept). Null ends that. -1: the file can't be opened, and the file that was set before stays.
  [[nodiscard]] int SetLogFile(char const* path) noexcept;

  /// Lets lines go to `sink` as well; an empty one ends that. After the return the former sink isn't called
  /// any more.
  void SetSink(Sink sink) noexcept;

private:
  static int store_params(char const* file, int line, int level, int category, int flag) noexcept;

  static std::atomic<int> s_threshold; // the level in force, or 0 while there is nowhere to write to
};

DISK_EXPORT extern Klb_LogFile KlbGLog;

#define DISK_LOG(level, ...)                                                                                           \
  do {                                                                                                                 \
    if (KlbGLog.StoreParams(__FILE__, __LINE__, (level), 21, 1)) KlbGLog.Log(__VA_ARGS__);                             \
  } while (0)

// For a line of fixed text that is chosen at run time.
#define DISK_LOG_TEXT(level, text)                                                                                     \
  do {                                                                                                                 \
    if (KlbGLog.StoreParams(__FILE__, __LINE__, (level), 21, 1)) KlbGLog.LogText(text);                                \
  } while (0)

// Continues the line of the DISK_LOG before it, whose format had no newline at its end.
#define DISK_LOG_MORE(level, ...)                                                                                      \
  do {                                                                                                                 \
    if (KlbGLog.StoreParams(__FILE__, __LINE__, (level), 21, 1)) KlbGLog.LogNoHeadline(__VA_ARGS__);                   \
  } while (0)
