#include "NeverDestroyed.h"
#include "infra/Klb_LogLine.h"
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <infra/Klb_LogFile.h>
#include <memory>
#include <mutex>
#include <spdlog/sinks/rotating_file_sink.h>
#include <string_view>

constinit Klb_LogFile KlbGLog;
constinit std::atomic<int> Klb_LogFile::s_threshold{0};

namespace {

// Where lines go.
struct Output {
  std::mutex mutex;
  std::atomic<int> level{4};
  Klb_LogFile::Sink sink;
  std::shared_ptr<spdlog::sinks::sink> file;
  unsigned long lost_by_sink = 0;
  unsigned long lost_by_file = 0;

  int threshold() const { return sink || file ? level.load() : 0; }
};

Output& output() {
  static NeverDestroyed<Output> instance;
  return *instance;
}

void send_line(int level, std::string const& line) noexcept;

// What a thread keeps for its line.
struct ThreadLine {
  char const* file = ""; // of the last StoreParams
  int line = 0;
  int level = 3;
  bool open = false;
  bool sending = false;
  int open_level = 3;
  std::string text;

  ~ThreadLine();
  void finish() noexcept;
};

thread_local bool t_ended = false; // outlives t_line: static destructors may log after it
thread_local ThreadLine t_line;

ThreadLine::~ThreadLine() {
  finish();
  t_ended = true;
}

void ThreadLine::finish() noexcept {
  if (!open) return;
  open = false;
  sending = true;
  send_line(open_level, text);
  sending = false;
  text.clear();
}

class ErrnoKeeper {
public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(ErrnoKeeper const&) = delete;
  ErrnoKeeper& operator=(ErrnoKeeper const&) = delete;

private:
  int saved_;
};

// `write` may throw. A full disk must not fail what the line tells about; the next line that gets out says
// how many were lost.
template <class Write>
void try_write(unsigned long& lost, Write write, int level, std::string const& line) noexcept {
  try {
    if (lost) write(3, std::to_string(lost) + " lines of the log were lost");
    lost = 0;
    write(level, line);
  } catch (...) {
    ++lost;
  }
}

void send_line(int level, std::string const& line) noexcept {
  Output& out = output();
  std::lock_guard hold(out.mutex);
  auto const to_file = [&out](int, std::string const& text) {
    out.file->log(spdlog::details::log_msg({}, spdlog::level::info, text));
    out.file->flush();
  };
  if (out.file) try_write(out.lost_by_file, to_file, level, line);
  if (out.sink) try_write(out.lost_by_sink, std::cref(out.sink), level, line);
}

char const* level_name(int level) {
  static constexpr char const* names[] = {"error", "warning", "notice", "information", "debug"};
  return names[std::clamp(level, 3, 7) - 3];
}

void append_headline(ThreadLine& line) {
  using namespace std::chrono;
  auto const now = system_clock::now();
  std::time_t const seconds = system_clock::to_time_t(now);
  auto const milliseconds = duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  char time[40];
  size_t const n = std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &parts);
  std::snprintf(time + n, sizeof time - n, ".%03d ", static_cast<int>(milliseconds));
  char const* const slash = std::strrchr(line.file, '/');
  line.text.append(time).append(level_name(line.level)).append(" ").append(slash ? slash + 1 : line.file);
  line.text.append(":").append(std::to_string(line.line)).append(": ");
}

void append_escaped(std::string& line, std::string_view text) {
  static constexpr char digits[] = "0123456789ABCDEF";
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      line += c;
    } else {
      line.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
    }
  }
}

__attribute__((format(printf, 1, 0))) std::string format_text(char const* format, va_list args) {
  va_list again;
  va_copy(again, args);
  char small[512];
  int const length = std::vsnprintf(small, sizeof small, format, args); // NOLINT(clang-analyzer-valist*)
  std::string text;
  if (length < 0) { // an argument that can't be converted
    text = format;
  } else if (static_cast<size_t>(length) < sizeof small) {
    text.assign(small, static_cast<size_t>(length));
  } else {
    text.resize(static_cast<size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

__attribute__((format(printf, 2, 0))) void add_text(bool headline, char const* format, va_list args) noexcept {
  ErrnoKeeper const keep_errno;
  if (t_ended || t_line.sending) return;
  ThreadLine& line = t_line;
  try {
    std::string text = format_text(format, args);
    bool const ends = format[0] != '\0' && format[std::strlen(format) - 1] == '\n';
    if (ends && !text.empty()) text.pop_back();
    if (headline) line.finish();
    if (!line.open) {
      line.open = true;
      line.open_level = line.level;
      if (headline) append_headline(line);
    }
    append_escaped(line.text, text);
    if (ends) line.finish();
  } catch (std::bad_alloc const&) { // what we have of the line goes out with the next one
  }
}

} // namespace

int Klb_LogFile::store_params(char const* file, int line, int level, int, int) noexcept {
  if (t_ended || t_line.sending) return 0;
  t_line.file = file;
  t_line.line = line;
  t_line.level = level;
  return 1;
}

void Klb_LogLine(char const* format, va_list args) noexcept { add_text(true, format, args); }

void Klb_LogFile::Log(char const* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  add_text(true, format, args);
  va_end(args);
}

void Klb_LogFile::LogText(char const* text) noexcept {
  std::string_view line = text;
  if (line.ends_with('\n')) line.remove_suffix(1);
  Log("%.*s\n", static_cast<int>(line.size()), line.data());
}

void Klb_LogFile::LogNoHeadline(char const* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  add_text(false, format, args);
  va_end(args);
}

void Klb_LogFile::Flush() noexcept {
  ErrnoKeeper const keep_errno;
  if (!t_ended && !t_line.sending) t_line.finish();
}

void Klb_LogFile::PrintOrLog(FILE* stream, char const* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  if (stream) {
    ErrnoKeeper const keep_errno;
    std::vfprintf(stream, format, args); // NOLINT(clang-analyzer-valist*)
  } else if (KlbGLog.StoreParams(__FILE__, __LINE__, 6, 21, 1)) {
    add_text(false, format, args);
  }
  va_end(args);
}

int Klb_LogFile::GetLogLevel(int) noexcept { return output().level; }

void Klb_LogFile::SetLogLevel(int level) noexcept {
  std::lock_guard hold(output().mutex);
  output().level = std::clamp(level, 3, 7);
  s_threshold = output().threshold();
}

int Klb_LogFile::SetLogFile(char const* path) noexcept {
  ErrnoKeeper const keep_errno;
  std::shared_ptr<spdlog::sinks::sink> file;
  try {
    if (path) {
      file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, 10 << 20, 5);
      file->set_pattern("%v");
    }
  } catch (std::exception const& e) {
    DISK_LOG(3, "Can't open the log file: %s\n", e.what());
    return -1;
  }
  Flush();
  std::lock_guard hold(output().mutex);
  output().file.swap(file);
  s_threshold = output().threshold();
  return 0;
}

void Klb_LogFile::SetSink(Sink sink) noexcept {
  Flush();
  std::lock_guard hold(output().mutex);
  output().sink.swap(sink);
  s_threshold = output().threshold();
}
