#include "commands/Commands.h"

#include "commands/Choice.h"
#include "objects/Medium.h"
#include "objects/ObjectWriter.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"
#include "sets/Cause.h"
#include "sets/OwnFiles.h"
#include "sets/Search.h"

#include <Disk/Disk_Access.h>
#include <cerrno>
#include <cstring>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <memory>
#include <optional>
#include <utility>

namespace {

char const kDescription[] = "Copies a study, a series or an object into a folder, or into a new file-set to burn";

char const kFooter[] = R"(
The copy of an object is named FOLDER/SOPINSTANCEUID.dcm. FOLDER is made if it doesn't exist. If the file exists
already it is left alone, which counts as a failure; with --force it is replaced. Compressed pixels stay
compressed unless --decompress is given.

With --standard FOLDER becomes a file-set of the standard structure, with a DICOMDIR that other DICOM software
reads. FOLDER must be empty or not exist. The objects are decompressed, so that any reader can show them, unless
--as-stored is given; the DICOMDIR says how each file is encoded. One sync at the end makes the file-set survive a
power cut.

If an object can't be read or copied, the others are copied all the same, and nothing is taken back. Ctrl-C ends
the export between two objects.

Examples:
  fileset export /data/set --study 1.2.840.4711 --out /tmp/study
  fileset export /data/set --study 1.2.840.4711 --out /tmp/medium --standard

Ends with 0 when every object was copied; 1 when nothing was found or something failed; 2 for a wrong command
line; 3 when the file-set can't be opened. Each failure has a line on standard error.)";

struct Options {
  std::string directory, study, series, image, out;
  bool standard = false, as_stored = false, decompress = false, force = false, json = false;
};

// Makes the queries whose answers are copied: one, or several if the series or image stands in several places. 0, or -1
// (reported) if the file-set can't be read.
int FindLists(Options const& options, Search& search, std::vector<SCL_QueryIdentifier>* lists) {
  if (!options.study.empty()) {
    lists->emplace_back(Level::STUDY);
    lists->back().SetStudyInstanceUID(Dicom_UI(options.study));
    return 0;
  }
  Level const level = options.image.empty() ? Level::SERIES : Level::IMAGE;
  Key const key = options.image.empty() ? Key{Attributes::kSeriesInstanceUid, options.series}
                                        : Key{Attributes::kSopInstanceUid, options.image};
  Search::Rows rows;
  if (search.Run(level, {key}, &rows) == -1) return -1;
  for (auto const& row : rows) {
    SCL_MoveIdentifier const found(*row);
    SCL_QueryIdentifier list(level);
    list.SetStudyInstanceUID(found.GetStudyInstanceUID());
    list.SetSeriesInstanceUID(found.GetSeriesInstanceUID());
    if (level == Level::IMAGE) list.SetSOPInstanceUID(found.GetSOPInstanceUID());
    lists->push_back(list);
  }
  return 0;
}

// Where the objects are copied to.
class Target {
public:
  virtual ~Target() = default;
  // 0, or -1 (reported).
  virtual int Open() = 0;
  // Copies an object. Returns whether it was copied. Reports a failure, and pixels that can't be decompressed.
  virtual bool Add(IOD_Msg& object, std::string const& uid) = 0;
  // Whether Add failed because the disk is full.
  virtual bool IsFull() const = 0;
  virtual void Finish() {}
};

class FolderTarget : public Target {
public:
  FolderTarget(Options const& options, Report& report)
      : options_(options), report_(report), writer_(options.out, options.force) {}

  int Open() override {
    if (writer_.MakeFolder() == 0) return 0;
    report_.Fail(options_.out, std::string("can't be made: ") + std::strerror(errno));
    return -1;
  }
  bool Add(IOD_Msg& object, std::string const& uid) override {
    return !writer_.Copy(object, uid, options_.decompress, report_).empty();
  }

  bool IsFull() const override { return writer_.IsFull(); }

protected:
  Options const& options_;
  Report& report_;

private:
  ObjectWriter writer_;
};

class StandardTarget : public FolderTarget {
public:
  StandardTarget(Options const& options, Report& report) : FolderTarget(options, report) {}

  int Open() override {
    if (FolderTarget::Open() == -1) return -1;
    if (ContentsOf(options_.out) != Contents::Nothing) {
      report_.Fail(options_.out, "isn't empty, which a new file-set needs");
      return -1;
    }
    Disk_StoreParams const params(Disk_StoreParams::STANDARD_STRUCTURE);
    FileSet set = OpenFileSet(options_.out, Access::Make, params, report_);
    if (!set.root) return -1;
    medium_.emplace(std::move(set));
    return 0;
  }

  bool Add(IOD_Msg& object, std::string const& uid) override {
    std::string problem;
    std::string_view bytes = options_.as_stored ? object.GetOriginalBuffer() : std::string_view();
    if (!options_.as_stored) Decompress(object, &problem);
    if (!problem.empty()) report_.Fail(uid, std::exchange(problem, {}) + ": copied as it is");
    int status = 0;
    std::unique_ptr<Util_File> file;
    if (bytes.empty()) {
      file = std::make_unique<Util_File>(object, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, &problem);
      bytes = file->Bytes();
    }
    if (problem.empty()) problem = medium_->Add(object, bytes);
    if (!problem.empty()) report_.Fail(uid, problem);
    return problem.empty();
  }

