#include "commands/Commands.h"

#include "commands/Choice.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/Search.h"

#include <memory>

namespace {

// A command that sets or removes a mark in study records.
struct Mark {
  char const* command;
  char const* done; // as in "2 studies protected"
  char const* description;
  char const* what_it_does;
  int (*set)(Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& study);
};

constexpr Mark kProtect{"protect", "protected", "Protects studies from being deleted",
                        "A protected study is deleted neither by `delete`, unless with --force, nor by `auto-delete`.\n"
                        "Objects can still be stored into it.",
                        [](Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& study) {
                          return root.ProtectImages(study, 1, nullptr);
                        }};
constexpr Mark kUnprotect{"unprotect", "unprotected", "Lets protected studies be deleted again",
                          "A study that isn't protected stays as it is.",
                          [](Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& study) {
                            return root.UnprotectImages(study, 1, nullptr);
                          }};
constexpr Mark kComplete{"complete", "completed", "Marks studies as completely loaded",
                         "The program that brings a study says by this mark that nothing more will come.\n"
                         "`query --key StudyLoadCompleted` shows it.",
                         [](Disk_RootDirectoryFile& root, SCL_MoveIdentifier const& study) {
                           return root.SetStudyCompleted(study.GetStudyInstanceUID());
                         }};

std::string Footer(Mark const& mark) {
  return "\n" + std::string(mark.what_it_does) +
         "\nOnly file-sets of the private structure can do this.\n\nExample:\n  fileset " + mark.command +
         " /data/set --study 1.2.840.4711 1.2.840.4712\n\n" +
         "--all asks on a terminal; elsewhere it needs --yes.\n\nEnds with 0 when all studies are " + mark.done +
         "; 1 when one doesn't exist or can't be changed; 2 for a\nwrong command line; 3 when the file-set can't be "
         "opened. Each failure has a line on standard error.";
}

struct Options {
  std::string directory;
  std::vector<std::string> studies;
  Choice::All all;
  bool json = false;
};

// 0, or -1 (reported) when the file-set can't be read.
int SetAll(Mark const& mark, Options const& options, FileSet& set, Report& report, std::vector<std::string>* done) {
  using Attributes::kStudyInstanceUid;
  Search::Rows rows;
  if (Search(set, report).Run(Level::STUDY, {{kStudyInstanceUid, JoinedUids(options.studies)}}, &rows) == -1) return -1;
  std::set<std::string> found;
  for (auto const& row : rows)
    found.insert(row->Text(kStudyInstanceUid));
  FailMissing(options.studies, found, "study", report);
  if (options.all.wanted && !options.all.yes &&
      !Choice::Confirm(std::string(mark.command) + " all studies of " + options.directory + ", " +
                       std::to_string(found.size()) + " of them?")) {
    report.Fail(options.directory, "nothing was changed");
    return 0;
  }
  WatchForInterruption();
  for (std::string const& uid : found) {
    if (IsInterrupted()) {
      report.Fail(options.directory, "interrupted; the same command completes it");
      break;
    }
    int error = 0;
    SCL_MoveIdentifier study(Level::STUDY, &error);
    study.SetStudyInstanceUID(Dicom_UI(uid));
    if (mark.set(*set.root, study) == 0)
      done->push_back(uid);
    else
      report.Fail(uid, LastCause());
  }
  return 0;
}

int Run(Mark const& mark, Options const& options) {
  Report report;
  if (options.studies.empty() && !options.all.wanted) {
    report.Fail(mark.command, "say which: --study or --all");
    return kUsage;
  }
  if (options.all.wanted && !Choice::CanConfirm("--all", options.all.yes, options.json, report)) return kUsage;
  FileSet set;
  int result = kDone;
  if (OpenPrivateFileSet(options.directory, Access::Change, {}, report, &set, &result) == -1) return result;
  std::vector<std::string> done;
  if (SetAll(mark, options, set, report, &done) == -1) return kNotOpened;
  if (options.json)
    std::printf("%s\n", JsonText({{mark.done, done}, {"failures", FailuresJson(report, "study")}}).c_str());
  else
    std::printf("%zu %s %s, %zu failed\n", done.size(), done.size() == 1 ? "study" : "studies", mark.done,
                report.Failures().size());
  return report.Result();
}

Command Add(CLI::App& app, Mark const& mark) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand(mark.command, mark.description)->footer(Footer(mark));
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_option("--study", options->studies, "Studies with these Study Instance UIDs")
      ->option_text("UID...")
      ->check(Choice::IsUid())
      ->excludes(Choice::AddAll(*line, options->all, "All studies, after asking"));
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options, &mark] { return Run(mark, *options); }};
}

} // namespace

Command AddProtect(CLI::App& app) { return Add(app, kProtect); }
Command AddUnprotect(CLI::App& app) { return Add(app, kUnprotect); }
Command AddComplete(CLI::App& app) { return Add(app, kComplete); }
