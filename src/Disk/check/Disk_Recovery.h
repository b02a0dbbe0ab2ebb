// What is done about the unsynced files that a power cut left of relaxed operations.
#pragma once
#include <string>

/// Mends what an earlier boot of the machine left in a file-set. 0, also when there is nothing to mend, or -1 (logged).
/// The caller holds no lock.
int Disk_Recover(std::string const& prefix);
