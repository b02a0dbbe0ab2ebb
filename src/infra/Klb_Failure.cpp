#include "infra/Klb_Failure.h"

#include "infra/Klb_LogLine.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t kMostText = 1024;

/// All of it is plain, so that it serves until the very end of a thread.
struct State {
  int code;
  char path[kMostText], text[kMostText];
  unsigned depth, quiet;
  Klb_Listener listener;

  Klb_Failure Failure() const { return {code, path, text}; }
  void Clear() {
    code = 0;
    *path = *text = '\0';
  }
};

thread_local constinit State t_state{};

/// A text of limited length, NUL at its end.
class Text {
public:
  explicit Text(char* text) : text_(text) { *text_ = '\0'; }
  Text& operator+=(std::string_view more) {
    std::size_t const count = std::min(more.size(), kMostText - 1 - length_);
    more.copy(text_ + length_, count);
    text_[length_ += count] = '\0';
    return *this;
  }

private:
  char* text_;
  std::size_t length_ = 0;
};

/// A line's format without the name of the operation that begins it: "Store: " or "SetStudyAccessed() - ".
char const* WithoutOperation(char const* format) {
  std::size_t const end = std::strcspn(format, " %/<");
  if (format[end] != ' ' || end == 0) return format;
  if (format[end - 1] == ':') return format + end + 1;
  bool const is_call = end > 2 && std::strncmp(format + end - 2, "() - ", 5) == 0;
  return is_call ? format + end + 3 : format;
}

std::string_view WithoutEnd(std::string_view line) { return line.substr(0, line.find_last_not_of("\n. ") + 1); }

/// The text for people is the cause's own, or else what the line says.
void Fill(State& state, Klb_Cause const& cause, std::string_view line) {
  state.code = cause.code;
  Text(state.path) += cause.path;
  Text text(state.text);
  if (!cause.verb.empty()) ((text += "can't ") += cause.verb) += cause.path.empty() ? "" : " ";
  if (!cause.verb.empty() || !cause.said.empty()) text += cause.path;
  if (!cause.said.empty()) (text += *state.text ? ": " : "") += cause.said;
  if (*state.text == '\0') text += line;
}

/// Whether this failure is the first one of its operation.
bool IsWanted(State const& state) { return state.quiet == 0 && (state.depth == 0 || state.code == 0); }

/// Tells of what is noted, which is no failure any more.
void PassNoted(State& state) {
  int const saved = errno;
  if (state.code != 0 && state.listener.tell) state.listener.tell(state.listener.list, state.Failure());
  errno = saved;
  state.Clear();
}

int note(Klb_Cause const& cause, std::string_view line) {
  if (IsWanted(t_state)) Fill(t_state, cause, line);
  if (cause.sets_error) KlbGError.Set(cause.code);
  return -1;
}

} // namespace

Klb_Cause Klb_System(int error, std::string_view verb, std::string_view path) noexcept {
  Klb_Cause cause = KLB_ERR_SYSTEM + error;
  cause.verb = verb;
  cause.path = path;
  if (error != 0) cause.said = Klb_SystemText(error);
  return cause;
}

char const* Klb_SystemText(int error) noexcept {
  char const* const text = error == 0 ? nullptr : strerrordesc_np(error);
  return text ? text : "a system call failed";
}

int Klb_Place::fail(Klb_Cause const& cause, char const* format, va_list args) const noexcept {
  int const saved = errno;
  char text[kMostText] = "";
  va_list again;
  va_copy(again, args);
  if (KlbGLog.StoreParams(file, line, 3, 21, 1)) Klb_LogLine(format, args);
  if (IsWanted(t_state)) std::vsnprintf(text, sizeof text, WithoutOperation(format), again);
  va_end(again);
  note(cause, WithoutEnd(text));
  errno = saved;
  return -1;
}

int Klb_Place::Fail(char const* format, ...) const noexcept {
  va_list args;
  va_start(args, format);
  fail(Klb_Cause(KLB_FAILURE_UNTOLD), format, args);
  va_end(args);
  return -1;
}

int Klb_Place::Fail(Klb_Cause const& cause, char const* format, ...) const noexcept {
  va_list args;
  va_start(args, format);
  fail(cause, format, args);
  va_end(args);
  return -1;
}

int Klb_Place::FailText(char const* text) const noexcept { return FailText(Klb_Cause(KLB_FAILURE_UNTOLD), text); }

int Klb_Place::FailText(Klb_Cause const& cause, char const* text) const noexcept {
  if (KlbGLog.StoreParams(file, line, 3, 21, 1)) KlbGLog.LogText(text);
  return note(cause, WithoutEnd(WithoutOperation(text)));
}

int Klb_Note(Klb_Cause const& cause) noexcept { return note(cause, {}); }

void Klb_PassOver(Klb_Cause const& cause) noexcept {
  State const& now = t_state;
  if (now.quiet > 0 || !now.listener.tell) return;
  int const saved = errno;
  State passed{};
  Fill(passed, cause, {});
  now.listener.tell(now.listener.list, passed.Failure());
  errno = saved;
}

Klb_Failure Klb_LastFailure() noexcept { return t_state.Failure(); }

Klb_Listener Klb_Listen(Klb_Listener listener) noexcept { return std::exchange(t_state.listener, listener); }

Klb_Operation::Klb_Operation() noexcept {
  State& state = t_state;
  if (state.depth++ == 0 && state.quiet == 0) state.Clear();
}

Klb_Operation::~Klb_Operation() { --t_state.depth; }

int Klb_Operation::End(int result) const noexcept {
  State& state = t_state;
  if (state.depth > 1 || state.quiet > 0) return result;
  if (result != -1) {
    PassNoted(state);
  } else if (state.code == 0) {
    Klb_Note(Klb_Cause(KLB_FAILURE_UNTOLD).Because("no cause is known"));
  }
  return result;
}

Klb_Quiet::Klb_Quiet() noexcept { ++t_state.quiet; }

Klb_Quiet::~Klb_Quiet() { --t_state.quiet; }

Klb_Attempt::Klb_Attempt() noexcept : is_first_(t_state.code == 0) {}

void Klb_Attempt::Forget() const noexcept {
  State& state = t_state;
  if (is_first_ && state.quiet == 0) state.Clear();
}

void Klb_Attempt::PassOver() const noexcept {
  State& state = t_state;
  if (is_first_ && state.quiet == 0) PassNoted(state);
}
