#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <dicom/Dicom_VR.h>
#include <infra/Disk_Export.h>

/// What the DICOM standard says about a tag: its VR and its keyword.
//
/// The tables are made at build time from the dictionary file of the DCMTK package (src/dictionary) and are
/// constants: nothing is set up at run time and every function may be called from any thread. A search takes
/// O(log n) of about 5,000 entries. Private elements aren't listed, whoever made them.
class DISK_EXPORT Dicom_DataDictionary {
public:
  struct Entry {
    uint32_t tag;        // group << 16 | element; of a repeating group the lowest
    Dicom_VR vr;         // may be `xs`, `lt`, `ox` or `px`; `None` for items and delimiters
    uint8_t vm_min;      // least number of values
    uint8_t vm_max;      // largest number of values; 0: no limit
    char const* keyword; // "PatientName"; also for retired attributes without any prefix
  };

  /// The entry of a tag, those of repeating groups (60xx and the like) included. Null for private and unknown
  /// tags.
  static Entry const* Find(uint16_t group, uint16_t element);

  /// The entry with that keyword, in exactly that spelling. Null when there is none.
  static Entry const* FindKeyword(std::string_view keyword);

  /// The VR for an element that doesn't carry its own: that of the entry; UL for group lengths (gggg,0000); LO
  /// for private creators; UN for the rest. `xs`, `lt`, `ox` and `px` are left to the caller.
  static Dicom_VR VROf(uint16_t group, uint16_t element);

private:
  // An entry for several groups or elements: each goes in steps of 1 or 2 from the entry's tag to `last`.
  struct Range {
    Entry entry;
    uint32_t last;
    uint8_t group_step, element_step;
  };

  static Entry const s_entries[]; // ascending tags
  static size_t const s_entry_count;
  static Range const s_ranges[]; // ascending first groups
  static size_t const s_range_count;
  static uint16_t const s_by_keyword[]; // into s_entries followed by s_ranges, ascending keywords
  static size_t const s_keyword_count;
};
