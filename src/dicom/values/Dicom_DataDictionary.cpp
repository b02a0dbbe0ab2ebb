#include <dicom/Dicom_DataDictionary.h>

#include <algorithm>
#include <span>

namespace {

bool is_private(uint16_t group) { return group & 1; }

} // namespace

Dicom_DataDictionary::Entry const* Dicom_DataDictionary::Find(uint16_t group, uint16_t element) {
  if (is_private(group)) return nullptr;
  uint32_t tag = static_cast<uint32_t>(group) << 16 | element;
  Entry const* end = s_entries + s_entry_count;
  Entry const* entry = std::lower_bound(s_entries, end, tag, [](Entry const& e, uint32_t t) { return e.tag < t; });
  if (entry != end && entry->tag == tag) return entry;

  for (Range const& range : std::span(s_ranges, s_range_count)) {
    uint32_t first_group = range.entry.tag >> 16, first_element = range.entry.tag & 0xFFFF;
    if (first_group > group) break;
    if (group <= range.last >> 16 && element >= first_element && element <= (range.last & 0xFFFF) &&
        (group - first_group) % range.group_step == 0 && (element - first_element) % range.element_step == 0)
      return &range.entry;
  }
  return nullptr;
}

Dicom_DataDictionary::Entry const* Dicom_DataDictionary::FindKeyword(std::string_view keyword) {
  auto entry_at = [](uint16_t index) {
    return index < s_entry_count ? &s_entries[index] : &s_ranges[index - s_entry_count].entry;
  };
  uint16_t const* end = s_by_keyword + s_keyword_count;
  uint16_t const* found = std::lower_bound(
      s_by_keyword, end, keyword, [&](uint16_t index, std::string_view k) { return entry_at(index)->keyword < k; });
  if (found == end || entry_at(*found)->keyword != keyword) return nullptr;
  return entry_at(*found);
}

Dicom_VR Dicom_DataDictionary::VROf(uint16_t group, uint16_t element) {
  if (element == 0) return Dicom_VR::UL;
  if (is_private(group)) return element >= 0x10 && element <= 0xFF ? Dicom_VR::LO : Dicom_VR::UN;
  Entry const* entry = Find(group, element);
  return entry ? entry->vr : Dicom_VR::UN;
}
