#include <atomic>
#include <infra/Util_Clock.h>

namespace {
std::atomic<std::time_t> s_now{0};
}

std::time_t Util_Clock::Now() noexcept {
  std::time_t const now = s_now;
  return now ? now : std::time(nullptr);
}

void Util_Clock::SetNow(std::time_t now) noexcept { s_now = now; }

int Util_Clock::LocalTime(std::time_t when, std::tm* parts) noexcept { return localtime_r(&when, parts) ? 0 : -1; }
