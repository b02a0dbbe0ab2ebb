#include "commands/Commands.h"

#include "output/Json.h"
#include "output/Report.h"
#include "output/Text.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/FileSet.h"

#include <Disk/Disk_Check.h>
#include <algorithm>
#include <memory>

namespace {

char const kDescription[] = "Compares records, files, counters and links of a file-set, and tells what is wrong";

char const kFooter[] = R"(
Nothing is changed, and other programs can work on the file-set meanwhile. With --deep every object is read, its
UIDs are compared with its record, and JPEG-LS pixels are decoded.

Each finding has a kind, a word that stays the same between versions, and names patient, study, series and
instance. Damage is told apart from what an interrupted store or delete leaves; the same store or delete, or
`fileset scan`, mends that. docs/check.md says what each kind means and what to do.

Examples:
  fileset check /data/set
  fileset check /data/set --deep --json

Ends with 0 when the file-set is sound; 1 when something was found; 2 for a wrong command line; 3 when there is no
file-set or it can't be read.)";

struct Options {
  std::string directory;
  bool deep = false, json = false;
};

char const* CauseOf(Disk_Finding const& finding) {
  switch (finding.cause) {
  case Disk_Finding::InterruptedStore:
    return "interrupted store";
  case Disk_Finding::InterruptedDelete:
    return "interrupted delete";
  case Disk_Finding::NoMemory:
    return "out of memory";
  default:
    return "damage";
  }
}

void PrintFinding(Disk_Finding const& finding) {
  std::printf("%s: %s: %s", Printable(finding.path).c_str(), finding.kind.c_str(), Printable(finding.text).c_str());
  bool const interrupted = finding.cause != Disk_Finding::Damage && finding.cause != Disk_Finding::NoMemory;
  if (interrupted) std::printf(" (left by an %s, or damage)", CauseOf(finding));
  std::printf("\n");
  struct {
    char const* name;
    std::string const& value;
  } const names[] = {{"patient", finding.patient_id},
                     {"study", finding.study_uid},
                     {"series", finding.series_uid},
                     {"instance", finding.instance_uid}};
  for (auto const& [name, value] : names)
    if (!value.empty()) std::printf("    %s %s\n", name, Printable(value).c_str());
}

std::size_t CountDamage(Disk_CheckResult const& result) {
  return std::size_t(std::count_if(result.findings.begin(), result.findings.end(),
                                   [](auto const& finding) { return finding.cause == Disk_Finding::Damage; }));
}

void PrintResult(Disk_CheckResult const& result, bool deep, bool has_records) {
  for (Disk_Finding const& finding : result.findings)
    PrintFinding(finding);
  if (result.n_findings > result.findings.size())
    std::printf("... and %llu more\n", static_cast<unsigned long long>(result.n_findings - result.findings.size()));
  auto const number = [](std::uint64_t n) { return static_cast<unsigned long long>(n); };
  std::printf("%llu patients, %llu studies, %llu series, %llu images", number(result.patients), number(result.studies),
              number(result.series), number(result.instances));
  if (deep)
    std::printf(", %llu objects read, %llu decoded", number(result.objects_read), number(result.objects_decoded));
  if (result.n_findings == 0)
    std::printf(has_records ? ": sound\n" : ": no records\n");
  else
    std::printf(": %llu findings, %zu of them damage for sure\n", number(result.n_findings), CountDamage(result));
}

void PrintJson(Disk_CheckResult const& result, bool deep, bool has_records) {
  nlohmann::json findings = nlohmann::json::array();
  for (Disk_Finding const& finding : result.findings)
    findings.push_back({{"kind", finding.kind},
                        {"cause", CauseOf(finding)},
                        {"patient", finding.patient_id},
                        {"study", finding.study_uid},
                        {"series", finding.series_uid},
                        {"instance", finding.instance_uid},
                        {"path", finding.path},
                        {"text", finding.text}});
  nlohmann::json whole = {{"patients", result.patients}, {"studies", result.studies},
                          {"series", result.series},     {"images", result.instances},
                          {"findings", findings},        {"findings_in_all", result.n_findings},
                          {"records", has_records},      {"sound", has_records && result.n_findings == 0}};
  if (deep) whole["objects_read"] = result.objects_read, whole["objects_decoded"] = result.objects_decoded;
  std::printf("%s\n", JsonText(whole).c_str());
}

int Run(Options const& options) {
  Report report;
  FoundFileSet const found = RecogniseFileSet(options.directory);
  if (found.structure == Structure::None) {
    report.Fail(options.directory, found.problem);
    return kNotOpened;
  }
  if (!found.has_records) report.Warn(options.directory, kNoRecords);
  Disk_StoreParams params;
  params.standard_structure = found.structure == Structure::Standard;
  WatchForInterruption();
  std::uint64_t shown = 0;
  Disk_CheckOptions const check{options.deep, [&](std::uint64_t done, std::uint64_t all) {
                                  if (shown == 0) report.Begin(all);
                                  for (; shown < done; ++shown)
                                    report.Step();
                                  return !IsInterrupted();
                                }};
  Disk_CheckResult result;
  int const outcome = Disk_Check(options.directory.c_str(), params, check, &result);
  report.End();
  if (IsInterrupted()) {
    report.Fail(options.directory, "interrupted before all objects were read");
    return kFailed;
  }
  if (outcome == -1) {
    report.Fail(options.directory, LastCause());
    return kNotOpened;
  }
  if (options.json)
    PrintJson(result, options.deep, found.has_records);
  else
    PrintResult(result, options.deep, found.has_records);
  return result.n_findings == 0 ? kDone : kFailed;
}

} // namespace

Command AddCheck(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("check", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_flag("--deep", options->deep, "Read every object too");
  line->add_flag("--json", options->json, "Print the findings as JSON");
  return {line, [options] { return Run(*options); }};
}
