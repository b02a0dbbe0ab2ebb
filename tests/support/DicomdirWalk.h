// Reads a standard DICOMDIR in explicit VR little endian, with nothing of the library: the items one after the other,
// and the records along their links.
#pragma once

#include "Files.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

class DicomdirWalk {
public:
  struct Record {
    std::uint32_t place = 0, next = 0, below = 0, in_use = 0, images = 0; // images: of a study or series
    std::map<std::uint32_t, std::string> values;                          // by tag; texts without padding
    std::vector<Record> children;
    std::string Text(std::uint32_t tag) const {
      auto const found = values.find(tag);
      return found == values.end() ? std::string() : found->second;
    }
    int Number(std::uint32_t tag) const { return std::atoi(Text(tag).c_str()); }
  };

  std::vector<Record> patients;
  std::vector<std::string> problems; // none in a file that is as it should be
  std::uint32_t begin = 0, end = 0;  // of the records

  explicit DicomdirWalk(std::string const& path) : bytes_(ReadFile(path)) {
    std::size_t at = 132;
    std::uint32_t first = 0, tag = 0, last = 0;
    for (std::string value; at + 8 <= bytes_.size() && Peek(at) != 0x00041220;) {
      if (!Element(at, tag, value)) break;
      if (tag == 0x00041200) first = Load(value, 0, 4);
      if (tag == 0x00041202) last = Load(value, 0, 4);
    }
    if (at + 12 <= bytes_.size())
      ReadItems(at, first, last);
    else
      Problem("no sequence of records");
  }
  // All records in use of a level: 0 patients, 1 studies, 2 series, 3 instances.
  std::vector<Record const*> Level(int level) const {
    std::vector<Record const*> found;
    std::function<void(std::vector<Record> const&, int)> const descend = [&](auto const& records, int depth) {
      for (Record const& record : records) {
        if (record.in_use == 0) continue;
        if (depth == level) found.push_back(&record);
        descend(record.children, depth + 1);
      }
    };
    descend(patients, 0);
    return found;
  }

  static std::uint32_t Load(std::string const& bytes, std::size_t at, int count) {
    std::uint32_t number = 0;
    for (int i = 0; i < count && at + std::size_t(i) < bytes.size(); ++i)
      number |= std::uint32_t(static_cast<unsigned char>(bytes[at + std::size_t(i)])) << 8 * i;
    return number;
  }

private:
  std::uint32_t Peek(std::size_t at) const { return Load(bytes_, at, 2) << 16 | Load(bytes_, at + 2, 2); }
  void Problem(std::string text) { problems.push_back(std::move(text)); }

  void ReadItems(std::size_t at, std::uint32_t first, std::uint32_t last) {
    begin = std::uint32_t(at + 12);
    end = begin + Load(bytes_, at + 8, 4);
    if (end != bytes_.size()) Problem("the file doesn't end with its records");
    for (std::size_t place = begin; place < end;) {
      if (place + 8 > end || Peek(place) != 0xFFFEE000) return Problem("a hole at " + std::to_string(place));
      std::uint32_t const length = Load(bytes_, place + 4, 4);
      if (place + 8 + length > end) return Problem("an item runs past the end");
      unreached_[std::uint32_t(place)] = length;
      place += 8 + length;
    }
    patients = Chain(first == begin && begin == end ? 0 : first, 0);
    if (!patients.empty() && patients.back().place != last) Problem("the last record isn't the last one's offset");
    for (auto const& [place, length] : unreached_)
      Problem("no link leads to " + std::to_string(place));
  }

  bool Element(std::size_t& at, std::uint32_t& tag, std::string& value) const {
    tag = Peek(at);
    std::string const vr = bytes_.substr(at + 4, 2);
    bool const is_long = vr == "OB" || vr == "SQ" || vr == "UN" || vr == "OW" || vr == "UT";
    std::uint32_t const length = is_long ? Load(bytes_, at + 8, 4) : Load(bytes_, at + 6, 2);
    std::size_t const start = at + (is_long ? 12 : 8);
    if (start + length > bytes_.size()) return false;
    value = bytes_.substr(start, length);
    if (!is_long && vr != "UL" && vr != "US")
      while (!value.empty() && (value.back() == ' ' || value.back() == '\0'))
        value.pop_back();
    at = start + length;
    return true;
  }

  std::vector<Record> Chain(std::uint32_t place, int level) {
    static char const* const types[] = {"PATIENT", "STUDY", "SERIES"};
    std::vector<Record> records;
    while (place != 0) {
      auto const item = unreached_.find(place);
      if (item == unreached_.end()) {
        Problem("a link leads to " + std::to_string(place) + ", where no record begins or one that was reached");
        break;
      }
      Record record;
      record.place = place;
      std::size_t at = place + 8;
      std::size_t const stop = at + item->second;
      unreached_.erase(item);
      std::uint32_t tag = 0;
      for (std::string value; at < stop && Element(at, tag, value);)
        record.values[tag] = value;
      if (at != stop) Problem("elements don't fill the item at " + std::to_string(place));
      record.next = Load(record.Text(0x00041400), 0, 4);
      record.in_use = Load(record.Text(0x00041410), 0, 2);
      record.below = Load(record.Text(0x00041420), 0, 4);
      if (level < 3 && record.Text(0x00041430) != types[level]) Problem("a record of another level");
      record.children = Chain(record.below, level + 1);
      for (Record const& child : record.children)
        record.images += child.in_use == 0 ? 0 : level == 2 ? 1 : child.images;
      bool const counts = record.in_use != 0 && (level == 1 || level == 2);
      if (counts && record.Number(level == 1 ? 0x00201208 : 0x00201209) != int(record.images))
        Problem("the images at " + std::to_string(record.place) + " are counted wrong");
      for (std::uint32_t const tag : {0x00041500u, 0x00041511u}) // a file, an object
        if (level == 3 && record.in_use != 0 && !named_.insert(record.Text(tag)).second)
          Problem("two records name " + record.Text(tag));
      place = record.next;
      records.push_back(std::move(record));
    }
    return records;
  }

  std::string bytes_;
  std::map<std::uint32_t, std::uint32_t> unreached_; // place and length of items
  std::set<std::string> named_;
};
