// Measures the engine beside the machine's limits and the toolkit. Lines of JSON, one a figure, go to standard output;
// scripts/bench makes tables of them.
#include "Bench.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <map>

int main(int argc, char** argv) try {
  std::pair<std::string, void (*)(Bench::Scope const&)> const areas[] = {{"directory", Bench::DirectoryFiles},
                                                                         {"store", Bench::PrivateStores},
                                                                         {"standard", Bench::StandardStores},
                                                                         {"query", Bench::Queries},
                                                                         {"fetch", Bench::Fetches},
                                                                         {"delete", Bench::Deletes},
                                                                         {"processes", Bench::Processes},
                                                                         {"bulk", Bench::Bulk},
                                                                         {"toolkit", Bench::Toolkit},
                                                                         {"cache", Bench::Caches}};
  std::vector<std::string> names, known;
  for (auto const& area : areas)
    known.push_back(area.first);
  Bench::Scope scope{".", false};
  std::string asked;
  int objects = 0;
  CLI::App app("Measures the file-set engine beside the bare machine and the toolkit");
  app.add_option("AREA", names, "What to measure; everything without one")->check(CLI::IsMember(known));
  app.add_option("--folder", scope.base, "A folder on the disk to measure")->capture_default_str();
  app.add_flag("--quick", scope.quick, "With fewer objects");
  app.add_option("--store-when-asked", objects, "A process that stores one into so many for each line")->group("");
  app.add_option("--ask", asked, "A process that opens this file-set and asks it")->group("");
  CLI11_PARSE(app, argc, argv);

  if (objects > 0) return Bench::StoreWhenAsked(scope, objects);
  if (!asked.empty()) return Bench::AskAfresh(asked);
  for (auto const& [name, measure] : areas) {
    if (!names.empty() && std::find(names.begin(), names.end(), name) == names.end()) continue;
    Bench::Settle();
    measure(scope);
  }
  return 0;
} catch (std::exception const& error) {
  std::fprintf(stderr, "disk_bench: %s\n", error.what());
  return 1;
}
