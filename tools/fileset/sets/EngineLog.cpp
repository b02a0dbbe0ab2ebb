#include "sets/EngineLog.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>
#include <string_view>
#include <thread>
#include <utility>

namespace {

constexpr int kErrorLevel = 3;
constexpr std::size_t kMostLines = 100;

// The text behind date, time, level and place, without the name of the operation that begins it.
std::string_view Text(std::string_view line) {
  for (int field = 0; field < 4; ++field)
    line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
  std::size_t const colon = line.find(": ");
  if (colon != std::string_view::npos && line.find_first_of(" /") > colon) line.remove_prefix(colon + 2);
  return line.substr(0, line.find_last_not_of(" .") + 1);
}

std::string SystemError() {
  int const code = KlbGError.Get() - KLB_ERR_SYSTEM;
  return code > 0 && code < KLB_ERR_DISK - KLB_ERR_SYSTEM ? std::strerror(code) : "";
}

// An error number at the end, "(errno=13)" or ": errno 13", as words.
std::string InWords(std::string const& cause) {
  std::size_t const name = cause.rfind("errno"), digits = cause.find_first_of("0123456789", name);
  if (name == std::string::npos || digits == std::string::npos) return cause;
  std::size_t const end = cause.find_last_not_of(" (:.,", name - 1);
  int number = 0;
  std::from_chars(cause.data() + digits, cause.data() + cause.size(), number);
  return cause.substr(0, end + 1) + ": " + std::strerror(number);
}

} // namespace

EngineLog::EngineLog(std::string directory) : directory_(std::move(directory)) {
  KlbGLog.SetSink([this, owner = std::this_thread::get_id()](int level, std::string const& line) {
    if (std::this_thread::get_id() != owner) return;
    if (level == kErrorLevel && errors_.size() < kMostLines) errors_.emplace_back(Text(line));
  });
}

EngineLog::~EngineLog() { KlbGLog.SetSink(nullptr); }

void EngineLog::Begin() {
  KlbGLog.Flush();
  errors_.clear();
  KlbGError.Set(0);
}

bool EngineLog::HasErrors() const {
  KlbGLog.Flush();
  return !errors_.empty();
}

bool EngineLog::names_place(std::string const& text) const {
  bool const of_chain = text.find("record") != text.npos && text.find("offset ") != text.npos;
  return of_chain || text.starts_with(directory_ + "/");
}

std::vector<std::string> EngineLog::Places() const {
  KlbGLog.Flush();
  std::vector<std::string> places;
  for (std::string const& text : errors_)
    if (names_place(text) && std::find(places.begin(), places.end(), text) == places.end()) places.push_back(text);
  return places;
}

std::string EngineLog::CauseOf(std::string const& path) const {
  KlbGLog.Flush();
  for (std::string const& text : errors_)
    if (text.find(" " + path + " ") != text.npos && text.find("errno") != text.npos) {
      std::string const cause = InWords(text);
      return cause.substr(cause.rfind(": ") + 2);
    }
  return {};
}

std::string EngineLog::Cause() const {
  KlbGLog.Flush();
  if (errors_.empty()) return SystemError().empty() ? "no cause is known" : SystemError();
  auto const find = [this](auto tells) {
    auto const found = std::find_if(errors_.begin(), errors_.end(), tells);
    return found == errors_.end() ? std::string() : *found;
  };
  // what the object has against what it should have
  std::string cause = find([](std::string const& text) { return text.find(", but must be ") != text.npos; });
  if (!cause.empty()) return cause.substr(0, cause.find(". Store cant"));
  cause = find([this](std::string const& text) { return text.starts_with(directory_ + "/"); });
  if (cause.empty()) cause = find([this](std::string const& text) { return names_place(text); });
  cause = InWords(cause.empty() ? errors_.front() : cause);
  std::string const error = SystemError();
  return error.empty() || cause.find(error) != cause.npos ? cause : cause + ": " + error;
}
