// The program: stores, finds, copies, deletes and maintains the objects of a file-set from the command line.
#include "commands/Commands.h"
#include "commands/Setup.h"
#include "output/Text.h"
#include "program/AddressSpace.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <numeric>
#include <utility>
#include <vector>

namespace {

char const kDescription[] = "Keeps DICOM objects in a file-set: a directory with records of the patients, "
                            "studies, series and objects\n"
                            "in it. Several programs may work on one file-set at the same time.\n";

char const kFooter[] = R"(
Example: make a file-set, list it, copy a study out of it, and make a medium with the study
  fileset store /data/set /media/cdrom/images
  fileset query /data/set
  fileset fetch /data/set --study 1.2.840.4711 --out /tmp/study
  fileset export /data/set --study 1.2.840.4711 --out /tmp/medium --standard

`fileset COMMAND --help` tells more about a command.

Ends with 0 when all is done; 1 when something failed; 2 when the command line is wrong; 3 when there is no
file-set, or it can't be opened or made. Each failure has a line on standard error.)";

int RunCommand(std::vector<Command> const& commands) {
  for (Command const& command : commands)
    if (command.line->parsed()) return command.run();
  return kUsage;
}

// The number of letters to change, add or drop to make one word the other.
std::size_t Distance(std::string const& a, std::string const& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t(0));
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      std::size_t const change = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({change, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

// Tells that a word is no command, and which command may be meant. False if it is a command or an option.
bool TellUnknown(std::vector<Command> const& commands, std::string const& word) {
  constexpr std::size_t kLike = 2;
  std::string meant = "`fileset --help` tells them";
  for (Command const& command : commands) {
    std::string const name = command.line->get_name();
    if (word == name) return false;
    if (Distance(word, name) <= kLike) meant = "is `" + name + "` meant?";
  }
  if (word.empty() || word[0] == '-') return false;
  std::fprintf(stderr, "fileset: %s: no such command; %s\n", Printable(word).c_str(), meant.c_str());
  return true;
}

// Output that couldn't be written is a failure of the command.
int Finished(int result) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return result;
  std::fprintf(stderr, "fileset: standard output: %s\n", std::strerror(errno));
  return result == kDone ? int(kFailed) : result;
}

} // namespace

int main(int argc, char** argv) {
  try {
    SpareAddressSpace();
    std::signal(SIGXFSZ, SIG_IGN);       // a file that would grow beyond `ulimit -f` is an error of that file
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
      bool const is_told =
          error.get_exit_code() != 0 && app.get_subcommands().empty() && TellUnknown(commands, argc > 1 ? argv[1] : "");
      return is_told ? int(kUsage) : Finished(app.exit(error) == 0 ? kDone : kUsage);
    }
    if (ApplySetup(setup) == -1) return kUsage;
    return Finished(RunCommand(commands));
  } catch (std::exception const& error) {
    std::fprintf(stderr, "fileset: %s\n", error.what());
    return kFailed;
  }
}
