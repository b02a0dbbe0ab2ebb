#include "sets/Cause.h"

#include <Disk/Disk_Error.h>
#include <algorithm>
#include <cerrno>

namespace {

constexpr char kUnknown[] = "no cause is known";

}

std::string LastCause() {
  Disk_Failure const failure = Disk_LastFailure();
  return failure.code == 0 ? kUnknown : failure.text;
}

bool WasStopped() { return Disk_LastFailure().code == DISK_ERROR_SYSTEM + EINTR; }

std::vector<std::string> CausesOf(Disk_PassedOver const& passed) {
  std::vector<std::string> causes;
  for (auto const& entry : passed.Entries())
    if (std::find(causes.begin(), causes.end(), entry.text) == causes.end()) causes.push_back(entry.text);
  return causes;
}

std::string FirstOf(Disk_PassedOver const& passed) {
  return passed.Entries().empty() ? kUnknown : passed.Entries().front().text;
}

std::string CauseAt(std::string const& path, Disk_PassedOver const& passed) {
  for (auto const& entry : passed.Entries())
    if (entry.path == path) return Disk_ErrorText(entry.code);
  return {};
}
