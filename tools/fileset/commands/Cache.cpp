#include "commands/Commands.h"

#include "objects/SourceFiles.h"
#include "objects/StoreObject.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/CacheView.h"
#include "sets/Cause.h"

#include <cstdio>
#include <ctime>
#include <infra/Util_Clock.h>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <vector>

namespace {

char const kDescription[] = "Uses a file-set as a bounded cache, which deletes the least wanted studies to make room";

char const kFooter[] = R"(
The configuration (fileset --config FILE) says how much of the disk the cache may take, and how many studies it may
hold. When a new object doesn't fit, the studies get grades by their size, the age of their last store and the age
of their last access. Then they are deleted, the lowest grade first, until there is room.

`cache query`, `fetch` and `delete` work as those of any file-set, except that protected studies are deleted too.
`cache clean --all` asks on a terminal; elsewhere it needs --yes. A file that can't be removed is a failure. Ctrl-C
ends a cleaning between two studies; the same command goes on.

--now sets the time that the command goes by, to try how a cache ages.

Examples: a cache of 200 MB, how full it is, and what a cleaning would delete
  echo 'push: {max_repository_size_mb: 200}' > cache.yaml
  fileset --config cache.yaml cache store /data/cache images/
  fileset --config cache.yaml cache status /data/cache
  fileset --config cache.yaml cache clean /data/cache --mb 50 --dry-run

Ends with 0 when all was done; 1 when something failed; 2 for a wrong command line; 3 when the cache can't be
opened. Each failure has a line on standard error. Failures are also: an object that was refused, or was stored and
deleted again to make room for others; and a cleaning, or its dry run, that can't reach what was wanted.)";

struct StoreOptions {
  std::string directory;
  std::vector<std::string> sources;
  bool accept_mismatch = false, init = false, strict = false, json = false;
};

// 2026-01-31, or 2026-01-31T17:30. 0, or -1.
int SetNow(std::string const& text) {
  std::tm parts{};
  char rest = 0;
  int const fields = std::sscanf(text.c_str(), "%4d-%2d-%2d%*1[T ]%2d:%2d%c", &parts.tm_year, &parts.tm_mon,
                                 &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &rest);
  if (fields != 5 && !(fields == 3 && text.size() == 10)) return -1;
  parts.tm_year -= 1900;
  parts.tm_mon -= 1;
  parts.tm_isdst = -1;
  std::tm const wanted = parts;
  std::time_t const now = std::mktime(&parts); // turns 31 February into 3 March
  if (now <= 0 || parts.tm_mon != wanted.tm_mon || parts.tm_mday != wanted.tm_mday || wanted.tm_hour > 23 ||
      wanted.tm_min > 59)
    return -1;
  Util_Clock::SetNow(now);
  return 0;
}

// What a store into a cache has stored, by study, and which studies had to make room.
struct Kept {
  std::map<std::string, std::size_t> stored, lost; // numbers of objects; lost: stored, and deleted afterwards
  std::set<std::string> given_up;

  void GiveUp(std::string const& study) {
    given_up.insert(study);
    if (auto const gone = stored.extract(study)) lost[study] += gone.mapped();
  }
  std::size_t Count() const {
    return std::accumulate(stored.begin(), stored.end(), std::size_t(0),
                           [](std::size_t sum, auto const& study) { return sum + study.second; });
  }
};

// Stores a file. Returns the cause of a failure, else an empty text.
std::string StoreFile(std::string const& path, StoreOptions const& options, CacheView& cache, std::string* study) {
  std::string problem;
  std::unique_ptr<IOD_Msg> const object = ReadObject(path, &problem);
  if (!object) return problem;
  *study = object->GetStudyInstanceUID().GetText();
  if (cache.Store(object.get(), options.accept_mismatch) == 0) return "";
  return LastCause();
}

int RunStore(StoreOptions const& options) {
  Report report;
  auto const cache = CacheView::Open(options.directory, options.init ? Access::MakeAmong : Access::Make, report);
  if (!cache) return kNotOpened;
  SourceFiles const files = FindSourceFiles(options.sources, options.directory, report);
  Kept kept;
  cache->SetStudyGivenUp([&kept](Disk_StudyMetaData const& study) { kept.GiveUp(study.m_studyUID.GetText()); });
  std::size_t refused = 0, skipped = 0;
  WatchForInterruption();
  report.Begin(files.paths.size());
  for (std::size_t i = 0; i < files.paths.size() && !IsInterrupted(); ++i) {
    std::string const& file = files.paths[i];
    std::string study;
    std::string const cause = StoreFile(file, options, *cache, &study);
    if (cause.empty()) {
      ++kept.stored[study];
    } else if (!options.strict && files.from_folder[i] && IsNoObject(file, cause)) {
      ++skipped;
    } else {
      ++refused;
      report.Fail(file, RanOutOfDisk() ? cause + kDiskIsFull : cause);
      if (RanOutOfDisk()) break;
    }
    report.Step();
  }
  report.End();
  if (IsInterrupted()) report.Fail(options.directory, "interrupted before all files were stored");
  if (kept.stored.empty() && kept.lost.empty() && report.Failures().empty())
    report.Fail(options.directory, "nothing to store was found");
  for (auto const& [uid, count] : kept.lost)
    report.Fail("study " + uid, std::to_string(count) + " of the objects just stored had to go again for others");
  if (options.json) {
    std::printf("%s\n", JsonText({{"stored", kept.Count()},
                                  {"skipped", skipped},
                                  {"given_up", kept.given_up},
                                  {"failures", FailuresJson(report, "file")}})
                            .c_str());
    return report.Result();
  }
  for (std::string const& uid : kept.given_up)
    std::printf("gave up study %s\n", uid.c_str());
  std::string const no_objects = ", " + std::to_string(skipped) + " skipped, as they are no objects";
  std::printf("%zu stored, %zu refused%s, %zu studies given up\n", kept.Count(), refused,
              skipped > 0 ? no_objects.c_str() : "", kept.given_up.size());
  return report.Result();
}

Command AddCacheStore(CLI::App& app) {
  auto const options = std::make_shared<StoreOptions>();
  CLI::App* line = app.add_subcommand("store", "Stores objects, and makes room for them if necessary");
  line->add_option("DIR", options->directory, "The cache; made if it doesn't exist")->required();
  line->add_option("FILES", options->sources, "Files and folders")->required();
  line->add_flag("--accept-mismatch", options->accept_mismatch,
                 "Store objects that contradict their study or series too");
  line->add_flag("--init", options->init, "Make a new cache although DIR holds other things");
  line->add_flag("--strict", options->strict, "Count files in folders that are no objects as failures");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return RunStore(*options); }};
}

} // namespace

Command AddCache(CLI::App& app) {
  CLI::App* const line = app.add_subcommand("cache", kDescription)->footer(kFooter);
  line->require_subcommand(1);
  auto const now = std::make_shared<std::string>();
  line->add_option("--now", *now, "The time to go by: 2026-01-31, or 2026-01-31T17:30")
      ->option_text("TIME")
      ->check(
          [](std::string const& text) { return SetNow(text) == 0 ? "" : text + " is no date like 2026-01-31T17:30"; });
  std::vector<Command> const commands = {AddCacheStore(*line),   AddQuery(*line),      AddFetch(*line),
                                         AddDelete(*line, true), AddCacheClean(*line), AddCacheStatus(*line)};
  return {line, [commands, now] {
            for (Command const& command : commands)
              if (command.line->parsed()) return command.run();
            return int(kUsage);
          }};
}
