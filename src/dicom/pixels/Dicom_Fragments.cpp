#include "dicom/pixels/Dicom_Fragments.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <algorithm>

namespace {

constexpr Dicom_Encoding kLittleEndian{true, false};

using Places = std::vector<std::size_t>; // of items, counted from the first fragment

bool NextItem(std::string_view items, std::size_t place, Dicom_RawItem* item) {
  return items.size() - place >= 8 && Dicom_Load32(items.data() + place + 4, false) != kUndefinedLength &&
         Dicom_ReadItem(items.data() + place, items.data() + items.size(), kLittleEndian, item);
}

/// Where the items lie; empty when the bytes aren't items and nothing else.
Places FindItems(std::string_view items) {
  Places places;
  for (std::size_t place = 0; place < items.size();) {
    Dicom_RawItem item;
    if (!NextItem(items, place, &item)) return {};
    places.push_back(place);
    place = std::size_t(item.next - items.data());
  }
  return places;
}

/// The places that the offset table names; empty unless they are those of fragments, in ascending order.
Places TableStarts(std::string_view table, Places const& fragments) {
  Places starts;
  for (std::size_t i = 0; i + 4 <= table.size(); i += 4) {
    std::size_t const place = Dicom_Load32(table.data() + i, false);
    bool const ascends = starts.empty() ? place == 0 : place > starts.back();
    if (!ascends || !std::binary_search(fragments.begin(), fragments.end(), place)) return {};
    starts.push_back(place);
  }
  return starts;
}

/// The fragments that begin with a Start of Image marker: it can't stand inside a stream.
Places MarkerStarts(std::string_view items, Places const& fragments) {
  Places starts;
  for (std::size_t const place : fragments) {
    if (items.substr(place + 8).starts_with("\xFF\xD8\xFF")) starts.push_back(place);
  }
  return !starts.empty() && starts.front() == 0 ? starts : Places();
}

} // namespace

std::vector<std::string_view> Dicom_FindFrames(std::string_view items, std::uint64_t frames) {
  Dicom_RawItem table;
  if (!NextItem(items, 0, &table)) return {};
  items.remove_prefix(8 + table.length);
  Places starts = FindItems(items);
  if (frames == 0 || starts.size() < frames) return {};
  if (frames == 1) {
    starts.resize(1);
  } else if (starts.size() != frames) {
    Places const fragments = std::move(starts);
    starts = TableStarts({table.value, table.length}, fragments);
    if (starts.size() != frames) starts = MarkerStarts(items, fragments);
    if (starts.size() != frames) return {};
  }
  std::vector<std::string_view> found;
  starts.push_back(items.size());
  for (std::size_t i = 0; i + 1 < starts.size(); ++i)
    found.push_back(items.substr(starts[i], starts[i + 1] - starts[i]));
  return found;
}

std::string_view Dicom_FrameBytes(std::string_view frame, std::string& storage) {
  Dicom_RawItem item;
  if (!NextItem(frame, 0, &item)) return {};
  if (item.length + 8 == frame.size()) return {item.value, item.length};
  storage.clear();
  for (std::size_t place = 0; NextItem(frame, place, &item); place = std::size_t(item.next - frame.data()))
    storage.append(item.value, item.length);
  return storage;
}
