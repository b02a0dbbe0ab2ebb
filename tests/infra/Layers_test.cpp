// Includes point down the floors only, and never from the headers into the sources.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>

TEST(Layers, IncludesPointDownOnly) {
  std::map<std::string, int> const floors{{"infra", 1}, {"dicom", 2}, {"Disk", 3}};
  std::regex const include("^\\s*#\\s*include\\s*[<\"](infra|dicom|Disk)/[^>\"]*[>\"]");
  int lines = 0;
  for (char const* root : {"inc", "src"})
    for (auto const& [floor, height] : floors)
      for (auto const& entry :
           std::filesystem::directory_iterator(std::string(DISK_SOURCE_DIR "/") + root + "/" + floor)) {
        std::ifstream file(entry.path());
        std::smatch match;
        for (std::string line; std::getline(file, line);) {
          if (!std::regex_search(line, match, include)) continue;
          ++lines;
          EXPECT_LE(floors.at(match[1]), height) << entry.path() << ": " << line;
          bool const own_header = line.find('"') == std::string::npos;
          EXPECT_TRUE(own_header || root == std::string("src"))
              << entry.path() << " reaches into the sources: " << line;
        }
      }
  EXPECT_GT(lines, 200);
}
