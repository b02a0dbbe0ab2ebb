#pragma once
#include "dicom/encoding/Dicom_Origin.h"

#include <dicom/Dicom_TransferSyntax.h>
#include <dicom/Dicom_VR.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

/// Reading of encoded data sets: the only code that walks over foreign bytes. Nothing here allocates by a length
/// that the bytes claim, passes their end, or recurses.

constexpr std::uint32_t kItemTag = 0xFFFEE000;
constexpr std::uint32_t kItemDelimiter = 0xFFFEE00D;
constexpr std::uint32_t kSequenceDelimiter = 0xFFFEE0DD;
constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFF;
constexpr std::uint32_t kPixelDataTag = 0x7FE00010;
constexpr std::uint32_t kCharacterSetTag = 0x00080005;
/// How the value of an element of unknown VR is encoded, whatever the file's syntax.
constexpr Dicom_Encoding kUnknownVREncoding{false, false};
/// Sequences nested deeper than this are refused.
constexpr int kMaximalDepth = 64;
/// Data sets with more elements at one level are refused: no object has them, and each takes memory.
constexpr std::size_t kMaximalElements = 1 << 20;

struct Dicom_RawElement {
  std::uint32_t tag = 0;
  Dicom_VR vr = Dicom_VR::None;
  bool undefined_length = false;
  char const* value = nullptr;
  std::size_t length = 0; // of the value; an undefined one up to its delimiter
  char const* next = nullptr;
};

/// Reads the element at `p`. False when the bytes up to `end` hold none; for bytes that were checked that doesn't
/// happen. `extents` are those of the check; without them a value of undefined length costs a walk over it.
bool Dicom_ReadElement(char const* p, char const* end, Dicom_Encoding encoding, Dicom_RawElement* element,
                       Dicom_Extents const* extents = nullptr);

/// Skips elements with numbers below `first` by their headers alone. Returns where it stopped; Dicom_ReadElement goes
/// on from there.
char const* Dicom_SkipElements(char const* p, char const* end, Dicom_Encoding encoding, std::uint32_t first);

struct Dicom_RawItem {
  char const* value = nullptr;
  std::size_t length = 0;
  char const* next = nullptr;
};
/// Reads the item at `p` of a sequence that ends at `end`; false at the end of the items.
bool Dicom_ReadItem(char const* p, char const* end, Dicom_Encoding encoding, Dicom_RawItem* item,
                    Dicom_Extents const* extents = nullptr);
/// Whether an element (0008,0005) of this form declares the character set: its bytes don't depend on the byte order,
/// and nothing is nested in it.
inline bool Dicom_MayDeclareCharacterSet(Dicom_VR vr, bool undefined_length) {
  return Dicom_UnitSize(vr) == 1 && vr != Dicom_VR::SQ && !undefined_length;
}
/// The VR that an element without its own is read by.
Dicom_VR Dicom_ImplicitVR(std::uint32_t tag, bool undefined_length);

struct Dicom_Check {
  bool ok = false;
  bool canonical = true;
  std::string error; // what is wrong and where, when not ok
  std::size_t length = 0;
  int depth = 1; // of nested data sets, the outermost counted
  bool nested_fragments = false;
  Dicom_Extents extents;
};
/// Walks over a whole data set, nested items included. The one thing behind the last element that passes is
/// padding of zeros, which `length` leaves out.
Dicom_Check Dicom_CheckDataSet(char const* begin, char const* end, Dicom_Encoding encoding);
/// The same for the items of a sequence; one of undefined length ends with its delimiter, which `length` leaves out.
/// `depth` levels of data sets are around it.
Dicom_Check Dicom_CheckItems(char const* begin, char const* end, bool undefined_length, Dicom_Encoding encoding,
                             int depth = 1);
/// The origin of what was checked; `buffer` is null when the bytes are a caller's.
std::shared_ptr<Dicom_Origin> Dicom_MakeOrigin(std::shared_ptr<Util_Buffer const> buffer,
                                               Dicom_TransferSyntax const& syntax, Dicom_Check check);

inline std::uint16_t Dicom_Load16(char const* p, bool big_endian) {
  auto const* b = reinterpret_cast<unsigned char const*>(p);
  return std::uint16_t(big_endian ? b[0] << 8 | b[1] : b[1] << 8 | b[0]);
}
inline std::uint32_t Dicom_Load32(char const* p, bool big_endian) {
  std::uint32_t const first = Dicom_Load16(p, big_endian), second = Dicom_Load16(p + 2, big_endian);
  return big_endian ? first << 16 | second : second << 16 | first;
}
inline std::uint32_t Dicom_LoadTag(char const* p, bool big_endian) {
  return std::uint32_t(Dicom_Load16(p, big_endian)) << 16 | Dicom_Load16(p + 2, big_endian);
}

inline void Dicom_Store16(char* p, std::uint16_t number, bool big_endian) {
  if (big_endian != (std::endian::native == std::endian::big)) number = std::uint16_t(number << 8 | number >> 8);
  std::memcpy(p, &number, sizeof number);
}
inline void Dicom_Store32(char* p, std::uint32_t number, bool big_endian) {
  auto const low = std::uint16_t(number), high = std::uint16_t(number >> 16);
  Dicom_Store16(p, big_endian ? high : low, big_endian);
  Dicom_Store16(p + 2, big_endian ? low : high, big_endian);
}
inline void Dicom_StoreTag(char* p, std::uint32_t tag, bool big_endian) {
  Dicom_Store16(p, std::uint16_t(tag >> 16), big_endian);
  Dicom_Store16(p + 2, std::uint16_t(tag), big_endian);
}
/// Writes the header of an item of `length` bytes: 8 bytes, in little endian order.
inline void Dicom_PutItemHeader(char* p, std::uint32_t length) {
  Dicom_StoreTag(p, kItemTag, false);
  Dicom_Store32(p + 4, length, false);
}
