// Options that choose what a command changes. A script's unset variable or a wildcard must never choose more than was
// meant, so such a value is a usage error, and all studies are chosen by an option of their own.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

class Report;

namespace Choice {

// Checks of an option's value. A UID has 1 to 64 characters, digits and dots.
CLI::Validator IsUid();
// What a command only reads may have a UID that breaks the rules; it is one, and no wildcard.
CLI::Validator IsOneUid();
CLI::Validator IsNotEmpty();

// --all and --yes of a command.
struct All {
  bool wanted = false, yes = false;
};
// `what_happens` is the help of --all.
CLI::Option* AddAll(CLI::App& line, All& all, char const* what_happens);

// Whether the question that `option` brings can be asked, or --yes answers it. If not, that is reported: it is a usage
// error.
bool CanConfirm(char const* option, bool yes, bool json, Report& report);
// Asks on the terminal. An interruption is no.
bool Confirm(std::string const& question);

} // namespace Choice
