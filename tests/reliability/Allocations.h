// `operator new` of this program, which can be made to fail.
#pragma once

/// From the allocation with this number on, or that one only, all fail while they are armed; 0: none does. Starts to
/// count anew.
void FailAllocations(int ordinal, bool once);
void ArmAllocations(bool armed);
/// How many there were while they were armed.
int CountedAllocations();
