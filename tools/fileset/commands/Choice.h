// Options that choose what a command changes. An unset variable of a script, or a wildcard, must never choose more than
// was meant. So an empty value or a wildcard is a usage error, and all studies have an option of their own.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

class Report;

namespace Choice {

// Checks of an option's value. A UID has 1 to 64 characters, digits and dots.
CLI::Validator IsUid();
// For a command that only reads: the UID may break the rules, but is a single UID without wildcards.
CLI::Validator IsOneUid();
CLI::Validator IsNotEmpty();

// --all and --yes of a command.
struct All {
  bool wanted = false, yes = false;
};
// `what_happens` is the help of --all.
CLI::Option* AddAll(CLI::App& line, All& all, char const* what_happens);

// Whether the question that `option` brings can be asked, or --yes answers it. If neither, reports that; it is a usage
// error.
bool CanConfirm(char const* option, bool yes, bool json, Report& report);
// Asks on the terminal. An interruption counts as no.
bool Confirm(std::string const& question);

} // namespace Choice
