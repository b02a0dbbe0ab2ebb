// The files that a store is given: those named, and those in the folders named.
#pragma once

#include <string>
#include <vector>

class Report;

// In the order in which they are named, a folder's by name. What can't be reached, a link to a folder inside
// a folder (which could lead round in circles), and what lies inside of the file-set is reported and left
// out.
std::vector<std::string> FindSourceFiles(std::vector<std::string> const& sources, std::string const& file_set,
                                         Report& report);
