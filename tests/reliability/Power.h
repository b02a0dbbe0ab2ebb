// Power cuts: operations are played and recorded, states of the disk are built from the record, and each is judged as
// what the machine finds when it starts anew.
#pragma once

#include "Campaign.h"
#include "Oracle.h"
#include "PowerLog.h"

/// Each case by itself, at either level; and some operations one after the other.
std::vector<Play> Plays(std::vector<Case> const& cases);

/// What was done to the file system, and how many steps that were when each operation returned 0.
struct Recording {
  Tree start;
  std::vector<Step> steps;
  std::vector<std::size_t> done;
};

/// Plays it in `place`.
Recording Record(Play const& play, std::string const& place);

/// What the disk holds when the power goes.
struct State {
  Disk::Image image;
  std::size_t position, acked; // steps, and operations that had returned
  bool sound;                  // nothing else is under way, and all was durable
};

/// Makes the state in `place`, starts the machine, and throws what is wrong. A thorough judgement does the operation
/// again, and stores another object.
void JudgeCut(Play const& play, State const& cut, std::string const& place, bool thorough);
