#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Dicom_DataDictionary.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>

namespace {

struct Header {
  std::uint32_t tag;
  Dicom_VR vr;
  std::uint32_t length;
  char const* value;
};

bool IsDelimiterGroup(std::uint32_t tag) { return tag >> 16 == 0xFFFE; }

constexpr std::size_t kShortHeader = 8, kLongHeader = 12;

bool IsThisMachines(Dicom_Encoding encoding) {
  return encoding.explicit_vr && !encoding.big_endian && std::endian::native == std::endian::little;
}

/// The header that nearly all elements have: one load tells all of it. False for any other one, and for a delimiter.
inline bool ReadShortHeader(char const* p, Header* header) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof word);
  auto const vr = Dicom_VR(std::uint16_t(word >> 32));
  if (std::uint16_t(word) == 0xFFFE || Dicom_HasLongLength(vr)) return false;
  auto const tag = std::uint32_t(std::uint16_t(word)) << 16 | std::uint16_t(word >> 16);
  *header = {tag, vr, std::uint32_t(word >> 48), p + kShortHeader};
  return true;
}

/// The header of the element at `p`; false when fewer bytes are left than it takes.
bool ReadHeader(char const* p, char const* end, Dicom_Encoding encoding, Header* header) {
  std::size_t const left = std::size_t(end - p);
  if (left < kShortHeader) return false;
  if (IsThisMachines(encoding) && ReadShortHeader(p, header)) return true;
  header->tag = Dicom_LoadTag(p, encoding.big_endian);
  if (!encoding.explicit_vr || IsDelimiterGroup(header->tag)) {
    header->length = Dicom_Load32(p + 4, encoding.big_endian);
    header->value = p + kShortHeader;
    header->vr = Dicom_VR::None;
    return true;
  }
  header->vr = Dicom_VR(Dicom_Load16(p + 4, false));
  if (!Dicom_HasLongLength(header->vr)) {
    header->length = Dicom_Load16(p + 6, encoding.big_endian);
    header->value = p + kShortHeader;
    return true;
  }
  if (left < kLongHeader) return false;
  header->length = Dicom_Load32(p + 8, encoding.big_endian);
  header->value = p + kLongHeader;
  return true;
}

bool IsFragments(Header const& header) {
  return header.length == kUndefinedLength && (header.vr == Dicom_VR::OB || header.vr == Dicom_VR::OW);
}

/// Walks over fragments from the offset table's item on; null unless they end in a delimiter before `end`.
char const* SkipFragments(char const* p, char const* end, bool big_endian) {
  while (end - p >= 8) {
    std::uint32_t const tag = Dicom_LoadTag(p, big_endian), length = Dicom_Load32(p + 4, big_endian);
    p += 8;
    if (tag == kSequenceDelimiter) return p;
    if (tag != kItemTag || length > std::size_t(end - p)) return nullptr;
    p += length;
  }
  return nullptr;
}

char const* FindExtent(Dicom_Extents const* extents, char const* value) {
  if (!extents) return nullptr;
  auto const starts_before = [](Dicom_Extent const& extent, char const* p) { return extent.value < p; };
  auto const found = std::lower_bound(extents->begin(), extents->end(), value, starts_before);
  return found != extents->end() && found->value == value ? found->end : nullptr;
}

/// The walk that checks. Each level is a data set or the items of a sequence; the stack of levels has a limit.
class Checker {
public:
  Checker(char const* begin, char const* end, Dicom_Encoding encoding)
      : begin_(begin), end_(end), encoding_(encoding) {}

  Dicom_Check DataSet() { return run({end_, false, false, &encoding_}); }
  Dicom_Check Items(bool undefined_length, int depth) {
    limit_ = 2 * (kMaximalDepth - depth) + 2;
    return run({end_, undefined_length, true, &encoding_});
  }

private:
  struct Level {
    Level() noexcept {} // left as it is: the stack has room for many, and few are reached
    Level(char const* to, bool of_undefined_length, bool of_items, Dicom_Encoding const* encoded) noexcept
        : end(to), undefined(of_undefined_length), items(of_items), encoding(encoded), extent(0), last_tag(0),
          count(0) {}

