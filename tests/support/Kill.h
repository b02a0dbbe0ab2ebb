// Processes that end in the middle of what they do.
#pragma once

#include "support/FaultyFileSystem.h"

#include <gtest/gtest.h>
#include <set>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

inline bool Writes(std::string_view call) {
  static std::set<std::string_view> const calls{"Write",  "Pwrite", "Writev", "Fsync",     "Fdatasync",
                                                "Rename", "Mkdir",  "Unlink", "Ftruncate", "Rmdir"};
  return calls.count(call) != 0;
}

/// Runs `work` in a process that ends at its write call number `point`. True if it came to its end before.
template <class Work>
bool RunUntil(int point, Work work) {
  pid_t const child = fork();
  if (child == 0) {
    int left = point;
    FaultyFileSystem const killing([&left](std::string_view call, char const*) {
      if (Writes(call) && --left == 0) _exit(9);
      return 0;
    });
    _exit(work() ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1) << "the operation failed by itself";
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
