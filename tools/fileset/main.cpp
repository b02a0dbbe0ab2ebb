// The program: stores, finds, copies, deletes and maintains the objects of a file-set from the command line.
#include "AddressSpace.h"
#include "AutoDelete.h"
#include "Cache.h"
#include "Check.h"
#include "Correct.h"
#include "Delete.h"
#include "Export.h"
#include "Fetch.h"
#include "Info.h"
#include "Interruption.h"
#include "Query.h"
#include "Scan.h"
#include "Setup.h"
#include "Status.h"
#include "Store.h"

#include <Disk/Disk_Removal.h>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

namespace {

char const kDescription[] = "Keeps DICOM objects in a file-set: a directory with records of the patients, "
                            "studies, series and objects\n"
                            "in it. Several programs may work on one file-set at the same time.\n";

char const kFooter[] = R"(
Example: a new file-set, what is in it, and a study out of it again, also onto a medium
  fileset store /data/set /media/cdrom/images
  fileset query /data/set
  fileset fetch /data/set --study 1.2.840.4711 --out /tmp/study
  fileset export /data/set --study 1.2.840.4711 --out /tmp/medium --standard

Studies are protected, completed and deleted, patients corrected, room is made (auto-delete), and what
crashes left is found (scan), as is what is damaged (check).

`fileset COMMAND --help` tells more about a command.

Ends with 0 when all is done, 1 when something failed (a line on standard error for each failure), 2 when
the command line is wrong, 3 when the file-set can't be opened.)";

int RunCommand(std::vector<Command> const& commands) {
  for (Command const& command : commands)
    if (command.line->parsed()) return command.run();
  return kUsage;
}

// A result that nobody got isn't one.
int Finished(int result) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return result;
  std::fprintf(stderr, "fileset: standard output: %s\n", std::strerror(errno));
  return result == kDone ? int(kFailed) : result;
}

} // namespace

int main(int argc, char** argv) {
  try {
    SpareAddressSpace();
    Disk_SetDeletesCineFiles(false);     // objects come from anywhere, and they would name files anywhere
    std::setlocale(LC_CTYPE, "C.UTF-8"); // what text is in, whatever the user's locale
    CLI::App app(kDescription, "fileset");
    app.footer(kFooter)->require_subcommand(1)->fallthrough();
    app.set_version_flag("--version", "fileset " FILESET_VERSION);
    Setup setup;
    AddSetup(app, setup);
    std::vector<Command> const commands = {AddStore(app),   AddQuery(app),      AddFetch(app),     AddExport(app),
                                           AddDelete(app),  AddProtect(app),    AddUnprotect(app), AddComplete(app),
                                           AddCorrect(app), AddAutoDelete(app), AddScan(app),      AddCheck(app),
                                           AddCache(app),   AddInfo(app)};
    try {
      app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
      return Finished(app.exit(error) == 0 ? kDone : kUsage);
    }
    if (ApplySetup(setup) == -1) return kUsage;
    int const result = Finished(RunCommand(commands));
    EndIfInterrupted();
    return result;
  } catch (std::exception const& error) {
    std::fprintf(stderr, "fileset: %s\n", error.what());
    return kFailed;
  }
}
