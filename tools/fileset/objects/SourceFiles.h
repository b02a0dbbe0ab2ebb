// The files that a store is given: those named, and those in the folders named.
#pragma once

#include <string>
#include <vector>

class Report;

struct SourceFiles {
  std::vector<std::string> paths;
  std::vector<bool> from_folder; // for each path: whether it was found in a folder
};

// Lists the files in the order of `sources`, and those of a folder by name. It reports and leaves out what can't be
// read, what lies inside the file-set, and a link to a folder inside a folder, which could lead round in circles.
SourceFiles FindSourceFiles(std::vector<std::string> const& sources, std::string const& file_set, Report& report);

// Whether a file that couldn't be read as an object, for this cause, isn't meant to be one. That is so if it is a
// DICOMDIR, or has no DICM and doesn't begin like a data set. A disc with images holds programs and a readme as well.
bool IsNoObject(std::string const& path, std::string const& cause);
