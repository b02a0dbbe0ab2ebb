#pragma once
#include <infra/Disk_Export.h>

#include <array>
#include <cstddef>
#include <cstdint>

/// The value representations, and what a reader or writer of elements asks about one.
//
/// A value is the two letters as they stand in a file, the first in the low byte: what a little-endian 16-bit
/// load gives is the VR, whether it is one we know or not. Every question is one load from a table of 1,024
/// entries.
//
//   auto vr = static_cast<Dicom_VR>(bytes[0] | bytes[1] << 8);
//   size_t header = Dicom_HasLongLength(vr) ? 12 : 8;

constexpr uint16_t Dicom_VRCode(char const (&name)[3]) {
  return static_cast<uint16_t>(static_cast<uint8_t>(name[0]) | static_cast<uint8_t>(name[1]) << 8);
}

enum class DISK_EXPORT Dicom_VR : uint16_t {
  None = 0, ///< no VR: items and delimiters, or not known yet
  AE = Dicom_VRCode("AE"),
  AS = Dicom_VRCode("AS"),
  AT = Dicom_VRCode("AT"),
  CS = Dicom_VRCode("CS"),
  DA = Dicom_VRCode("DA"),
  DS = Dicom_VRCode("DS"),
  DT = Dicom_VRCode("DT"),
  FD = Dicom_VRCode("FD"),
  FL = Dicom_VRCode("FL"),
  IS = Dicom_VRCode("IS"),
  LO = Dicom_VRCode("LO"),
  LT = Dicom_VRCode("LT"),
  OB = Dicom_VRCode("OB"),
  OD = Dicom_VRCode("OD"),
  OF = Dicom_VRCode("OF"),
  OL = Dicom_VRCode("OL"),
  OV = Dicom_VRCode("OV"),
  OW = Dicom_VRCode("OW"),
  PN = Dicom_VRCode("PN"),
  SH = Dicom_VRCode("SH"),
  SL = Dicom_VRCode("SL"),
  SQ = Dicom_VRCode("SQ"),
  SS = Dicom_VRCode("SS"),
  ST = Dicom_VRCode("ST"),
  SV = Dicom_VRCode("SV"),
  TM = Dicom_VRCode("TM"),
  UC = Dicom_VRCode("UC"),
  UI = Dicom_VRCode("UI"),
  UL = Dicom_VRCode("UL"),
  UN = Dicom_VRCode("UN"),
  UR = Dicom_VRCode("UR"),
  US = Dicom_VRCode("US"),
  UT = Dicom_VRCode("UT"),
  UV = Dicom_VRCode("UV"),

  /// Of the data dictionary only, never in a file: the reader of the data set decides from other elements.
  xs = Dicom_VRCode("xs"), ///< US or SS, by Pixel Representation
  lt = Dicom_VRCode("lt"), ///< US, SS or OW: lookup tables
  ox = Dicom_VRCode("ox"), ///< OB or OW
  px = Dicom_VRCode("px"), ///< OB or OW: Pixel Data
};