    char const* end;
    bool undefined;
    bool items; // the items of a sequence, not the elements of a data set
    Dicom_Encoding const* encoding;
    std::size_t extent; // where its end is to be noted
    std::uint32_t last_tag;
    std::size_t count;
  };

  Dicom_Check run(Level const& first) {
    p_ = begin_;
    push(first, 0);
    while (depth_ > 0 && result_.error.empty()) {
      Level& level = levels_[std::size_t(depth_ - 1)];
      if (!level.undefined && p_ == level.end) {
        --depth_;
        continue;
      }
      if (level.items) {
        item(level);
        continue;
      }
      plain_elements(level);
      if (level.undefined || p_ != level.end) element(level);
    }
    result_.ok = result_.error.empty();
    result_.length = std::size_t(p_ - begin_) - trailer_;
    return std::move(result_);
  }

  /// Goes past the elements that `element` would find nothing about, as far as the next one that needs its look.
  void plain_elements(Level& level) {
    if (!IsThisMachines(*level.encoding)) return;
    Header header{};
    for (; std::size_t(level.end - p_) >= kShortHeader && ReadShortHeader(p_, &header);
         p_ = header.value + header.length) {
      bool const in_order = header.tag > level.last_tag && (header.tag & 0xFFFF) != 0 && (header.length & 1) == 0;
      if (!in_order || header.length > std::size_t(level.end - header.value)) return;
      if (level.count == kMaximalElements) return;
      level.last_tag = header.tag;
      ++level.count;
    }
  }

  void element(Level& level) {
    Header header{};
    if (!ReadHeader(p_, level.end, *level.encoding, &header)) {
      return is_padding() ? pad() : fail("a data set ends inside an element's header", 0);
    }
    if (IsDelimiterGroup(header.tag)) return delimiter(level, header);
    if (header.tag == 0 && is_padding()) return pad();
    if (++level.count > kMaximalElements) return fail("a data set of too many elements", header.tag);
    if (header.tag <= level.last_tag && level.count > 1) result_.canonical = false;
    level.last_tag = header.tag;
    if ((header.tag & 0xFFFF) == 0) result_.canonical = false; // a group length
    if (!level.encoding->explicit_vr) header.vr = Dicom_ImplicitVR(header.tag, header.length == kUndefinedLength);
    p_ = header.value;
    if (IsFragments(header)) return fragments(level, header.tag);
    if (header.length == kUndefinedLength) {
      if (header.vr == Dicom_VR::SQ) return push({level.end, true, true, level.encoding}, header.tag);
      if (header.vr == Dicom_VR::UN) return push({level.end, true, true, &kUnknownVREncoding}, header.tag);
      return fail("an undefined length where the VR allows none, in", header.tag);
    }
    if (header.length > std::size_t(level.end - p_)) return too_long(header.tag, header.length, level.end);
    if (header.length & 1) result_.canonical = false;
    if (header.vr == Dicom_VR::SQ) return push({p_ + header.length, false, true, level.encoding}, header.tag);
    p_ += header.length;
  }

  void fragments(Level const& level, std::uint32_t tag) {
    if (level.encoding->big_endian) return fail("fragments in a big endian data set, in", tag);
    char const* const next = SkipFragments(p_, level.end, false);
    if (!next) return fail("fragments that don't end in a delimiter, in", tag);
    result_.nested_fragments |= depth_ > 1;
    p_ = next;
  }

  void delimiter(Level& level, Header const& header) {
    if (header.tag != kItemDelimiter) return fail("an item or delimiter among elements,", header.tag);
    if (header.length != 0 || !level.undefined) result_.canonical = false;
    if (level.undefined) pop();
    p_ = header.value;
  }

