// Keeps pieces of a file by their offset. A later piece replaces what it overlaps, and all can be laid over bytes that
// were read from the file.
#include "Disk/standard/Disk_Extents.h"

#include <algorithm>
#include <cstring>

Disk_Extents::Map::const_iterator Disk_Extents::at(std::uint64_t offset) const {
  auto const next = extents_.upper_bound(offset);
  if (next == extents_.begin()) return next;
  auto const before = std::prev(next);
  return end_of(*before) >= offset ? before : next;
}

void Disk_Extents::Add(std::uint32_t offset, std::string_view bytes) {
  if (bytes.empty()) return;
  auto place = extents_.erase(at(offset), at(offset)); // makes it one that may be changed
  if (place == extents_.end() || place->first > offset) place = extents_.emplace_hint(place, offset, std::string());
  std::string& own = place->second;
  std::size_t const from = offset - place->first;
  own.resize(std::max(own.size(), from + bytes.size()));
  std::memcpy(own.data() + from, bytes.data(), bytes.size());
  for (auto next = std::next(place); next != extents_.end() && next->first <= end_of(*place);
       next = extents_.erase(next))
    if (end_of(*next) > end_of(*place)) own.append(next->second, end_of(*place) - next->first);
}

bool Disk_Extents::Cover(std::uint32_t offset, std::uint32_t size) const {
  auto const place = at(offset);
  return place != extents_.end() && place->first <= offset && end_of(*place) >= std::uint64_t(offset) + size;
}

void Disk_Extents::LayOver(char* data, std::uint32_t size, std::uint32_t offset, long* count) const {
  std::uint64_t const end = std::uint64_t(offset) + size;
  for (auto place = at(offset); place != extents_.end() && place->first < end; ++place) {
    std::uint64_t const from = std::max<std::uint64_t>(place->first, offset), to = std::min(end_of(*place), end);
    if (from >= to || from > offset + std::uint64_t(*count)) continue; // a gap stands for the end of the file
    std::memcpy(data + (from - offset), place->second.data() + (from - place->first), std::size_t(to - from));
    *count = std::max(*count, long(to - offset));
  }
}