namespace Dicom_VRTable {

enum Flag : uint8_t {
  LongLength = 1, ///< 32-bit length after two reserved bytes
  Text = 2,
  MultiValue = 8, ///< text whose values a backslash separates
  Blank = 16,     ///< padded with a blank, not with NUL
};

struct DISK_EXPORT Traits {
  uint16_t code = 0;
  uint8_t unit_size = 1;
  uint8_t flags = 0;
};

constexpr uint8_t list_text = Text | MultiValue | Blank;
constexpr uint8_t one_text = Text | Blank;

inline constexpr Traits s_known[] = {
    {Dicom_VRCode("AE"), 1, list_text},
    {Dicom_VRCode("AS"), 1, list_text},
    {Dicom_VRCode("AT"), 2, 0},
    {Dicom_VRCode("CS"), 1, list_text},
    {Dicom_VRCode("DA"), 1, list_text},
    {Dicom_VRCode("DS"), 1, list_text},
    {Dicom_VRCode("DT"), 1, list_text},
    {Dicom_VRCode("FD"), 8, 0},
    {Dicom_VRCode("FL"), 4, 0},
    {Dicom_VRCode("IS"), 1, list_text},
    {Dicom_VRCode("LO"), 1, list_text},
    {Dicom_VRCode("LT"), 1, one_text},
    {Dicom_VRCode("OB"), 1, LongLength},
    {Dicom_VRCode("OD"), 8, LongLength},
    {Dicom_VRCode("OF"), 4, LongLength},
    {Dicom_VRCode("OL"), 4, LongLength},
    {Dicom_VRCode("OV"), 8, LongLength},
    {Dicom_VRCode("OW"), 2, LongLength},
    {Dicom_VRCode("PN"), 1, list_text},
    {Dicom_VRCode("SH"), 1, list_text},
    {Dicom_VRCode("SL"), 4, 0},
    {Dicom_VRCode("SQ"), 1, LongLength},
    {Dicom_VRCode("SS"), 2, 0},
    {Dicom_VRCode("ST"), 1, one_text},
    {Dicom_VRCode("SV"), 8, LongLength},
    {Dicom_VRCode("TM"), 1, list_text},
    {Dicom_VRCode("UC"), 1, list_text | LongLength},
    {Dicom_VRCode("UI"), 1, Text | MultiValue},
    {Dicom_VRCode("UL"), 4, 0},
    {Dicom_VRCode("UN"), 1, LongLength},
    {Dicom_VRCode("UR"), 1, one_text | LongLength},
    {Dicom_VRCode("US"), 2, 0},
    {Dicom_VRCode("UT"), 1, one_text | LongLength},
    {Dicom_VRCode("UV"), 8, LongLength},
};

constexpr bool IsUpper(unsigned c) { return c - 'A' < 26; }

constexpr size_t Slot(uint16_t code) { return (code & 31u) << 5 | (code >> 8 & 31u); }

constexpr std::array<Traits, 1024> Make() {
  std::array<Traits, 1024> table{};
  for (Traits const& traits : s_known)
    table[Slot(traits.code)] = traits;
  return table;
}

inline constexpr std::array<Traits, 1024> s_table = Make();

/// Unknown VRs, None and those of the dictionary only: bytes without structure.
constexpr Traits Of(Dicom_VR vr) {
  auto code = static_cast<uint16_t>(vr);
  Traits traits = s_table[Slot(code)];
  return traits.code == code ? traits : Traits{};
}

} // namespace Dicom_VRTable

/// One of the VRs that stand in files (so neither `None` nor `xs`, `lt`, `ox`, `px`).
constexpr bool Dicom_IsKnownVR(Dicom_VR vr) { return Dicom_VRTable::Of(vr).code != 0; }

/// In explicit VR the length has 32 bits and follows two reserved bytes. That holds for every VR still to be
/// invented, so also for unknown ones of two upper-case letters; anything else in the place of a VR has 16
/// bits.
constexpr bool Dicom_HasLongLength(Dicom_VR vr) {
  Dicom_VRTable::Traits traits = Dicom_VRTable::Of(vr);
  auto code = static_cast<uint16_t>(vr);
  if (traits.code == 0) return Dicom_VRTable::IsUpper(code & 255u) && Dicom_VRTable::IsUpper(code >> 8);
  return traits.flags & Dicom_VRTable::LongLength;
}

/// Bytes per unit that a change of byte order works on: 1, 2, 4 or 8 (AT: its two words).
constexpr size_t Dicom_UnitSize(Dicom_VR vr) { return Dicom_VRTable::Of(vr).unit_size; }

constexpr bool Dicom_IsText(Dicom_VR vr) { return Dicom_VRTable::Of(vr).flags & Dicom_VRTable::Text; }

/// Text in which a backslash separates values: all but LT ST UR UT.
constexpr bool Dicom_IsMultiValueText(Dicom_VR vr) { return Dicom_VRTable::Of(vr).flags & Dicom_VRTable::MultiValue; }

/// What makes an odd value even: a blank for text, NUL for UI and everything binary.
constexpr char Dicom_PadChar(Dicom_VR vr) { return Dicom_VRTable::Of(vr).flags & Dicom_VRTable::Blank ? ' ' : '\0'; }

/// The two letters and a closing NUL; for `None` "--".
constexpr void Dicom_VRName(Dicom_VR vr, char out[3]) {
  auto code = static_cast<uint16_t>(vr == Dicom_VR::None ? Dicom_VRCode("--") : static_cast<uint16_t>(vr));
  out[0] = static_cast<char>(code & 255u);
  out[1] = static_cast<char>(code >> 8);
  out[2] = '\0';
}
