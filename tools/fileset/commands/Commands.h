// The commands. Each one stands in a source of its own name: its options, its help, and the function that does its
// work. `Add...` adds a command to a command line.
#pragma once

#include "program/Exit.h"

#include <CLI/CLI.hpp>
#include <functional>

struct Command {
  CLI::App* line;
  std::function<int()> run; // gives an Exit
};

Command AddStore(CLI::App& app);
Command AddQuery(CLI::App& app);
Command AddFetch(CLI::App& app);
Command AddExport(CLI::App& app);
Command AddDelete(CLI::App& app, bool is_cache = false); // a cache honours no protection
Command AddProtect(CLI::App& app);
Command AddUnprotect(CLI::App& app);
Command AddComplete(CLI::App& app);
Command AddCorrect(CLI::App& app);
Command AddAutoDelete(CLI::App& app);
Command AddScan(CLI::App& app);
Command AddCheck(CLI::App& app);
Command AddInfo(CLI::App& app);
Command AddCache(CLI::App& app); // a command with commands of its own, the next two among them
Command AddCacheClean(CLI::App& app);
Command AddCacheStatus(CLI::App& app);
