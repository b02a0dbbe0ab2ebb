// What main and the commands agree on: a command is a subcommand of the command line and the function that
// does its work. Each command has a pair of files of its own.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

enum Exit {
  kDone = 0,
  kFailed = 1,   // something failed; each failure has a line on standard error
  kUsage = 2,    // the command line makes no sense; nothing was done
  kNotOpened = 3 // the file-set can't be opened
};

struct Command {
  CLI::App* line;
  std::function<int()> run;
};
