// The files that a store is given: those named, and those in the folders named.
#pragma once

#include <string>
#include <vector>

class Report;

struct SourceFiles {
  std::vector<std::string> paths;
  std::vector<bool> from_folder; // of each: it wasn't named itself
};

// In the order in which they are named, a folder's by name. What can't be reached, a link to a folder inside
// a folder (which could lead round in circles), and what lies inside of the file-set is reported and left
// out.
SourceFiles FindSourceFiles(std::vector<std::string> const& sources, std::string const& file_set, Report& report);

// Whether a file that can't be read as an object, for this cause, is none and doesn't pretend to be: it has no DICM and
// doesn't begin as a data set does, or it is a DICOMDIR. A disc with images holds programs and a readme as well.
bool IsNoObject(std::string const& path, std::string const& cause);
