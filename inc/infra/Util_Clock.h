// What time it is. Everything that writes or compares dates asks here, so that a test or a tool can say what
// time it is.
#pragma once

#include <infra/Disk_Export.h>

#include <ctime>

class DISK_EXPORT Util_Clock {
public:
  static std::time_t Now() noexcept;

  /// Stops the clock at `now` for the whole process; 0 lets it show the real time again.
  static void SetNow(std::time_t now) noexcept;

  /// `when` as local calendar time. 0, or -1 with errno when the year can't be expressed.
  [[nodiscard]] static int LocalTime(std::time_t when, std::tm* parts) noexcept;
};
