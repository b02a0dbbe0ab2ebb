// One run of an operation in which calls or allocations fail, and what is asked of it.
#pragma once

#include "Oracle.h"

/// What fails in a run.
struct Fault {
  enum Kind { Calls, ShortCounts, Allocations };
  Kind kind = Calls;
  int ordinal = 1; // the first one that fails
  int error = 0;   // with this errno
  bool once = true;
  /// Afterwards the operation is done again through the same root object, and not through a new one.
  bool same_root = false;
  /// Everything is asked of what is left; else only that the operation, done again, leaves what it should.
  bool thorough = false;
  std::string Name() const;
};

/// Of an operation without a fault: from where in the engine each call was made, and the number of allocations.
std::vector<std::size_t> CallersOf(Case const& c, std::string const& place);
int CountAllocations(Case const& c, std::string const& place);

/// Throws a Complaint unless the operation fails as it should, and leaves what it should.
void Attempt(Case const& c, Fault const& fault, std::string const& place);
