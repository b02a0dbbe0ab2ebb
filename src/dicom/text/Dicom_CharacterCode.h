#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// The coded character sets that a Specific Character Set can name, and conversion of a piece of text in one
// of them. Dicom_CharacterSet puts the pieces together.
enum class Dicom_CharacterCode : uint8_t {
  Ascii,
  Latin1,
  Latin2,
  Latin3,
  Latin4,
  Cyrillic,
  Arabic,
  Greek,
  Hebrew,
  Latin5,
  Latin9,
  Thai,
  JisX0201,
  JisX0208,
  JisX0212,
  KsX1001,
  Gb2312,
  Utf8,
  Gb18030,
  Gbk,
};

struct Dicom_CharacterCodeInfo {
  // How a code stands in text: Above7F beside ASCII (ISO 2022's G1), Below80 instead of ASCII (a two-byte set
  // in G0), Alone without escapes.
  enum class Place : uint8_t { Ascii, Above7F, Below80, Alone };

  std::string_view number; // of the defined term: "100"; for the codes that stand alone the term itself
  Place place;
  bool multi_byte;
  char const* escape;  // that designates it; null for those that stand alone
  char const* decoder; // iconv's names; null where iconv isn't needed
  char const* encoder;
};

Dicom_CharacterCodeInfo const& Dicom_InfoOf(Dicom_CharacterCode code);

// The codes in the order of the enumeration.
std::span<Dicom_CharacterCodeInfo const> Dicom_AllCharacterCodes();

// Length of the well-formed UTF-8 character at the front; 0 when there is none.
size_t Dicom_Utf8Length(std::string_view text);

// Appends bytes of one code as UTF-8. Of a code in place Below80 bytes below 80 are expected. What can't be
// decoded is appended as Latin-1 or as U+FFFD.
void Dicom_Decode(Dicom_CharacterCode code, std::string_view bytes, bool latin1, std::string& utf8);

// Appends one character, which isn't ASCII, as it stands after the code's escape. False when the code doesn't
// have it.
bool Dicom_EncodeCharacter(Dicom_CharacterCode code, std::string_view character, std::string& bytes);

// Appends all text in a code that is Above7F with single bytes, or Alone. False when a character isn't in it.
bool Dicom_EncodeText(Dicom_CharacterCode code, std::string_view utf8, std::string& bytes);
