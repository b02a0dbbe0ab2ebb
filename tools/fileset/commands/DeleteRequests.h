// Turns what a delete was asked for into requests to the library.
//
// The records tell where a series or an image is. A delete that was interrupted may have removed them already, and left
// folders and counters above them. So when something that was named has no record, the file-set is checked, and what an
// interrupted delete left becomes a request as well: the same command, repeated, completes it.
#pragma once

#include "sets/FileSet.h"
#include "sets/Search.h"

#include <string>
#include <vector>

class Report;

// What the command line names. An empty choice means all studies.
struct DeleteChoice {
  std::vector<std::string> studies, images;
  std::string series;

  Level GetLevel() const { return !images.empty() ? Level::IMAGE : !series.empty() ? Level::SERIES : Level::STUDY; }
};

// One call of the library: a study, a series, or images of one series.
struct DeleteRequest {
  Level level = Level::STUDY;
  std::string study, series;
  std::vector<std::string> images;
  std::size_t missing = 0;        // how many of the images have no record
  bool is_rest = false;           // names only what an interrupted delete left
  std::string folder;             // of a study or series of the private structure
  std::vector<std::string> files; // of the objects to delete; ListFiles adds those of a study or series
};

using DeleteRequests = std::vector<DeleteRequest>;

// 0, or -1 (reported) when the file-set can't be read. What isn't there is reported.
int FindDeleteRequests(DeleteChoice const& choice, FileSet& set, Report& report, DeleteRequests* requests);

// Finds out what a study or series holds.
void ListFiles(DeleteRequest& request, FileSet& set, Report& report);

// Reports what an interrupted delete left and the requests haven't mended.
void CheckRests(DeleteChoice const& choice, DeleteRequests const& requests, FileSet& set, Report& report);

std::string NameOf(DeleteRequest const& request);
