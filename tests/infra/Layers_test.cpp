// Includes point one way: down the floors, never from the headers into the sources, and within a floor that has rooms
// from a room to those before it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <vector>

namespace {

using Names = std::vector<std::string>;

struct Floor {
  std::string name;
  Names rooms; // sub-folders of its sources, each of which may include those before it; none: it is flat
};
std::vector<Floor> const kFloors{
    {"infra", {}}, {"dicom", {"text", "values", "encoding", "datasets", "pixels", "files"}}, {"Disk", {}}};
constexpr int kMostSources = 30; // in a room

/// The floor's or room's place from below; -1 for an unknown one.
template <class List, class Name>
int PlaceOf(List const& list, Name is_it) {
  auto const found = std::find_if(list.begin(), list.end(), is_it);
  return found == list.end() ? -1 : int(found - list.begin());
}
int FloorOf(std::string const& name) {
  return PlaceOf(kFloors, [&](Floor const& floor) { return floor.name == name; });
}
int RoomOf(Floor const& floor, std::string const& name) {
  return PlaceOf(floor.rooms, [&](std::string const& room) { return room == name; });
}

/// The lines of a file that include something of ours; returns how many.
int CheckIncludes(std::filesystem::path const& path, int floor, int room, bool is_source) {
  std::regex const include("^\\s*#\\s*include\\s*([<\"])(?:(infra|dicom|Disk)/)?(?:(\\w+)/)?[^>\"]*[>\"]");
  std::ifstream file(path);
  std::smatch match;
  int lines = 0;
  for (std::string line; std::getline(file, line);) {
    if (!std::regex_search(line, match, include)) continue;
    std::string const what = path.string() + ": " + line;
    bool const is_private = match[1] == "\"";
    EXPECT_TRUE(!is_private || is_source) << what << " reaches into the sources";
    EXPECT_TRUE(!is_private || match[2].matched) << what << " doesn't begin with its floor";
    int const other = match[2].matched ? FloorOf(match[2]) : -1;
    if (other == -1) continue;
    ++lines;
    EXPECT_LE(other, floor) << what;
    if (is_private && other == floor) {
      EXPECT_LE(RoomOf(kFloors[std::size_t(floor)], match[3]), room) << what;
    }
  }
  return lines;
}

TEST(Layers, IncludesPointOneWay) {
  int lines = 0;
  std::map<std::string, int> sources;
  for (std::string const root : {"inc", "src"})
    for (Floor const& floor : kFloors) {
      auto const base = std::filesystem::path(DISK_SOURCE_DIR) / root / floor.name;
      for (auto const& entry : std::filesystem::recursive_directory_iterator(base)) {
        if (entry.is_directory()) continue;
        auto const folder = entry.path().parent_path();
        int const room = folder == base ? -1 : RoomOf(floor, folder.lexically_relative(base));
        bool const has_room = root == "src" && !floor.rooms.empty();
        EXPECT_EQ(room != -1, has_room) << entry.path() << " stands in the wrong folder";
        if (has_room) ++sources[folder];
        lines += CheckIncludes(entry.path(), FloorOf(floor.name), room, root == "src");
      }
    }
  EXPECT_GT(lines, 200);
  for (auto const& [room, count] : sources)
    EXPECT_LE(count, kMostSources) << room;
}

} // namespace
