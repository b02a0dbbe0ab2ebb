// How an operation fails. The place that finds a failure logs its line and notes the cause in one step:
//
//   return DISK_FAIL(Klb_System(errno, "open", path), "Init: Can't open file %s (errno=%d).\n", path.c_str(), errno);
//
// A caller adds its own line by DISK_FAIL("Store: Can't store.\n"). Each thread keeps one cause per operation: the
// first one noted, because the deepest place fails first. Noting never allocates or throws, and keeps errno.
#pragma once

#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>

#include <cstdarg>
#include <string_view>

/// Codes of failures that set none in KlbGError. Disk_Error.h has them all; these are those of the lower floors.
enum Klb_FailureCode {
  KLB_FAILURE_UNTOLD = 212000, ///< nothing is known but the text
  KLB_FAILURE_ARGUMENT = 212003
};

/// Why something failed. It refers to the texts it is made of, so it is made where it is used. A code below 212000 is
/// set in KlbGError as well.
struct Klb_Cause {
  Klb_Cause(int failure_code) : code(failure_code), sets_error(failure_code < KLB_FAILURE_UNTOLD) {}

  /// What failed is this file or folder.
  Klb_Cause& At(std::string_view file) {
    path = file;
    return *this;
  }
  /// The text for people, if the line of the log doesn't say it.
  Klb_Cause& Because(std::string_view why) {
    said = why;
    return *this;
  }
  /// The same cause under another code.
  Klb_Cause& As(int other) {
    code = other;
    sets_error = other < KLB_FAILURE_UNTOLD;
    return *this;
  }
  /// Leaves KlbGError alone.
  Klb_Cause& Unset() {
    sets_error = false;
    return *this;
  }

  int code;
  bool sets_error;
  std::string_view verb, path, said;
};

/// A system call failed with `error`, so we couldn't `verb` the file or folder: code 210000 + `error`.
Klb_Cause Klb_System(int error, std::string_view verb, std::string_view path = {}) noexcept;

/// What an errno means; static.
char const* Klb_SystemText(int error) noexcept;

/// The place of a DISK_FAIL. Each operation logs its line at level 3 and gives -1.
struct Klb_Place {
  char const* file;
  int line;

  int Fail(char const* format, ...) const noexcept __attribute__((format(printf, 2, 3)));
  int Fail(Klb_Cause const& cause, char const* format, ...) const noexcept __attribute__((format(printf, 3, 4)));
  /// For a line that is chosen at run time.
  int FailText(char const* text) const noexcept;
  int FailText(Klb_Cause const& cause, char const* text) const noexcept;

private:
  int fail(Klb_Cause const& cause, char const* format, va_list args) const noexcept;
};

#define DISK_FAIL(...) Klb_Place{__FILE__, __LINE__}.Fail(__VA_ARGS__)
#define DISK_FAIL_TEXT(...) Klb_Place{__FILE__, __LINE__}.FailText(__VA_ARGS__)

/// Notes a cause whose line is of another level, or that has none. Gives -1.
int Klb_Note(Klb_Cause const& cause) noexcept;
/// Tells of a failure past which the operation goes on.
void Klb_PassOver(Klb_Cause const& cause) noexcept;

/// The cause that this thread has noted; code 0 if there is none. Its texts stay good until the next operation.
struct Klb_Failure {
  int code;
  char const *path, *text;
};
Klb_Failure Klb_LastFailure() noexcept;

/// Gets what this thread's operations pass over. Returns what it replaces.
struct Klb_Listener {
  void (*tell)(void* list, Klb_Failure const& failure) = nullptr;
  void* list = nullptr;
};
Klb_Listener Klb_Listen(Klb_Listener listener) noexcept;

/// A public operation. The outermost one of a thread begins without a cause; outside of any, each failure is on its
/// own.
class Klb_Operation {
public:
  Klb_Operation() noexcept;
  ~Klb_Operation();
  Klb_Operation(Klb_Operation const&) = delete;
  Klb_Operation& operator=(Klb_Operation const&) = delete;

  /// The outermost operation leaves a cause behind if `result` is -1, and none otherwise. Gives `result`.
  int End(int result) const noexcept;
};

/// Until its end nothing is noted: for what is done after a failure, or when nobody asks for the result.
class Klb_Quiet {
public:
  Klb_Quiet() noexcept;
  ~Klb_Quiet();
  Klb_Quiet(Klb_Quiet const&) = delete;
  Klb_Quiet& operator=(Klb_Quiet const&) = delete;
};

/// A step whose failure may not count: it is tried again, or passed over. A cause from before it stays.
class Klb_Attempt {
public:
  Klb_Attempt() noexcept;
  /// Drops what was noted since.
  void Forget() const noexcept;
  /// Drops it too, but tells of it first.
  void PassOver() const noexcept;

private:
  bool is_first_;
};
