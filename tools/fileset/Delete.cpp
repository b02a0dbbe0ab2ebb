#include "Delete.h"

#include "EngineLog.h"
#include "Interruption.h"
#include "Json.h"
#include "Report.h"
#include "Search.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>

namespace {

char const kDescription[] = "Deletes studies, series or images: their files and their records";

char const kFooter[] = R"(
A series whose last image goes is deleted too, and so is a study whose last series goes, and a patient
without studies. In the private structure a protected study is refused unless --force is given; the
standard structure knows no protection.

A file that can't be removed is told in the log (--log); the delete goes on. One that was interrupted
is completed by the same command.

Examples: see what would go, and let it go
  fileset delete /data/set --study 1.2.840.4711 --dry-run
  fileset delete /data/set --study 1.2.840.4711 1.2.840.4712
  fileset delete /data/set --study 1.2.840.4711 --series 1.2.840.4711.1
  fileset delete /data/set --image 1.2.840.4711.1.7 1.2.840.4711.1.8

Ends with 0 when all that was named is gone, 1 when something isn't there or can't be deleted (a line on
standard error for each), 2 for a wrong command line, 3 when the file-set can't be opened.)";

struct Options {
  std::string directory, series;
  std::vector<std::string> studies, images;
  bool is_cache = false, force = false, dry_run = false, json = false;
};

// One call of the library: a study, a series, or images of one series.
struct Request {
  Level level = Level::STUDY;
  std::string study, series, images; // images separated by backslashes
  std::size_t objects = 0;           // that are known to go
};

std::string Images(std::size_t count) { return std::to_string(count) + (count == 1 ? " image" : " images"); }

// What the options name, as requests. 0, or -1 (reported) when the file-set can't be read.
int FindRequests(Options const& options, FileSet& set, EngineLog& log, Report& report, std::vector<Request>* requests) {
  using namespace Attributes;
  Search::Rows images, studies;
  Search search(set, log, report);
  std::vector<Key> const keys = {{kStudyInstanceUid, JoinedUids(options.studies)},
                                 {kSeriesInstanceUid, options.series},
                                 {kSopInstanceUid, JoinedUids(options.images)}};
  if (search.Run(Level::STUDY, {keys[0]}, &studies) == -1 || search.Run(Level::IMAGE, keys, &images) == -1) return -1;
  bool const by_image = !options.images.empty(), by_series = !by_image && !options.series.empty();
  Level const level = by_image ? Level::IMAGE : by_series ? Level::SERIES : Level::STUDY;
  std::map<std::pair<std::string, std::string>, Request> found;
  std::set<std::string> study_uids, series_uids, image_uids;
  for (auto const& row : studies) {
    study_uids.insert(row->Text(kStudyInstanceUid));
    // a study may hold nothing any more
    if (level == Level::STUDY)
      found[{row->Text(kStudyInstanceUid), ""}] = {level, row->Text(kStudyInstanceUid), "", "", 0};
  }
  for (auto const& row : images) {
    std::string const study = row->Text(kStudyInstanceUid), image = row->Text(kSopInstanceUid);
    std::string const series = level == Level::STUDY ? "" : row->Text(kSeriesInstanceUid);
    Request& request = found[{study, series}];
    request.level = level;
    request.study = study;
    request.series = series;
    if (by_image) request.images += (request.images.empty() ? "" : "\\") + image;
    ++request.objects;
    series_uids.insert(series);
    image_uids.insert(image);
  }
  FailMissing(options.studies, study_uids, "study", report);
  FailMissing({options.series}, by_image ? std::set{options.series} : series_uids, "series", report);
  FailMissing(options.images, image_uids, "image", report);
  for (auto& [uids, request] : found)
    requests->push_back(std::move(request));
  return 0;
}

std::string NameOf(Request const& request) {
  if (request.level == Level::STUDY) return "study " + request.study;
  return (request.level == Level::SERIES ? "series " : "images of series ") + request.series;
}

// The number of images that went.
std::size_t Delete(Request const& request, FileSet& set, EngineLog& log, Report& report) {
  int error = 0;
  SCL_MoveIdentifier identifier(request.level, &error);
  identifier.SetStudyInstanceUID(Dicom_UI(request.study));
  identifier.SetSeriesInstanceUID(Dicom_UI(request.series));
  identifier.SetSOPInstanceUID(Dicom_UI(request.images));
  MXL_SubOperationsReport told;
  SCL_ResponseStatus status;
  log.Begin();
  int const result = set.root->Delete(identifier, 1, &told, status);
  if (result == -1)
    report.Fail(NameOf(request),
                status == SCL_ResponseStatus::RefusedProtected ? "protected; --force deletes it" : log.Cause());
  else if (unsigned(told.Get(MXL_SubOperationsReport::Failed)) > 0)
    report.Fail(NameOf(request), "some of its images can't be deleted: " + log.Cause());
  return unsigned(told.Get(MXL_SubOperationsReport::Completed));
}

void PrintOutcome(std::vector<Request> const& requests, std::size_t deleted, Options const& options,
                  Report const& report) {
  if (options.json) {
    nlohmann::json named = nlohmann::json::array();
    for (Request const& request : requests)
      named.push_back({{"what", NameOf(request)}, {"images", request.objects}});
    std::printf("%s\n", JsonText({{"dry_run", options.dry_run},
                                  {"named", named},
                                  {"images_deleted", deleted},
                                  {"failures", FailuresJson(report, "what")}})
                            .c_str());
    return;
  }
  if (options.dry_run)
    for (Request const& request : requests)
      std::printf("would delete %s, %s\n", NameOf(request).c_str(), Images(request.objects).c_str());
  else
    std::printf("%s deleted, %zu failed\n", Images(deleted).c_str(), report.Failures().size());
}

int Run(Options const& options) {
  Report report;
  EngineLog log(options.directory);
  if (options.studies.empty() && options.series.empty() && options.images.empty()) {
    report.Fail("delete", "say what: --study, --series or --image");
    return kUsage;
  }
  FileSet set = OpenFileSet(options.directory, options.dry_run ? Access::Read : Access::Change, {}, log, report);
  if (!set.root) return kNotOpened;
  Disk_SupportPar par;
  par.delete_supported = 1;
  par.honour_protection = !options.is_cache && !options.force && set.structure == Structure::Private;
  set.root->SetSupportPar(par);
  std::vector<Request> requests;
  if (FindRequests(options, set, log, report, &requests) == -1) return kNotOpened;
  std::size_t deleted = 0;
  WatchForInterruption();
  report.Begin(requests.size());
  for (Request const& request : requests) {
    if (IsInterrupted() || options.dry_run) break;
    deleted += Delete(request, set, log, report);
    report.Step();
  }
  report.End();
  if (IsInterrupted()) report.Fail(options.directory, "interrupted before all was deleted");
  PrintOutcome(requests, deleted, options, report);
  return report.Result();
}

} // namespace

Command AddDelete(CLI::App& app, bool is_cache) {
  auto const options = std::make_shared<Options>();
  options->is_cache = is_cache;
  CLI::App* line = app.add_subcommand("delete", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_option("--study", options->studies, "Studies with these Study Instance UIDs")->option_text("UID...");
  line->add_option("--series", options->series, "The series with this Series Instance UID")->option_text("UID");
  line->add_option("--image", options->images, "Images with these SOP Instance UIDs")->option_text("UID...");
  if (!is_cache) line->add_flag("--force", options->force, "Delete protected studies too");
  line->add_flag("--dry-run", options->dry_run, "Only tell what would go");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
