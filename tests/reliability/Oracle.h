// What must be true of a file-set after a fault.
#pragma once

#include "Operations.h"

/// What became of the operation: it gave 0; it failed or was killed.
enum class Outcome { Done, Unknown };

/// Throws a Complaint unless, in this order, the check finds no damage; a reader who can't write sees everything
/// acknowledged, and of what was in flight each object as it was or as it was to be; so does the next open, without
/// help; opening once more changes nothing; the operation, done again, reaches its end; and one more store works.
/// `again` is by whom it is done again; null stands for a new root object. It leaves the file-set changed.
void Judge(Case const& c, Site const& site, Outcome outcome, Session* again = nullptr);

/// The first part of it, up to the next open: what is true at any time.
Model JudgeState(Case const& c, Site const& site, Outcome outcome);
