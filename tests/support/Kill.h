// Processes that end in the middle of what they do, and the calls on which they end.
#pragma once

#include "support/FaultyFileSystem.h"

#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

constexpr int kKilled = 9; // the exit code of a process that ended on purpose

inline bool Writes(std::string_view call) {
  constexpr std::string_view kCalls = "Write Pwrite Writev Fsync Fdatasync Syncfs Rename Exchange Link Mkdir Unlink "
                                      "Rmdir Ftruncate";
  return kCalls.find(call) != kCalls.npos;
}

/// Runs `work` in a process of its own. What it returned, modulo 256; -1 when a signal ended it.
template <class Work>
int InChild(Work work) {
  pid_t const child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Runs `work` in a process that ends, with kKilled, at the entry of its call number `point` that writes.
template <class Work>
int KillAt(int point, Work work) {
  return InChild([&] {
    int left = point;
    FaultyFileSystem const killing([&left](std::string_view call, char const*) {
      if (Writes(call) && --left == 0) _exit(kKilled);
      return 0;
    });
    return work();
  });
}

/// The number of calls of `work` that write.
template <class Work>
int CountWrites(Work work) {
  int count = 0;
  FaultyFileSystem const counting([&count](std::string_view call, char const*) {
    count += Writes(call);
    return 0;
  });
  work();
  return count;
}
