#include "commands/Choice.h"

#include "output/Report.h"

#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLongestUid = 64;

CLI::Validator Check(std::string (*problem)(std::string const& value)) {
  return {[problem](std::string& value) { return problem(value); }, ""};
}

std::string Quoted(std::string const& value) { return "'" + value + "'"; }

} // namespace

CLI::Validator Choice::IsUid() {
  return Check([](std::string const& value) {
    bool const is_uid =
        !value.empty() && value.size() <= kLongestUid && value.find_first_not_of("0123456789.") == std::string::npos;
    return is_uid ? std::string() : Quoted(value) + " is no UID: that has 1 to 64 characters, digits and dots";
  });
}

CLI::Validator Choice::IsOneUid() {
  return Check([](std::string const& value) {
    bool const is_one = !value.empty() && value.find_first_of("*?\\ ") == std::string::npos;
    return is_one ? std::string() : Quoted(value) + " is no UID";
  });
}

CLI::Validator Choice::IsNotEmpty() {
  return Check([](std::string const& value) {
    return std::string(value.find_first_not_of(' ') == std::string::npos ? "the value is empty" : "");
  });
}

CLI::Option* Choice::AddAll(CLI::App& line, All& all, char const* what_happens) {
  CLI::Option* const option = line.add_flag("--all", all.wanted, what_happens);
  line.add_flag("--yes", all.yes, "Don't ask before it")->needs(option);
  return option;
}

bool Choice::CanConfirm(char const* option, bool yes, bool json, Report& report) {
  if (yes || (!json && isatty(STDIN_FILENO) == 1)) return true;
  report.Fail(option, "nobody can be asked whether to go on: --yes does it without");
  return false;
}

bool Choice::Confirm(std::string const& question) {
  std::fprintf(stderr, "%s (y/N) ", question.c_str());
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (poll(&input, 1, -1) != 1) return false; // unlike a read, this ends with a signal
  int const answer = std::getchar();
  return answer == 'y' || answer == 'Y';
}
