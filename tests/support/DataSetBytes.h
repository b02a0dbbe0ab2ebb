// Puts data sets together byte by byte, so that tests don't read with the code that wrote.
#pragma once

#include <cstdint>
#include <string>

struct DataSetBytes {
  bool explicit_vr = true;
  bool big_endian = false;

  static constexpr std::uint32_t undefined = 0xFFFFFFFF;

  std::string Number(std::uint64_t number, int bytes) const {
    std::string text;
    for (int i = 0; i < bytes; ++i)
      text += static_cast<char>(number >> 8 * (big_endian ? bytes - 1 - i : i));
    return text;
  }

  std::string Tag(std::uint32_t tag) const { return Number(tag >> 16, 2) + Number(tag & 0xFFFF, 2); }

  // The value as it stands, with a length field that may lie.
  std::string Claiming(std::uint32_t tag, std::string const& vr, std::uint32_t length,
                       std::string const& value = {}) const {
    if (!explicit_vr || tag >> 16 == 0xFFFE) return Tag(tag) + Number(length, 4) + value;
    bool const short_length =
        std::string("AE AS AT CS DA DS DT FD FL IS LO LT PN SH SL SS ST TM UI UL US \x01\x01").find(vr) !=
        std::string::npos;
    return Tag(tag) + vr + (short_length ? Number(length, 2) : std::string(2, '\0') + Number(length, 4)) + value;
  }
  std::string Element(std::uint32_t tag, std::string const& vr, std::string const& value = {}) const {
    return Claiming(tag, vr, static_cast<std::uint32_t>(value.size()), value);
  }
  std::string Text(std::uint32_t tag, std::string const& vr, std::string value) const {
    if (value.size() & 1) value += vr == "UI" ? '\0' : ' ';
    return Element(tag, vr, value);
  }

  std::string Item(std::string const& content) const { return Element(0xFFFEE000, "", content); }
  std::string OpenItem(std::string const& content) const {
    return Claiming(0xFFFEE000, "", undefined, content) + ItemEnd();
  }
  std::string ItemEnd() const { return Element(0xFFFEE00D, ""); }
  std::string SequenceEnd() const { return Element(0xFFFEE0DD, ""); }
  std::string Sequence(std::uint32_t tag, std::string const& items) const { return Element(tag, "SQ", items); }
  std::string OpenSequence(std::uint32_t tag, std::string const& items, std::string const& vr = "SQ") const {
    return Claiming(tag, vr, undefined, items) + SequenceEnd();
  }

  // A directory record, without the header of its item.
  std::string Record(std::uint32_t next, std::uint32_t below, std::string const& type,
                     std::string const& rest = {}) const {
    return Element(0x00041400, "UL", Number(next, 4)) + Element(0x00041410, "US", Number(0xFFFF, 2)) +
           Element(0x00041420, "UL", Number(below, 4)) + Text(0x00041430, "CS", type) + rest;
  }

  // Sequences within sequences; `depth` of them.
  std::string Nested(int depth, bool defined, std::string const& inner = {}) const {
    std::string front, back;
    std::uint32_t const step = explicit_vr ? 20 : 16;
    auto content = static_cast<std::uint32_t>(inner.size()) + step * static_cast<std::uint32_t>(depth);
    for (int i = 0; i < depth; ++i) {
      content -= step;
      front += Claiming(0x00081115, "SQ", defined ? content + 8 : undefined);
      front += Claiming(0xFFFEE000, "", defined ? content : undefined);
      if (!defined) back += ItemEnd() + SequenceEnd();
    }
    return front + inner + back;
  }

  // A file with this data set, whose syntax has this UID.
  static std::string File(std::string const& syntax, std::string const& data_set) {
    DataSetBytes const meta;
    std::string const uid = meta.Text(0x00020010, "UI", syntax);
    return std::string(128, '\0') + "DICM" + meta.Element(0x00020000, "UL", meta.Number(uid.size(), 4)) + uid +
           data_set;
  }
};