  bool IsFull() const override { return medium_ && medium_->IsFull(); }

  void Finish() override {
    if (medium_->Sync() == -1)
      report_.Fail(options_.out,
                   std::string("may not survive a power cut, as the sync failed: ") + std::strerror(errno));
    medium_.reset();
  }

private:
  std::optional<Medium> medium_;
};

// The number of objects copied from the list.
std::size_t CopyList(Disk_Access& access, Target& target, Report& report) {
  std::size_t copied = 0;
  while (access.HasMore() && !IsInterrupted() && !target.IsFull()) {
    std::string const uid = access.GetNextUID().GetText();
    IOD_Msg* fetched = nullptr;
    int const result = access.FetchNext(&fetched);
    std::unique_ptr<IOD_Msg> const object(fetched);
    if (result == -1 || !object)
      report.Fail(uid, LastCause());
    else if (target.Add(*object, uid))
      ++copied;
    report.Step();
  }
  return copied;
}

// Opens the list of objects. Of a damaged file-set, which is reported, it holds what can be read.
std::unique_ptr<Disk_Access> OpenList(SCL_QueryIdentifier const& list, Options const& options, FileSet& set,
                                      Search& search, Report& report) {
  auto access = std::make_unique<Disk_Access>(*set.root);
  if (access->OpenQuery(list, 1) == 0) return access;
  report.Fail(options.directory, LastCause());
  Disk_RootDirectoryFile* const lenient = search.Lenient();
  access = lenient ? std::make_unique<Disk_Access>(*lenient) : nullptr;
  return access && access->OpenQuery(list, 1) == 0 ? std::move(access) : nullptr;
}

void CopyAll(std::vector<SCL_QueryIdentifier> const& lists, Options const& options, FileSet& set, Search& search,
             Target& target, Report& report, std::size_t* copied) {
  std::size_t found = 0;
  for (SCL_QueryIdentifier const& list : lists) {
    if (IsInterrupted()) break;
    std::unique_ptr<Disk_Access> const access = OpenList(list, options, set, search, report);
    if (!access) continue;
    if (access->HasMore() && found == 0 && target.Open() == -1) return;
    found += std::size_t(access->GetNItems());
    report.Begin(std::size_t(access->GetNItems()));
    *copied += CopyList(*access, target, report);
    report.End();
  }
  if (found > 0)
    target.Finish();
  else if (report.Failures().empty() && !IsInterrupted())
    report.Fail(options.directory, "holds no such object");
}

void PrintOutcome(std::size_t copied, Options const& options, Report const& report) {
  if (options.json) {
    std::printf("%s\n", JsonText({{"exported", copied},
                                  {"folder", options.out},
                                  {"standard", options.standard},
                                  {"failures", FailuresJson(report, "object")}})
                            .c_str());
    return;
  }
  std::size_t const failed = report.Failures().size();
  std::printf("%zu exported to %s%s, %zu failed%s\n", copied, options.out.c_str(),
              options.standard ? ", a file-set of its own" : "", failed,
              failed > 0 && copied > 0 ? "; what was copied is left there" : "");
}

int Run(Options const& options) {
  Report report;
  if (int(!options.study.empty()) + int(!options.series.empty()) + int(!options.image.empty()) != 1) {
    report.Fail("export", "say what: --study, --series or --image");
    return kUsage;
  }
  if (!MayReceive(options.out, options.directory, report)) return kUsage;
  FileSet set = OpenFileSet(options.directory, Access::Visit, {}, report);
  if (!set.root) return kNotOpened;
  std::unique_ptr<Target> target = std::make_unique<FolderTarget>(options, report);
  if (options.standard) target = std::make_unique<StandardTarget>(options, report);
  Search search(set, report);
  search.PassOverDamage();
  std::vector<SCL_QueryIdentifier> lists;
  if (FindLists(options, search, &lists) == -1) return kNotOpened;
  WatchForInterruption();
  std::size_t copied = 0;
  if (set.has_records) CopyAll(lists, options, set, search, *target, report, &copied);
  if (IsInterrupted())
    report.Fail(options.out, std::string("interrupted before all objects were copied; ") +
                                 (options.standard ? "remove it before it is exported again"
                                                   : "the same command with --force copies all"));
  PrintOutcome(copied, options, report);
  return report.Result();
}

} // namespace

Command AddExport(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("export", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  CLI::Option* study = line->add_option("--study", options->study, "The study with this Study Instance UID");
  CLI::Option* series = line->add_option("--series", options->series, "The series with this Series Instance UID");
  CLI::Option* image = line->add_option("--image", options->image, "The object with this SOP Instance UID");
  for (CLI::Option* option : {study, series, image})
    option->option_text("UID")->check(Choice::IsOneUid());
  study->excludes(series)->excludes(image);
  series->excludes(image);
  line->add_option("--out", options->out, "The folder to copy to")->option_text("FOLDER")->required();
  CLI::Option* standard = line->add_flag("--standard", options->standard, "Make FOLDER a file-set with a DICOMDIR");
  CLI::Option* decompress =
      line->add_flag("--decompress", options->decompress, "Write uncompressed pixels, as explicit little endian");
  line->add_flag("--as-stored", options->as_stored, "With --standard: leave compressed pixels as they are")
      ->needs(standard)
      ->excludes(decompress);
  line->add_flag("--force", options->force, "Replace files that exist")->excludes(standard);
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
