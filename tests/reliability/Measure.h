// What one piece of work costs, told by a process of its own.
#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

struct Cost {
  bool ended = false;    // by itself
  bool result = false;   // what the work gave
  double seconds = 0;    // of processor time
  std::size_t bytes = 0; // by which the memory in use was greater than before, at its peak
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMeasuresMemory = false; // that of the sanitizer would be measured
inline constexpr double kSlower = 10;
#else
inline constexpr bool kMeasuresMemory = true;
inline constexpr double kSlower = 1;
#endif

inline std::size_t StatusBytes(std::string const& field) {
  std::ifstream status("/proc/self/status");
  for (std::string name, rest; status >> name && std::getline(status, rest);)
    if (name == field) return std::stoul(rest) * 1024;
  return 0;
}

inline Cost Measure(std::function<bool()> const& work) {
  Cost cost;
  int ends[2];
  if (pipe(ends) == -1) return cost;
  pid_t const child = fork();
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5; // the peak is what is used now
    std::size_t const before = StatusBytes("VmRSS:");
    std::clock_t const start = std::clock();
    cost.result = work();
    cost.seconds = double(std::clock() - start) / CLOCKS_PER_SEC;
    std::size_t const peak = StatusBytes("VmHWM:");
    cost.bytes = peak > before ? peak - before : 0;
    cost.ended = true;
    _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
  }
  close(ends[1]);
  if (read(ends[0], &cost, sizeof cost) != sizeof cost) cost = {};
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) cost.ended = false;
  return cost;
}
