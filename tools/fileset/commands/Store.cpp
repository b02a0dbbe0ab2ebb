#include "commands/Commands.h"

#include "objects/ObjectWriter.h"
#include "objects/ReadAhead.h"
#include "objects/SourceFiles.h"
#include "objects/StoreObject.h"
#include "output/Json.h"
#include "output/Report.h"
#include "program/Interruption.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <infra/Klb_GError.h>
#include <infra/Util_Cfg.h>
#include <infra/Util_FileSystem.h>
#include <memory>
#include <new>

namespace {

char const kDescription[] = "Stores DICOM objects in a file-set: files, and all files in folders and below";

char const kFooter[] = R"(
If DIR doesn't exist it is made; the folder above it must exist. If DIR is empty, it becomes a file-set. If it
holds something else, it becomes one only with --init, and nothing in it is touched. An object that the file-set
has already is replaced.

A new file-set gets the private structure, which is faster to store into. With --standard it gets the standard
one, whose DICOMDIR other DICOM software reads. An existing file-set keeps its structure.

In the private structure objects are compressed without loss. With --native they are written uncompressed; pixels
that come compressed stay so in both cases. In the standard structure, which other software reads, objects are
decompressed. With --compress they are treated as in the private structure.

An object is refused if its Patient's Name, Patient ID, Study ID or Series Number contradicts its study or series
in the file-set. With --accept-mismatch it is stored. In the standard structure the Issuer of Patient ID is a part
of the ID.

An object is refused if the directory file (DIRFILE) of its study or series is lost while objects of it are there.
`fileset scan --adopt` gives those objects new records; with --init the store goes on without them.

Files in a folder that are no DICOM objects (a DICOMDIR, programs, a readme) are skipped and counted. With --strict
they are failures. A file that is named itself and is no object is always a failure.

Durability: the files are written without waiting for the disk. One sync at the end makes all of them survive a
power cut. With --durable, or `durability: full` in the configuration, each object reaches the disk before the next
one is begun. That takes several times as long.

Example: store a folder, and see what came
  fileset store /data/set /media/cdrom/images report.dcm
  fileset query /data/set

Ends with 0 when every object was stored; 1 when an object wasn't, or there was none; 2 for a wrong command line;
3 when the file-set can't be opened or made. Each failure has a line on standard error. The store goes on after a
failure, unless the disk is full.)";

struct Options {
  std::string directory;
  std::vector<std::string> sources;
  bool native = false, compress = false, standard = false, icon = false, accept_mismatch = false, move = false,
       durable = false, strict = false, init = false, json = false;

  bool IsStandard(Structure found) const { return standard || found == Structure::Standard; }
  bool Compresses(Structure found) const { return !native && (compress || !IsStandard(found)); }
};

struct Outcome {
  std::size_t stored = 0, refused = 0, skipped = 0;
  double seconds = 0;
  char const* durability = "";
};

bool WantsFullDurability(Options const& options) {
  Util_CfgHandle const* const handle = Util_Cfg::GetHandle();
  Tree_Node const* const wish = handle ? handle->GetRoot()->GetChild("durability") : nullptr;
  return options.durable || (wish && wish->GetValue() == "full");
}

// What the store of each object needs.
struct Target {
  Options const& options;
  FileSet& set;
  Report const& report;

  // The records of a standard file-set say that its files are native.
  bool Decompresses() const {
    return options.IsStandard(set.structure) && !options.Compresses(set.structure) && !options.move;
  }
};

// Stores the object that `read` gives. Returns the cause of a failure, else an empty text.
std::string Attempt(ReadAhead& objects, ReadAhead::Object (ReadAhead::*read)(), std::string const& path,
                    Target const& target) {
  Options const& options = target.options;
  KlbGError.Set(0);
  try {
    ReadAhead::Object const next = (objects.*read)();
    if (!next.object) return next.problem;
    std::string problem;
    if (target.Decompresses() && !Decompress(*next.object, &problem) && !problem.empty())
      target.report.Warn(path, problem + ": it stays compressed");
    return StoreObject(*next.object, {options.icon, options.accept_mismatch, options.move ? path : ""}, target.set);
  } catch (std::bad_alloc const&) {
    KlbGError.SetSystem(ENOMEM);
    return "out of memory";
  } catch (std::exception const& failure) {
    return failure.what();
  }
}

// The same for the next object. If memory runs out, it drops those read ahead and tries again.
std::string StoreNext(ReadAhead& objects, std::string const& path, Target const& target) {
  std::string cause = Attempt(objects, &ReadAhead::Next, path, target);
  if (cause.empty() || !RanOutOfMemory() || !objects.DropOthers()) return cause;
  std::string again = Attempt(objects, &ReadAhead::Again, path, target);
  // the first cause counts: the file may have been moved before memory ran out
  return target.options.move && !again.empty() ? cause : again;
}

