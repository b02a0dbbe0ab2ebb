#include "commands/Commands.h"

#include "commands/Choice.h"
#include "objects/ObjectWriter.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/Search.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace {

char const kDescription[] = "Copies objects out of a file-set, as they are stored, into files of a folder";

char const kFooter[] = R"(
A study or series is copied with all its objects. In the private structure the study's access date is set to now.

The copy of an object is named FOLDER/SOPINSTANCEUID.dcm. FOLDER is made if it doesn't exist. If the file exists
already it is left alone, which counts as a failure; with --force it is replaced.

From a damaged file-set what can be read is copied. What can't be read is a failure.

`fileset query` shows UIDs and file IDs.

Examples:
  fileset fetch /data/set --study 1.2.840.4711 --out /tmp/study
  fileset fetch /data/set --image 1.2.840.4711.1.7 --out . --decompress
  fileset fetch /data/set --file-id 'SA100000\S1000000\I1000000' --out .

Ends with 0 when every object was copied; 1 when nothing was found or something failed; 2 for a wrong command
line; 3 when the file-set can't be opened. Each failure has a line on standard error.)";

struct Options {
  std::string directory, study, series, image, file_id, out;
  bool has_file_id = false, all = false, decompress = false, force = false, json = false;
};

// One request to the library for each object, and the name of the object in a report.
struct Wanted {
  SCL_MoveIdentifier identifier;
  std::string name;
};

// 0, or -1 (reported) when the file-set can't be read.
int FindWanted(Options const& options, FileSet& set, Report& report, std::vector<Wanted>* wanted) {
  using namespace Attributes;
  if (options.has_file_id) {
    wanted->push_back({{}, options.file_id});
    wanted->back().identifier.Set(kReferencedFileId, Dicom_CS(options.file_id));
    return 0;
  }
  Search::Rows rows;
  std::vector<Key> const keys = {{kStudyInstanceUid, options.study},
                                 {kSeriesInstanceUid, options.series},
                                 {kSopInstanceUid, options.image},
                                 {kReferencedFileId, ""}};
  if (Search(set, report).PassOverDamage().Run(Level::IMAGE, keys, &rows) == -1) return -1;
  for (auto const& row : rows)
    wanted->push_back({SCL_MoveIdentifier(*row), row->Text(kSopInstanceUid)});
  return 0;
}

bool IsMissing(Wanted const& wanted, FileSet const& set) {
  Dicom_CS const id = wanted.identifier.Value<Dicom_CS>(Attributes::kReferencedFileId);
  std::string const path = Disk_FileID(set.directory.c_str(), id, 0).Path();
  return !path.empty() && access(path.c_str(), F_OK) == -1;
}

// Copies one object. Returns the path of the copy; empty (reported) after a failure.
std::string FetchOne(Wanted const& wanted, Options const& options, FileSet& set, Report& report, ObjectWriter& writer) {
  IOD_Msg* found = nullptr;
  int const result = set.root->GetOne(wanted.identifier, 1, &found, nullptr);
  std::unique_ptr<IOD_Msg> const object(found);
  if (result == -1 || !object) {
    report.Fail(wanted.name, IsMissing(wanted, set) ? "there is no such file in the file-set" : LastCause());
    return {};
  }
  return writer.Copy(*object, wanted.name, options.decompress, report);
}

void PrintOutcome(std::vector<std::string> const& files, double seconds, Options const& options, Report const& report) {
  if (!options.json) {
    std::printf("%zu copied to %s, %zu failed in %.1f s\n", files.size(), options.out.c_str(), report.Failures().size(),
                seconds);
    return;
  }
  std::printf("%s\n", JsonText({{"fetched", files.size()},
                                {"files", files},
                                {"seconds", seconds},
                                {"failures", FailuresJson(report, "object")}})
                          .c_str());
}

int Run(Options const& options) {
  Report report;
  if (options.study.empty() && options.series.empty() && options.image.empty() && !options.has_file_id &&
      !options.all) {
    report.Fail("fetch", "say what: --study, --series, --image, --file-id or --all");
    return kUsage;
  }
  if (!MayReceive(options.out, options.directory, report)) return kUsage;
  FileSet set = OpenFileSet(options.directory, Access::Visit, {}, report);
  if (!set.root) return kNotOpened;
  std::vector<Wanted> wanted;
  if (FindWanted(options, set, report, &wanted) == -1) return kNotOpened;
  if (wanted.empty()) {
    bool const whole = report.Failures().empty();
    if (set.has_records)
      report.Fail(options.directory, whole ? "holds no such object" : "what can be read of it holds no such object");
    else
      PrintOutcome({}, 0, options, report);
    return report.Result();
  }
  ObjectWriter writer(options.out, options.force);
  if (writer.MakeFolder() == -1) {
    report.Fail(options.out, std::string("can't be made: ") + std::strerror(errno));
    return kFailed;
  }
  WatchForInterruption();
  auto const start = std::chrono::steady_clock::now();
  std::vector<std::string> files;
  report.Begin(wanted.size());
  for (Wanted const& one : wanted) {
    if (IsInterrupted() || writer.IsFull()) break;
    std::string path = FetchOne(one, options, set, report, writer);
    if (!path.empty()) files.push_back(std::move(path));
    report.Step();
  }
  report.End();
  if (IsInterrupted())
    report.Fail(options.out, "interrupted before all objects were copied; the same command with --force copies all");
  PrintOutcome(files, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), options, report);
  return report.Result();
}

} // namespace

Command AddFetch(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("fetch", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  CLI::Option* all = line->add_flag("--all", options->all, "All objects");
  CLI::Option* file_id = line->add_option("--file-id", options->file_id, "The object with this Referenced File ID")
                             ->option_text("ID")
                             ->check(Choice::IsNotEmpty());
  file_id->each([options](std::string const&) { options->has_file_id = true; })->excludes(all);
  struct Selection {
    char const* name;
    std::string* value;
    char const* help;
  } const selections[] = {{"--study", &options->study, "The study with this Study Instance UID"},
                          {"--series", &options->series, "The series with this Series Instance UID"},
                          {"--image", &options->image, "The object with this SOP Instance UID"}};
  for (Selection const& s : selections)
    line->add_option(s.name, *s.value, s.help)
        ->option_text("UID")
        ->check(Choice::IsOneUid())
        ->excludes(file_id)
        ->excludes(all);
  line->add_option("--out", options->out, "The folder to copy to")->option_text("FOLDER")->required();
  line->add_flag("--decompress", options->decompress, "Write uncompressed pixels, as explicit little endian");
  line->add_flag("--force", options->force, "Replace files that exist");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
