// Includes point one way: down the floors and, within a floor that has rooms, down the rooms; never from the headers
// into the sources.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <vector>

/// Where sources stand, from below, as the tour has them: a line for each floor, its rooms behind it. Each may include
/// what stands in its own folder and in those before it.
static std::vector<std::string> const kFolders = [] {
  std::ifstream in(DISK_SOURCE_DIR "/docs/tour.md");
  std::vector<std::string> folders;
  std::string line, floor, room;
  while (std::getline(in, line) && line != "```text")
    continue;
  while (std::getline(in, line) && line != "```") {
    std::istringstream words(line);
    words >> floor;
    if (!(words >> room)) folders.push_back(floor);
    for (; words; words >> room)
      folders.push_back(floor == "fileset" ? room : floor + "/" + room); // a program names its rooms alone
  }
  return folders;
}();

/// A floor has one folder of headers, which counts as its lowest. -1 for a folder that isn't told above.
static int PlaceOf(std::string const& folder, bool of_headers) {
  for (int i = 0; i < int(kFolders.size()); ++i)
    if (of_headers ? kFolders[std::size_t(i)].starts_with(folder) : kFolders[std::size_t(i)] == folder) return i;
  return -1;
}

TEST(Layers, IncludesPointOneWay) {
  std::string const folders = "(?:infra|dicom|Disk|program|output|sets|objects|commands)[\\w/]*";
  std::regex const include("^\\s*#\\s*include\\s*([<\"])(" + folders + ")/\\w+\\.\\w+[>\"]");
  std::map<std::string, int> sources;
  int lines = 0;
  for (std::string const root : {"inc", "src", "tools/fileset"}) {
    auto const base = std::filesystem::path(DISK_SOURCE_DIR) / root;
    bool const is_header = root == "inc";
    for (auto const& entry : std::filesystem::recursive_directory_iterator(base)) {
      std::string const folder = entry.path().parent_path().lexically_relative(base);
      if (entry.is_directory() || PlaceOf(folder.substr(0, folder.find('/')), true) == -1) continue;
      int const place = PlaceOf(folder, is_header);
      EXPECT_NE(place, -1) << entry.path() << " stands in the wrong folder";
      EXPECT_TRUE(is_header || ++sources[folder] <= 30) << folder << " has too many sources";
      std::ifstream file(entry.path());
      std::smatch match;
      for (std::string line; std::getline(file, line);) {
        if (!std::regex_search(line, match, include)) continue;
        ++lines;
        bool const of_header = match[1] == "<";
        int const other = PlaceOf(match[2], of_header);
        EXPECT_TRUE(other != -1 && other <= place && (of_header || !is_header)) << entry.path() << ": " << line;
      }
    }
  }
  EXPECT_GT(lines, 200);
}
