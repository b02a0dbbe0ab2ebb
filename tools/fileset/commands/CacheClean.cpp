#include "commands/Commands.h"

#include "commands/Choice.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/CacheView.h"
#include "sets/Cause.h"

#include <algorithm>
#include <functional>
#include <infra/Tree.h>

namespace {

struct Options {
  std::string directory;
  int mb = -1, percent = -1, studies = -1; // -1: not wanted
  std::vector<std::string> for_study;      // a number of images, and a modality
  Choice::All all;
  bool dry_run = false, json = false;
};

// Whether a cleaning that has deleted `gone` wants another study. A dry run goes by it.
using Wanted = std::function<bool(std::vector<Disk_StudyMetaData> const& gone)>;

Wanted Until(long mb, CacheView::Space const& space) {
  return [mb, space](std::vector<Disk_StudyMetaData> const& gone) {
    long size = space.size_kb;
    for (Disk_StudyMetaData const& study : gone)
      size -= study.m_sizeKB;
    long const free =
        gone.empty() ? space.quota_kb / 1024 - space.size_kb / 1024 : std::max(space.quota_kb - size, 0L) / 1024;
    return mb > free;
  };
}

std::vector<Disk_StudyMetaData> Foretell(CacheView const& cache, std::vector<Disk_StudyMetaData> const& studies,
                                         Wanted const& wanted, bool all) {
  std::vector<Disk_StudyMetaData> gone;
  for (Disk_StudyMetaData const& study : studies) {
    if (!all && (!wanted(gone) || !cache.MayGo(study))) break;
    gone.push_back(study);
  }
  return gone;
}

int Clean(CacheView& cache, Options const& options, int images) {
  if (options.all.wanted) return cache.CleanAll();
  if (options.studies >= 0) return cache.AutoCleanNStudies(options.studies);
  if (options.percent >= 0) return cache.AutoCleanPercentage(options.percent);
  if (options.mb >= 0) return cache.AutoCleanMB(options.mb);
  Dicom_CS const modality(options.for_study[1]);
  return cache.AutoCleanForStudy(images, &modality);
}

void Print(std::vector<Disk_StudyMetaData> const& gone, Options const& options, CacheView& cache) {
  CacheView::Space const space = cache.Measure();
  if (options.json) {
    nlohmann::json studies = nlohmann::json::array();
    for (Disk_StudyMetaData const& study : gone)
      studies.push_back(
          {{"study", study.m_studyUID.GetText()}, {"grade", study.GetGrade()}, {"size_kb", study.m_sizeKB}});
    std::printf("%s\n",
                JsonText({{"dry_run", options.dry_run}, {"studies", studies}, {"free_kb", space.free_kb}}).c_str());
    return;
  }
  for (Disk_StudyMetaData const& study : gone)
    std::printf("%s study %s, grade %d, %.1f MB\n", options.dry_run ? "would delete" : "deleted",
                study.m_studyUID.CStr(), study.GetGrade(), double(study.m_sizeKB) / 1024);
  std::printf("%zu %s; %.1f MB %s free\n", gone.size(),
              options.dry_run    ? gone.size() == 1 ? "study would go" : "studies would go"
              : gone.size() == 1 ? "study deleted"
                                 : "studies deleted",
              double(space.free_kb) / 1024, options.dry_run ? "are" : "are now");
}

// Reports that a cleaning doesn't reach what was wanted.
void Tell(Options const& options, bool all_gone, CacheView const& cache, Report& report) {
  std::string const grade = std::to_string(cache.GetThreshold());
  report.Fail(options.directory,
              options.all.wanted ? "not all studies can be deleted"
              : all_gone         ? "all studies together aren't enough"
                         : "not as much as was wanted: the others grade " + grade + " or higher, or can't be deleted");
}

// -1 (reported) when the options make no sense.
int CheckOptions(Options const& options, int* images, Report& report) {
  int const ways = (options.mb >= 0) + (options.percent >= 0) + (options.studies >= 0) + options.all.wanted +
                   !options.for_study.empty();
  if (ways != 1) {
    report.Fail("clean", "say how much, in one way: --mb, --percent, --studies, --for-study or --all");
    return -1;
  }
  if (options.all.wanted && !options.dry_run && !Choice::CanConfirm("--all", options.all.yes, options.json, report))
    return -1;
  if (options.for_study.empty() || (Tree_Node::ParseInteger(options.for_study[0], *images) && *images >= 0)) return 0;
  report.Fail("--for-study", options.for_study[0] + " is no number of images");
  return -1;
}

int Run(Options const& options) {
  Report report;
  int images = 0;
  if (CheckOptions(options, &images, report) == -1) return kUsage;
  auto const cache = CacheView::Open(options.directory, Access::Change, report);
  if (!cache) return kNotOpened;
  std::vector<Disk_StudyMetaData> before;
  if (cache->Studies(&before) == -1) {
    report.Fail(options.directory, LastCause());
    return kNotOpened;
  }
  if (options.dry_run) {
    CacheView::Space const space = cache->Measure();
    long const mb = options.mb >= 0        ? options.mb
                    : options.percent >= 0 ? space.size_kb / 1024 * options.percent / 100
                    : images > 0           ? CacheView::EstimateMB(images, options.for_study[1])
                                           : 0;
    Wanted const wanted = options.studies >= 0
                              ? Wanted([&](auto const& gone) { return int(gone.size()) < options.studies; })
                              : Until(mb, space);
    std::vector<Disk_StudyMetaData> const gone = Foretell(*cache, before, wanted, options.all.wanted);
    Print(gone, options, *cache);
    if (!options.all.wanted && wanted(gone)) Tell(options, gone.size() == before.size(), *cache, report);
    return report.Result();
  }
  if (options.all.wanted && !options.all.yes && !before.empty() &&
      !Choice::Confirm("Delete all studies of " + options.directory + ", " + std::to_string(before.size()) +
                       " of them?")) {
    report.Fail(options.directory, "nothing was deleted");
    return kFailed;
  }
  StudyFolders folders = cache->Folders();
  WatchForInterruption();
  cache->SetStop(IsInterrupted);
  Disk_PassedOver passed;
  int const result = Clean(*cache, options, images);
  std::vector<Disk_StudyMetaData> const gone = cache->Gone(before);
  for (Disk_StudyMetaData const& study : gone)
    ReportLeft({}, folders[study.m_studyUID.GetText()], passed, report);
  Print(gone, options, *cache);
  // a study that is only half deleted may count as deleted
  bool const stay = options.all.wanted ? gone.size() < before.size() : int(gone.size()) < options.studies;
  if (IsInterrupted() && (result == -1 || stay))
    report.Fail(options.directory, "interrupted before all was deleted; the same command goes on");
  else if (result == -1 || stay)
    Tell(options, gone.size() == before.size(), *cache, report);
  return report.Result();
}

} // namespace

Command AddCacheClean(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("clean", "Deletes studies below the threshold, the lowest grade first");
  line->add_option("DIR", options->directory, "The cache")->required();
  CLI::Range const number(0, 2147483647);
  line->add_option("--mb", options->mb, "Until N MB are free")->option_text("N")->check(number);
  line->add_option("--percent", options->percent, "Until N percent of the cache's size are free")
      ->option_text("N")
      ->check(CLI::Range(0, 100));
  line->add_option("--studies", options->studies, "N studies")->option_text("N")->check(number);
  line->add_option("--for-study", options->for_study, "Until a study of this many images of a modality has room")
      ->option_text("IMAGES MODALITY")
      ->check(Choice::IsNotEmpty())
      ->expected(2);
  Choice::AddAll(*line, options->all, "All studies, whatever their grade, after asking");
  line->add_flag("--dry-run", options->dry_run, "Only tell which would be deleted");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