  void item(Level& level) {
    if (level.end - p_ < 8) return fail("a sequence ends inside an item's header", 0);
    std::uint32_t const tag = Dicom_LoadTag(p_, level.encoding->big_endian);
    std::uint32_t const length = Dicom_Load32(p_ + 4, level.encoding->big_endian);
    if (tag == kSequenceDelimiter) {
      if (length != 0 || !level.undefined) result_.canonical = false;
      if (level.undefined) pop();
      if (depth_ == 0) trailer_ = 8;
      p_ += 8;
      return;
    }
    if (tag != kItemTag) return fail("no item where one is due, but", tag);
    p_ += 8;
    if (length == kUndefinedLength) return push({level.end, true, false, level.encoding}, tag);
    if (length <= std::size_t(level.end - p_)) {
      if (length & 1) result_.canonical = false;
      return push({p_ + length, false, false, level.encoding}, tag);
    }
    if (level.undefined) return too_long(tag, length, level.end);
    // an item ends where its sequence says, whatever it claims itself
    result_.canonical = false;
    result_.extents.push_back({p_, level.end});
    push({level.end, false, false, level.encoding}, tag);
  }

  void push(Level const& level, std::uint32_t tag) {
    if (depth_ == limit_) return fail("nesting too deep,", tag);
    levels_[std::size_t(depth_)] = level;
    if (level.undefined) {
      levels_[std::size_t(depth_)].extent = result_.extents.size();
      result_.extents.push_back({p_, nullptr});
    }
    ++depth_;
    if (!level.items) result_.depth = std::max(result_.depth, (depth_ + 1) / 2);
  }

  /// Ends a level of undefined length; its delimiter is at `p_`.
  void pop() { result_.extents[levels_[std::size_t(--depth_)].extent].end = p_; }

  /// Only zeros are left of the whole data set. They are counted once.
  bool is_padding() {
    if (depth_ != 1) return false;
    if (!padding_) {
      padding_ = end_;
      while (padding_ > begin_ && padding_[-1] == 0)
        --padding_;
    }
    return p_ >= padding_;
  }

  void pad() {
    result_.canonical = false;
    depth_ = 0;
  }

  void fail(char const* what, std::uint32_t tag) {
    char text[160];
    std::snprintf(text, sizeof text, "%s (%04x,%04x) at offset %zu", what, tag >> 16, tag & 0xFFFF,
                  std::size_t(p_ - begin_));
    result_.error = text;
  }

  void too_long(std::uint32_t tag, std::uint32_t length, char const* end) {
    char text[160];
    std::snprintf(text, sizeof text, "(%04x,%04x) at offset %zu claims %u bytes, but %zu are left", tag >> 16,
                  tag & 0xFFFF, std::size_t(p_ - begin_), length, std::size_t(end - p_));
    result_.error = text;
  }

  char const* begin_;
  char const* end_;
  char const* p_ = nullptr;
  Dicom_Encoding encoding_;
  char const* padding_ = nullptr; // once it was asked for: the zeros that the data set ends with
  std::size_t trailer_ = 0;
  int depth_ = 0;
  int limit_ = kMaximalLevels;
  Dicom_Check result_;
  static constexpr int kMaximalLevels = 2 * kMaximalDepth + 1; // a sequence and its item take one each
  std::array<Level, kMaximalLevels> levels_;
};

} // namespace

/// In implicit VR the dictionary tells the VR, and an undefined length tells a sequence that it doesn't know.
Dicom_VR Dicom_ImplicitVR(std::uint32_t tag, bool undefined_length) {
  if (undefined_length) return tag == kPixelDataTag ? Dicom_VR::OB : Dicom_VR::SQ;
  Dicom_VR const vr = Dicom_DataDictionary::VROf(std::uint16_t(tag >> 16), std::uint16_t(tag));
  switch (vr) {
  case Dicom_VR::xs:
    return Dicom_VR::US; // SS where the message's Pixel Representation says so
  case Dicom_VR::ox:
  case Dicom_VR::px:
  case Dicom_VR::lt:
    return Dicom_VR::OW;
  default:
    return vr;
  }
}

