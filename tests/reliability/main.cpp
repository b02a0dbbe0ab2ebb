// Puts the engine through faults. See docs/reliability.md.
#include "Campaign.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <unistd.h>

int main(int argc, char** argv) {
  std::map<std::string, Result (*)(Options const&)> const campaigns{{"errors", RunErrors},
                                                                    {"hostile", RunHostile},
                                                                    {"kill", RunKills},
                                                                    {"power", RunPower},
                                                                    {"processes", RunProcesses}};
  Options options;
  std::string name;
  CLI::App app("Puts the file-set engine through faults, and tells what it lost");
  app.add_option("CAMPAIGN", name, "Which faults")->required()->check(CLI::IsMember(campaigns));
  app.add_flag("--full", options.full, "Every point, instead of a sample");
  app.add_option("--seed", options.seed, "Of what is chosen at random")->capture_default_str();
  app.add_option("--only", options.selection.operation, "This operation only");
  app.add_option("--point", options.point, "Only what has this in its name, as a failure tells it; under a debugger");
  app.add_option("--structure", options.selection.structure, "This structure only")
      ->check(CLI::IsMember({"private", "standard"}));
  CLI11_PARSE(app, argc, argv);

  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0); // a point takes milliseconds there
  auto const start = std::chrono::steady_clock::now();
  Result const result = campaigns.at(name)(options);
  std::chrono::duration<double> const seconds = std::chrono::steady_clock::now() - start;
  std::printf("%-9s %s, %llu failures, %.0f s\n", name.c_str(), result.text.c_str(),
              static_cast<unsigned long long>(result.failures), seconds.count());
  return result.failures == 0 ? 0 : 1;
}
