// Why operations of the library failed, in this thread, for people.
#pragma once

#include <Disk/Disk_Failure.h>

#include <string>
#include <vector>

// Of the last operation, in one line.
std::string LastCause();
// Whether it ended because it was told to.
bool WasStopped();
// What was passed over, each text once.
std::vector<std::string> CausesOf(Disk_PassedOver const& passed);
// The first of that.
std::string FirstOf(Disk_PassedOver const& passed);
// Why a call on this file failed, in the system's words; empty if that isn't among it.
std::string CauseAt(std::string const& path, Disk_PassedOver const& passed);
