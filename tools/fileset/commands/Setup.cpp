#include "commands/Setup.h"

#include "output/Text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <infra/Klb_LogFile.h>
#include <infra/Util_Cfg.h>
#include <unistd.h>
#include <vector>

namespace {

int LoadConfiguration(std::string const& path) {
  std::vector<std::string> problems;
  int const result = Util_Cfg::Load(path.c_str(), &problems);
  for (std::string const& problem : problems)
    std::fprintf(stderr, "fileset: %s\n", Printable(problem).c_str());
  if (result == -1 && problems.empty()) std::fprintf(stderr, "fileset: %s: can't be loaded\n", Printable(path).c_str());
  return result;
}

// Fills in what the configuration says about the log and the command line doesn't.
Setup WithLogOfConfiguration(Setup setup) {
  Util_CfgHandle const* const handle = Util_Cfg::GetHandle();
  Tree_Node const* const log = handle ? handle->GetLog() : nullptr;
  if (!log) return setup;
  if (Tree_Node const* file = log->GetChild("file"); file && setup.log.empty()) setup.log = file->GetValue();
  if (Tree_Node const* level = log->GetChild("level"); level && setup.log_level == 0)
    Tree_Node::ParseInteger(level->GetValue(), setup.log_level);
  return setup;
}

} // namespace

void AddSetup(CLI::App& line, Setup& setup) {
  line.add_option("--config", setup.config, "Configuration file (YAML)")->option_text("FILE");
  line.add_option("--log", setup.log, "Append the library's log to this file")->option_text("FILE");
  line.add_option("--log-level", setup.log_level, "3 errors, 4 warnings too, 5 notices, 6 information, 7 all")
      ->option_text("LEVEL [4]")
      ->check(CLI::Range(3, 7));
}

int ApplySetup(Setup const& setup) {
  std::filesystem::path const folder = std::filesystem::path(setup.log).parent_path();
  if (!folder.empty() && access(folder.c_str(), F_OK) == -1) { // a log would make it
    std::fprintf(stderr, "fileset: --log: %s: %s\n", Printable(folder.string()).c_str(), std::strerror(errno));
    return -1;
  }
  if (!setup.config.empty() && LoadConfiguration(setup.config) == -1) return -1;
  Setup const wanted = WithLogOfConfiguration(setup);
  if (wanted.log_level != 0) KlbGLog.SetLogLevel(wanted.log_level);
  if (wanted.log.empty() || KlbGLog.SetLogFile(wanted.log.c_str()) == 0) return 0;
  std::fprintf(stderr, "fileset: %s: can't be opened for the log: %s\n", Printable(wanted.log).c_str(),
               std::strerror(errno));
  return -1;
}