void StoreFiles(SourceFiles const& files, Target const& target, Report& report, Outcome* outcome) {
  Options const& options = target.options;
  // an icon is made from uncompressed pixels
  ReadAhead objects(files.paths, options.Compresses(target.set.structure) && !options.move && !options.icon);
  for (std::size_t i = 0; i < files.paths.size() && !IsInterrupted(); ++i) {
    std::string const& file = files.paths[i];
    std::string const cause = StoreNext(objects, file, target);
    bool const is_full = RanOutOfDisk();
    if (cause.empty())
      ++outcome->stored;
    else if (is_full)
      report.Fail(file, cause + kDiskIsFull + ", with " + std::to_string(outcome->stored) +
                            " stored; the same command, when there is room, stores them all");
    else if (!options.strict && files.from_folder[i] && IsNoObject(file, cause))
      ++outcome->skipped;
    else
      report.Fail(file, cause);
    if (is_full && !cause.empty()) break;
    report.Step();
  }
}

Outcome StoreAll(Options const& options, FileSet& set, Report& report) {
  SourceFiles const files = FindSourceFiles(options.sources, options.directory, report);
  bool const full = WantsFullDurability(options);
  set.root->SetDurability(full ? Util_Durability::Full : Util_Durability::Relaxed);
  WatchForInterruption();
  auto const start = std::chrono::steady_clock::now();
  Outcome outcome{0, 0, 0, 0, "each object was on the disk before the next"};
  report.Begin(files.paths.size());
  StoreFiles(files, {options, set, report}, report, &outcome);
  report.End();
  outcome.refused = report.Failures().size();
  if (!full && outcome.stored > 0) {
    outcome.durability = "one sync at the end";
    if (set.root->Sync() == -1)
      report.Fail(options.directory, std::string("what was stored may not survive a power cut, as the sync failed: ") +
                                         std::strerror(errno));
  }
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (IsInterrupted()) report.Fail(options.directory, "interrupted before all files were stored");
  if (outcome.stored == 0 && report.Failures().empty()) report.Fail(options.directory, "nothing to store was found");
  return outcome;
}

void PrintOutcome(Outcome const& outcome, Options const& options, Report const& report) {
  double const rate = outcome.seconds > 0 ? double(outcome.stored) / outcome.seconds : 0;
  if (!options.json) {
    std::string const skipped = ", " + std::to_string(outcome.skipped) + " skipped, as they are no objects,";
    std::printf("%zu stored, %zu refused%s in %.1f s (%.0f per second)%s%s\n", outcome.stored, outcome.refused,
                outcome.skipped > 0 ? skipped.c_str() : "", outcome.seconds, rate, outcome.stored > 0 ? "; " : "",
                outcome.stored > 0 ? outcome.durability : "");
    return;
  }
  std::printf("%s\n", JsonText({{"stored", outcome.stored},
                                {"refused", outcome.refused},
                                {"skipped", outcome.skipped},
                                {"seconds", outcome.seconds},
                                {"per_second", rate},
                                {"durability", outcome.durability},
                                {"failures", FailuresJson(report, "file")}})
                          .c_str());
}

int Run(Options const& options) {
  Report report;
  Disk_StoreParams params;
  params.store_native = options.Compresses(RecogniseFileSet(options.directory).structure) ? 0 : 1;
  params.standard_structure = options.standard ? 1 : 0;
  params.refuse_lost = options.init ? 0 : 1;
  FileSet set = OpenFileSet(options.directory, options.init ? Access::MakeAmong : Access::Make, params, report);
  if (!set.root) return kNotOpened;
  Outcome const outcome = StoreAll(options, set, report);
  PrintOutcome(outcome, options, report);
  return report.Result();
}

} // namespace

Command AddStore(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("store", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_option("FILES", options->sources, "Files and folders")->required();
  CLI::Option* native = line->add_flag("--native", options->native, "Write uncompressed, as explicit little endian");
  line->add_flag("--compress", options->compress, "Compress without loss in the standard structure too")
      ->excludes(native);
  line->add_flag("--standard", options->standard, "Make a new file-set of the standard structure: one DICOMDIR");
  line->add_flag("--init", options->init,
                 "Make a new file-set although DIR holds other things, or go on without lost records");
  line->add_flag("--icon", options->icon, "Put an icon of each new image into its record");
  line->add_flag("--accept-mismatch", options->accept_mismatch,
                 "Store objects that contradict their study or series too");
  line->add_flag("--move", options->move, "Move the files, as they are, into the file-set instead of writing new ones")
      ->excludes(native);
  line->add_flag("--durable", options->durable, "Sync each object before the next one is begun");
  line->add_flag("--strict", options->strict, "Count files in folders that are no objects as failures");
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
