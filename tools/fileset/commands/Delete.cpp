#include "commands/Commands.h"

#include "commands/Choice.h"
#include "commands/DeleteRequests.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/Leftovers.h"

#include <memory>

namespace {

char const kDescription[] = "Deletes studies, series or images: their files and their records";

char const kWhatGoes[] = R"(
When the last image of a series is deleted, its series is deleted too; likewise a study with its last series, and
a patient with the last study.)";

char const kOfProtection[] = R"(
In the private structure a protected study is refused unless --force is given. The standard structure knows no
protection.)";

char const kOfCaches[] = R"(
Protected studies are deleted too.)";

char const kEnd[] = R"(

A file that can't be removed is a failure. Its record is deleted with its study or series; the record of an image
that was named stays. After an interruption the same command completes the delete: for what was named and has no
record any more, it checks the file-set for what the first one left. That takes some time.

UIDs are whole; wildcards are refused. --all asks on a terminal; elsewhere it needs --yes.
)";

char const kExamples[] = R"(
Examples: see what would be deleted, and delete it
  fileset delete /data/set --study 1.2.840.4711 --dry-run
  fileset delete /data/set --study 1.2.840.4711 1.2.840.4712
  fileset delete /data/set --study 1.2.840.4711 --series 1.2.840.4711.1
  fileset delete /data/set --image 1.2.840.4711.1.7 1.2.840.4711.1.8
)";

char const kCacheExamples[] = R"(
Examples: see what would be deleted, and delete it
  fileset --config cache.yaml cache delete /data/cache --study 1.2.840.4711 --dry-run
  fileset --config cache.yaml cache delete /data/cache --study 1.2.840.4711
)";

char const kResults[] = R"(
Ends with 0 when everything named is deleted; 1 when something doesn't exist, can't be deleted or stays on the
disk; 2 for a wrong command line; 3 when the file-set can't be opened. Each failure has a line on standard error.)";

std::string Footer(bool is_cache) {
  return std::string(kWhatGoes) + (is_cache ? kOfCaches : kOfProtection) + kEnd +
         (is_cache ? kCacheExamples : kExamples) + kResults;
}

struct Options {
  std::string directory;
  DeleteChoice choice;
  Choice::All all;
  bool is_cache = false, force = false, dry_run = false, json = false;
};

std::string Images(std::size_t count) { return std::to_string(count) + (count == 1 ? " image" : " images"); }

// The number of images that went.
std::size_t Delete(DeleteRequest const& request, FileSet& set, Report& report) {
  int error = 0;
  SCL_MoveIdentifier identifier(request.level, &error);
  identifier.SetStudyInstanceUID(Dicom_UI(request.study));
  identifier.SetSeriesInstanceUID(Dicom_UI(request.series));
  identifier.SetSOPInstanceUID(Dicom_UI(JoinedUids(request.images)));
  MXL_SubOperationsReport told;
  SCL_ResponseStatus status;
  Disk_PassedOver passed;
  int const result = set.root->Delete(identifier, 1, &told, status);
  std::size_t const failed = unsigned(told.Get(MXL_SubOperationsReport::Failed)), failures = report.Failures().size();
  if (result == 0) {
    ReportLeft(request.files, request.folder, passed, report);
    if (failed > request.missing && report.Failures().size() == failures)
      report.Fail(NameOf(request), "some of its images can't be deleted: " + FirstOf(passed));
  } else if (status == SCL_ResponseStatus::RefusedProtected) {
    report.Fail(NameOf(request), "protected; --force deletes it");
  } else if (!request.is_rest) { // what isn't mended of a rest is told in the end
    report.Fail(NameOf(request), LastCause());
  }
  return unsigned(told.Get(MXL_SubOperationsReport::Completed));
}

void PrintOutcome(DeleteRequests const& requests, std::size_t deleted, Options const& options, Report const& report) {
  if (options.json) {
    nlohmann::json named = nlohmann::json::array();
    for (DeleteRequest const& request : requests)
      named.push_back({{"what", NameOf(request)}, {"images", request.files.size()}});
    std::printf("%s\n", JsonText({{"dry_run", options.dry_run},
                                  {"named", named},
                                  {"images_deleted", deleted},
                                  {"failures", FailuresJson(report, "what")}})
                            .c_str());
    return;
  }
  if (options.dry_run)
    for (DeleteRequest const& request : requests)
      std::printf("would delete %s, %s\n", NameOf(request).c_str(), Images(request.files.size()).c_str());
  else
    std::printf("%s deleted, %zu failed\n", Images(deleted).c_str(), report.Failures().size());
}

// Whether the options make sense together. If not, that is reported.
bool CheckOptions(Options const& options, Report& report) {
  DeleteChoice const& choice = options.choice;
  if (choice.studies.empty() && choice.series.empty() && choice.images.empty() && !options.all.wanted) {
    report.Fail("delete", "say what: --study, --series, --image or --all");
    return false;
  }
  return !options.all.wanted || options.dry_run || Choice::CanConfirm("--all", options.all.yes, options.json, report);
}

bool IsConfirmed(Options const& options, std::size_t studies) {
  if (!options.all.wanted || options.all.yes || options.dry_run || studies == 0) return true;
  return Choice::Confirm("Delete all studies of " + options.directory + ", " + std::to_string(studies) + " of them?");
}

int Run(Options const& options) {
  Report report;
  if (!CheckOptions(options, report)) return kUsage;
  FileSet set = OpenFileSet(options.directory, options.dry_run ? Access::Read : Access::Change, {}, report);
  if (!set.root) return kNotOpened;
  Disk_SupportPar par;
  par.delete_supported = 1;
  par.honour_protection = !options.is_cache && !options.force && set.structure == Structure::Private;
  set.root->SetSupportPar(par);
  DeleteRequests requests;
  if (FindDeleteRequests(options.choice, set, report, &requests) == -1) return kNotOpened;
  if (!IsConfirmed(options, requests.size())) {
    report.Fail(options.directory, "nothing was deleted");
    return kFailed;
  }
  std::size_t deleted = 0;
  WatchForInterruption();
  report.Begin(requests.size());
  for (DeleteRequest& request : requests) {
    if (IsInterrupted()) break;
    ListFiles(request, set, report);
    if (!options.dry_run) deleted += Delete(request, set, report);
    report.Step();
  }
  report.End();
  if (IsInterrupted())
    report.Fail(options.directory, "interrupted before all was deleted; the same command completes it");
  else if (!options.dry_run)
    CheckRests(options.choice, requests, set, report);
  PrintOutcome(requests, deleted, options, report);
  return report.Result();
}

} // namespace

Command AddDelete(CLI::App& app, bool is_cache) {
  auto const options = std::make_shared<Options>();
  options->is_cache = is_cache;
  CLI::App* line = app.add_subcommand("delete", kDescription)->footer(Footer(is_cache));
  line->add_option("DIR", options->directory, "The file-set")->required();
  DeleteChoice& choice = options->choice;
  CLI::Option* const named[] = {
      line->add_option("--study", choice.studies, "Studies with these Study Instance UIDs")->option_text("UID..."),
      line->add_option("--series", choice.series, "The series with this Series Instance UID")->option_text("UID"),
      line->add_option("--image", choice.images, "Images with these SOP Instance UIDs")->option_text("UID...")};
  CLI::Option* const all = Choice::AddAll(*line, options->all, "All studies, after asking");
  for (CLI::Option* const option : named)
    option->check(Choice::IsUid())->excludes(all);
  if (!is_cache) line->add_flag("--force", options->force, "Delete protected studies too");
  line->add_flag("--dry-run", options->dry_run, "Only tell what would be deleted");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
