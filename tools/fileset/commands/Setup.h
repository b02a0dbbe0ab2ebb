// The options that all commands have.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

struct Setup {
  std::string config;
  std::string log;
  int log_level = 0; // 0: not given
};

void AddSetup(CLI::App& line, Setup& setup);
// Loads the configuration and opens the log. 0 or -1, with the cause on standard error.
int ApplySetup(Setup const& setup);