bool Dicom_ReadElement(char const* p, char const* end, Dicom_Encoding encoding, Dicom_RawElement* element,
                       Dicom_Extents const* extents) {
  Header header{};
  if (!ReadHeader(p, end, encoding, &header)) return false;
  bool const delimiter = IsDelimiterGroup(header.tag), undefined = !delimiter && header.length == kUndefinedLength;
  if (!encoding.explicit_vr && !delimiter) header.vr = Dicom_ImplicitVR(header.tag, undefined);
  *element = {header.tag, header.vr, undefined, header.value, delimiter ? 0 : header.length, nullptr};
  if (!undefined) {
    if (element->length > std::size_t(end - header.value)) return false;
    element->next = header.value + element->length;
    return true;
  }
  char const* delimiter_place = nullptr;
  if (IsFragments(header)) {
    char const* const next = SkipFragments(header.value, end, encoding.big_endian);
    if (next) delimiter_place = next - 8;
  } else if (char const* const known = FindExtent(extents, header.value)) {
    delimiter_place = known;
  } else {
    Dicom_Encoding const inner = header.vr == Dicom_VR::UN ? kUnknownVREncoding : encoding;
    Dicom_Check const check = Dicom_CheckItems(header.value, end, true, inner);
    if (check.ok) delimiter_place = header.value + check.length;
  }
  if (!delimiter_place) return false;
  element->length = std::size_t(delimiter_place - header.value);
  element->next = delimiter_place + 8;
  return true;
}

char const* Dicom_SkipElements(char const* p, char const* end, Dicom_Encoding encoding, std::uint32_t first) {
  if (!encoding.explicit_vr || encoding.big_endian) return p;
  while (std::size_t(end - p) >= kLongHeader && Dicom_LoadTag(p, false) < first) {
    bool const is_long = Dicom_HasLongLength(Dicom_VR(Dicom_Load16(p + 4, false)));
    std::uint32_t const length = is_long ? Dicom_Load32(p + 8, false) : Dicom_Load16(p + 6, false);
    char const* const value = p + (is_long ? kLongHeader : kShortHeader);
    if (length == kUndefinedLength || length > std::size_t(end - value)) break;
    p = value + length;
  }
  return p;
}

bool Dicom_ReadItem(char const* p, char const* end, Dicom_Encoding encoding, Dicom_RawItem* item,
                    Dicom_Extents const* extents) {
  while (end - p >= 8 && Dicom_LoadTag(p, encoding.big_endian) == kSequenceDelimiter)
    p += 8; // a stray one
  if (end - p < 8 || Dicom_LoadTag(p, encoding.big_endian) != kItemTag) return false;
  std::uint32_t const length = Dicom_Load32(p + 4, encoding.big_endian);
  item->value = p + 8;
  if (length != kUndefinedLength && length <= std::size_t(end - item->value)) {
    item->length = length;
    item->next = item->value + length;
    return true;
  }
  char const* place = FindExtent(extents, item->value);
  if (length != kUndefinedLength) {
    if (!place) return false;
    item->next = place;
  } else {
    Dicom_RawElement element;
    for (char const* q = item->value; !place; q = element.next) {
      if (!Dicom_ReadElement(q, end, encoding, &element, extents)) return false;
      if (element.tag == kItemDelimiter) place = q;
    }
    item->next = place + 8;
  }
  item->length = std::size_t(place - item->value);
  return true;
}

Dicom_Check Dicom_CheckDataSet(char const* begin, char const* end, Dicom_Encoding encoding) {
  return Checker(begin, end, encoding).DataSet();
}

Dicom_Check Dicom_CheckItems(char const* begin, char const* end, bool undefined_length, Dicom_Encoding encoding,
                             int depth) {
  return Checker(begin, end, encoding).Items(undefined_length, depth);
}

std::shared_ptr<Dicom_Origin> Dicom_MakeOrigin(std::shared_ptr<Util_Buffer const> buffer,
                                               Dicom_TransferSyntax const& syntax, Dicom_Check check) {
  auto origin = std::make_shared<Dicom_Origin>();
  origin->buffer = std::move(buffer);
  origin->encoding = {syntax.IsExplicitVR(), syntax.IsBigEndian()};
  origin->syntax_uid = syntax.GetUID().View();
  origin->canonical = check.canonical;
  origin->depth = check.depth;
  origin->nested_fragments = check.nested_fragments;
  if (!check.extents.empty()) origin->extents = std::make_shared<Dicom_Extents const>(std::move(check.extents));
  return origin;
}
