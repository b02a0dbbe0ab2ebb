// Includes point one way: down the floors and, within a floor that has rooms, down the rooms; never from the headers
// into the sources.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>

/// Where sources stand, from below. Each may include what stands in its own folder and in those before it.
static std::string const kFolders[] = {"infra",          "dicom/text",    "dicom/values",     "dicom/encoding",
                                       "dicom/datasets", "dicom/pixels",  "dicom/files",      "Disk/files",
                                       "Disk/records",   "Disk/standard", "Disk/structure",   "Disk/check",
                                       "Disk/hierarchy", "Disk/query",    "Disk/maintenance", "Disk/cache"};

/// A floor has one folder of headers, which counts as its lowest. -1 for a folder that isn't told above.
static int PlaceOf(std::string const& folder, bool of_headers) {
  for (int i = 0; i < int(std::size(kFolders)); ++i)
    if (of_headers ? kFolders[i].starts_with(folder) : kFolders[i] == folder) return i;
  return -1;
}

TEST(Layers, IncludesPointOneWay) {
  std::regex const include("^\\s*#\\s*include\\s*([<\"])((?:infra|dicom|Disk)[\\w/]*)/\\w+\\.\\w+[>\"]");
  std::map<std::string, int> sources;
  int lines = 0;
  for (bool const is_header : {true, false}) {
    auto const base = std::filesystem::path(DISK_SOURCE_DIR) / (is_header ? "inc" : "src");
    for (auto const& entry : std::filesystem::recursive_directory_iterator(base)) {
      std::string const folder = entry.path().parent_path().lexically_relative(base);
      bool const is_room = folder.find('/') != std::string::npos;
      if (entry.is_directory() || PlaceOf(folder.substr(0, folder.find('/')), true) == -1) continue;
      int const place = PlaceOf(folder, is_header);
      EXPECT_NE(place, -1) << entry.path() << " stands in the wrong folder";
      EXPECT_TRUE(!is_room || ++sources[folder] <= 30) << folder << " has too many sources";
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
