#include "commands/Commands.h"

#include "commands/Choice.h"
#include "objects/StoreObject.h"
#include "output/Json.h"
#include "output/Report.h"
#include "output/Text.h"
#include "program/Interruption.h"
#include "sets/OwnFiles.h"
#include "sets/Zombies.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <infra/Klb_GError.h>
#include <infra/Util_FileSystemInterface.h>
#include <memory>

namespace {

char const kDescription[] = "Lists files and folders of a file-set that no record names; removes or adopts them";

char const kFooter[] = R"(
Such files are left by a killed program, a full disk or lost records. A folder is listed with everything in it.

--adopt stores whole DICOM objects that the file-set lacks: it doesn't know their SOP Instance UID, or the file
that it knows for it is gone. The file is renamed to its place. An object that the file-set has already is left
where it is, and told.

--remove deletes what is listed. It asks on a terminal; elsewhere it needs --yes. Only files and folders with names
that a file-set gives are deleted, and folders only if they hold nothing else. Symbolic links and all other things
stay, and are told. Before that, --remove drops the records of studies whose folders a killed delete has removed.

With both, what can be adopted is adopted, and the rest is removed. A folder stays if it holds an object that can't
be adopted or a file that can't be read. Nothing is adopted or removed while some records can't be read.

Ctrl-C ends a scan between two studies, an adoption or removal between two files.
Only file-sets of the private structure can do this.

Examples: look, bring lost objects back, and clean up
  fileset scan /data/set
  fileset scan /data/set --adopt
  fileset scan /data/set --remove --yes

Ends with 0 when no such file is there, or none any more; 1 when some are left or something failed; 2 for a wrong
command line; 3 when the file-set can't be opened. Each failure has a line on standard error.)";

struct Options {
  std::string directory;
  bool remove = false, yes = false, adopt = false, json = false;
};

struct Adopted {
  std::string path, place;
};

struct Outcome {
  Zombies zombies; // those that no adoption has taken
  std::vector<Adopted> adopted;
  std::vector<std::string> known, removed;
};

// Marks zombies that must not be removed because of a file in them.
void Keep(Zombies& zombies, std::set<std::string> const& paths, char const* why) {
  for (Zombie& zombie : zombies) {
    auto const below = paths.lower_bound(zombie.path + "/");
    bool const holds = below != paths.end() && below->starts_with(zombie.path + "/");
    if (holds || paths.count(zombie.path) != 0) zombie.stays = why;
  }
}

bool IsObjectFile(std::string const& path) {
  std::filesystem::path const name = std::filesystem::path(path).filename();
  struct stat status {};
  for (char const* other : {"DICOMDIR", "DIRFILE", "VERSION", "LOCKFILE"})
    if (name == other) return false;
  return name.extension() != ".tmp" && Util_FileSystemInterface::Current().Lstat(path.c_str(), &status) == 0 &&
         S_ISREG(status.st_mode);
}

// Marks zombies that the file-set can't have made.
void KeepForeign(Zombies& zombies, std::string const& directory) {
  for (Zombie& zombie : zombies)
    if (zombie.stays.empty() && !CanBeOwn(zombie.path, directory)) zombie.stays = "nothing that a file-set makes";
}

// Stores the file if it is an object that the file-set lacks. False (reported) if that fails, or if the file can't be
// read and so may be an object.
bool Adopt(std::string const& path, Recorded& recorded, FileSet& set, Report& report, Outcome* outcome) {
  if (recorded.paths.count(path) != 0 || !IsObjectFile(path)) return true;
  std::string problem, place;
  bool was_read = false;
  KlbGError.Set(0);
  std::unique_ptr<IOD_Msg> const object = ReadObject(path, &problem, &was_read);
  if (!object && (!was_read || RanOutOfMemory())) { // it may be one
    report.Fail(path, problem);
    return false;
  }
  if (!object || object->GetStudyInstanceUID() == UI_NULL || object->GetSeriesInstanceUID() == UI_NULL ||
      object->GetSOPInstanceUID() == UI_NULL)
    return true;
  std::string const uid = object->GetSOPInstanceUID().GetText();
  if (recorded.uids.count(uid) != 0) {
    outcome->known.push_back(path);
    return true;
  }
  problem = StoreObject(*object, {false, false, path}, set, &place);
  if (!problem.empty()) {
    report.Fail(path, "can't be adopted: " + problem);
    return false;
  }
  recorded.uids.insert(uid);
  outcome->adopted.push_back({path, place});
  return true;
}

// 0, or -1 (reported) if the file-set can't be scanned or read.
int AdoptAll(FileSet& set, Report& report, Recorded& recorded, Outcome* outcome) {
  std::set<std::string> refused;
  report.Begin(outcome->zombies.size());
  for (Zombie const& zombie : outcome->zombies) {
    std::vector<std::string> const files = zombie.is_folder ? zombie.holds : std::vector<std::string>{zombie.path};
    for (std::string const& path : files)
      if (!IsInterrupted() && !Adopt(path, recorded, set, report, outcome)) refused.insert(path);
    report.Step();
  }
  report.End();
  if (IsInterrupted()) { // the list of zombies stays, without those that were adopted
    for (Adopted const& one : outcome->adopted)
      std::erase_if(outcome->zombies, [&one](Zombie const& zombie) { return zombie.path == one.path; });
    return 0;
  }
  if (FindZombies(set, report, &outcome->zombies) == -1) return -1;
  Keep(outcome->zombies, refused, "an object that can't be adopted");
  return 0;
}

std::string Size(Zombie const& zombie) {
  return (zombie.is_folder ? "folder, " + std::to_string(zombie.holds.size()) + " in it, " : "file, ") +
         std::to_string((zombie.bytes + 1023) / 1024) + " KB";
}

void PrintZombies(Outcome const& outcome) {
  for (Adopted const& one : outcome.adopted)
    std::printf("%s: adopted as %s\n", Printable(one.path).c_str(), Printable(one.place).c_str());
  for (std::string const& path : outcome.known)
    std::printf("%s: an object that the file-set has already\n", Printable(path).c_str());
  for (Zombie const& zombie : outcome.zombies) {
    std::string const stays = zombie.stays.empty() ? "" : "; stays, as it is or holds " + zombie.stays;
    std::printf("%s (%s%s)\n", Printable(zombie.path).c_str(), Size(zombie).c_str(), stays.c_str());
    for (std::string const& path : zombie.holds)
      std::printf("  %s\n", Printable(path).c_str());
  }
  std::fflush(stdout);
}

bool IsConfirmed(Options const& options, std::size_t count) {
  return options.yes || count == 0 ||
         Choice::Confirm("Remove " + std::to_string(count) + " of them, with all that folders hold?");
}

void PrintOutcome(Outcome const& outcome, Options const& options, Report const& report) {
  if (!options.json && !options.adopt && !options.remove) {
    std::printf("%zu that no record names\n", outcome.zombies.size());
    return;
  }
  if (!options.json) {
    std::printf("%zu adopted, %zu removed, %zu left, %zu failed\n", outcome.adopted.size(), outcome.removed.size(),
                outcome.zombies.size() - outcome.removed.size(), report.Failures().size());
    return;
  }
  nlohmann::json zombies = nlohmann::json::array(), adopted = nlohmann::json::array();
  for (Zombie const& zombie : outcome.zombies)
    zombies.push_back({{"path", zombie.path},
                       {"kind", zombie.is_folder ? "folder" : "file"},
                       {"bytes", zombie.bytes},
                       {"holds", zombie.holds},
                       {"stays", zombie.stays}});
  for (Adopted const& one : outcome.adopted)
    adopted.push_back({{"path", one.path}, {"place", one.place}});
  std::printf("%s\n", JsonText({{"zombies", zombies},
                                {"adopted", adopted},
                                {"known", outcome.known},
                                {"removed", outcome.removed},
                                {"failures", FailuresJson(report, "path")}})
                          .c_str());
}

// 0, or -1 (reported).
int Handle(Options const& options, FileSet& set, Report& report, Outcome* outcome) {
  if (options.remove) DropLostStudies(set, report);
  if (FindZombies(set, report, &outcome->zombies) == -1) return -1;
  Recorded recorded;
  bool const wanted = (options.adopt || options.remove) && !outcome->zombies.empty();
  bool const handles = wanted && ReadRecorded(set, report, &recorded) == 0;
  if (wanted && !handles) report.Fail(set.directory, "nothing is adopted or removed while not all records can be read");
  if (handles && options.adopt && AdoptAll(set, report, recorded, outcome) == -1) return -1;
  // records may name files further down than the scan looks
  Keep(outcome->zombies, recorded.paths, "what a record names");
  KeepForeign(outcome->zombies, set.directory);
  if (!options.json) PrintZombies(*outcome);
  auto const count = std::count_if(outcome->zombies.begin(), outcome->zombies.end(),
                                   [](Zombie const& zombie) { return zombie.stays.empty(); });
  if (handles && options.remove && !IsInterrupted() && IsConfirmed(options, std::size_t(count)))
    outcome->removed = RemoveZombies(outcome->zombies, set, report);
  return 0;
}

int Run(Options const& options) {
  Report report;
  if (options.remove && !Choice::CanConfirm("--remove", options.yes, options.json, report)) return kUsage;
  FileSet set;
  int result = kDone;
  if (OpenPrivateFileSet(options.directory, Access::Change, {}, report, &set, &result) == -1) return result;
  Outcome outcome;
  WatchForInterruption();
  set.root->SetStop(IsInterrupted);
  int const handled = Handle(options, set, report, &outcome);
  if (IsInterrupted())
    report.Fail(options.directory, "interrupted before all was scanned, adopted or removed; the same command goes on");
  if (handled == -1) return kFailed;
  PrintOutcome(outcome, options, report);
  return outcome.removed.size() < outcome.zombies.size() ? int(kFailed) : report.Result();
}

} // namespace

Command AddScan(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand("scan", kDescription)->footer(kFooter);
  line->add_option("DIR", options->directory, "The file-set")->required();
  line->add_flag("--adopt", options->adopt, "Store the listed objects that the file-set lacks");
  CLI::Option* remove = line->add_flag("--remove", options->remove, "Delete what is listed");
  line->add_flag("--yes", options->yes, "Don't ask before it")->needs(remove);
  line->add_flag("--json", options->json, "Print the outcome as JSON");
  return {line, [options] { return Run(*options); }};
}
