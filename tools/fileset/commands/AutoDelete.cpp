#include "commands/Commands.h"

#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/Leftovers.h"
#include "sets/Search.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <infra/Klb_FileSystemUtils.h>
#include <limits>
#include <memory>

namespace {

char const kDescription[] = "Deletes the least recently updated studies until enough of the disk is free";

char const kFooter[] = R"(
Studies are deleted one by one, the least recently updated first, until more than the wanted space is free.
Protected studies stay (`fileset protect`), and so do those that were updated within the last days. A file that
can't be removed is a failure. Ctrl-C ends the command between two studies.

A megabyte is 1000 KB here, and a KB is 1024 bytes.
Only file-sets of the private structure can do this.

Examples: see what would be deleted, and delete it
  fileset auto-delete /data/set --free-mb 50000 --min-age-days 30 --dry-run
  fileset auto-delete /data/set --free-mb 50000 --min-age-days 30

Ends with 0 when the wanted space is free; 1 when it isn't, and a line on standard error says why; 2 for a wrong
command line; 3 when the file-set can't be opened.)";

constexpr Dicom_Tag kProtection = Dicom_Dictionary::KOLBA_PROTECTION_FLAG;

struct Options {
  std::string directory;
  std::int32_t free_mb = 0, min_age_days = 0;
  bool dry_run = false, json = false;
};

long LimitKb(Options const& options) { return long(options.free_mb) * 1000; }

struct Went {
  std::string study;
  long size_kb;
};

struct Outcome {
  long free_before = 0, free_after = 0; // KB; estimated in a dry run
  std::vector<Went> went;               // in a dry run, in the order of deletion
  std::size_t deleted = 0;
};

std::string Studies(std::size_t count) { return std::to_string(count) + (count == 1 ? " study" : " studies"); }

// Why no more space can be made.
std::string Obstacles(std::size_t studies, std::size_t is_protected, std::size_t refused, Options const& options) {
  std::string text = studies == 0 ? "no study is left" : "";
  auto const add = [&](std::size_t count, std::string const& why) {
    if (count > 0) text += (text.empty() ? "" : ", ") + Studies(count) + " " + why;
  };
  add(is_protected, "protected");
  add(studies - std::min(studies, is_protected + refused),
      "updated within " + std::to_string(options.min_age_days) + " days");
  add(refused, "can't be deleted");
  return text;
}

// Finds all studies, and the number of protected ones. 0, or -1 (reported) if the file-set can't be read.
int FindStudies(FileSet& set, Report& report, StudyFolders* all, std::size_t* is_protected) {
  Search::Rows rows;
  std::vector<Key> const keys = {{kProtection, ""}, {Attributes::kReferencedFileId, ""}};
  if (Search(set, report).Run(Level::STUDY, keys, &rows) == -1) return -1;
  *all = FoldersOf(rows, set.directory);
  *is_protected = std::size_t(std::count_if(rows.begin(), rows.end(), [](auto const& row) {
    std::string const flag = row->Text(kProtection);
    return flag.empty() || flag == "Y"; // a study without the flag isn't deleted either
  }));
  return 0;
}

int List(FileSet& set, Report& report, std::vector<Disk_AutoDeleteCandidate>* candidates) {
  if (set.root->ListAutoDelete(candidates) == 0) return 0;
  report.Fail(set.directory, LastCause());
  return -1;
}

void FailUnreached(Outcome const& outcome, std::string const& obstacles, Options const& options, Report& report) {
  report.Fail(options.directory, "only " + std::to_string(outcome.free_after) + " KB " +
                                     (options.dry_run ? "would be" : "are") + " free, wanted are " +
                                     std::to_string(LimitKb(options)) + " KB: " + obstacles);
}

int DryRun(Options const& options, FileSet& set, Report& report, Outcome* outcome) {
  std::vector<Disk_AutoDeleteCandidate> candidates;
  StudyFolders studies;
  std::size_t is_protected = 0;
  if (List(set, report, &candidates) == -1 || FindStudies(set, report, &studies, &is_protected) == -1) return -1;
  for (auto const& candidate : candidates) {
    if (outcome->free_after > LimitKb(options)) break;
    long size = Klb_FileSystemUtils::GetDirSize(candidate.folder.c_str());
    if (size == -1) {
      report.Warn(candidate.folder, std::string("its size can't be told: ") + std::strerror(errno));
      size = 0;
    }
    outcome->went.push_back({candidate.study_uid.GetText(), size});
    outcome->free_after += size;
  }
  if (outcome->free_after <= LimitKb(options))
    FailUnreached(*outcome, Obstacles(studies.size() - outcome->went.size(), is_protected, 0, options), options,
                  report);
  return 0;
}

int Delete(Options const& options, FileSet& set, Report& report, Outcome* outcome) {
  StudyFolders before, after;
  std::size_t is_protected = 0;
  if (FindStudies(set, report, &before, &is_protected) == -1) return -1;
  WatchForInterruption();
  set.root->SetStop(IsInterrupted);
  Disk_PassedOver passed;
  bool const failed = set.root->AutoDelete() == -1;
  std::string const cause = LastCause();
  if (failed) report.Fail(options.directory, cause);
  outcome->free_after = set.root->FreeSpace();
  if (FindStudies(set, report, &after, &is_protected) == -1) return -1;
  for (auto const& [uid, folder] : before) {
    if (after.count(uid) > 0) continue;
    ++outcome->deleted;
    ReportLeft({}, folder, passed, report);
  }
  if (failed || outcome->free_after > LimitKb(options)) return 0;
  if (IsInterrupted()) {
    report.Fail(options.directory, "interrupted before enough was free; the same command goes on");
    return 0;
  }
  std::vector<Disk_AutoDeleteCandidate> left;
  if (List(set, report, &left) == -1) return 0;
  std::string const obstacles = Obstacles(after.size(), is_protected, left.size(), options);
  FailUnreached(*outcome, left.empty() ? obstacles : obstacles + " (" + cause + ")", options, report);
  return 0;
}

void PrintJson(Outcome const& outcome, Options const& options, Report const& report) {
  nlohmann::json went = nlohmann::json::array();
  for (Went const& one : outcome.went)
    went.push_back({{"study", one.study}, {"size_kb", one.size_kb}});
  nlohmann::json result = {{"dry_run", options.dry_run},
                           {"wanted_kb", LimitKb(options)},
                           {"free_kb_before", outcome.free_before},
                           {"free_kb_after", outcome.free_after},
                           {"reached", outcome.free_after > LimitKb(options)},
                           {"failures", FailuresJson(report, "what")}};
  if (options.dry_run)
    result["would_delete"] = went;
  else
    result["studies_deleted"] = outcome.deleted;
  std::printf("%s\n", JsonText(result).c_str());
}

void PrintText(Outcome const& outcome, Options const& options) {
  for (Went const& one : outcome.went)
    std::printf("would delete study %s, %ld KB\n", one.study.c_str(), one.size_kb);
  std::printf("%s %s; free before %ld KB, %s %ld KB, wanted %ld KB\n",
              Studies(options.dry_run ? outcome.went.size() : outcome.deleted).c_str(),
              options.dry_run ? "would go" : "deleted", outcome.free_before, options.dry_run ? "then about" : "now",
              outcome.free_after, LimitKb(options));
}

int Run(Options const& options) {
  Report report;
  FileSet set;
  int result = kDone;
  if (OpenPrivateFileSet(options.directory, options.dry_run ? Access::Read : Access::Change, {}, report, &set,
                         &result) == -1)
    return result;
  Disk_SupportPar support;
  support.auto_delete_supported = 1;
  set.root->SetSupportPar(support);
  set.root->SetAutoDeletePar({options.free_mb, options.min_age_days});
  Outcome outcome;
  outcome.free_before = outcome.free_after = set.root->FreeSpace();
  if (outcome.free_before == -1) {
    report.Fail(options.directory, "its free space can't be told: " + LastCause());
    return kFailed;
  }
  if ((options.dry_run ? DryRun : Delete)(options, set, report, &outcome) == -1) return kNotOpened;
  if (options.json)
    PrintJson(outcome, options, report);
  else
    PrintText(outcome, options);
  return report.Result();
}

} // namespace

Command AddAutoDelete(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("auto-delete", kDescription)->footer(kFooter);
  CLI::Range const range(0, std::numeric_limits<std::int32_t>::max());
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_option("--free-mb", options->free_mb, "The free space that is wanted")
      ->option_text("N")
      ->required()
      ->check(range);
  line->add_option("--min-age-days", options->min_age_days, "Keep studies that are not older")
      ->option_text("N")
      ->required()
      ->check(range);
  line->add_flag("--dry-run", options->dry_run, "Only tell what would be deleted, in which order");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
