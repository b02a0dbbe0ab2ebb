// Puts data sets together byte by byte, so that tests don't read with the code that wrote.
#pragma once

#include <algorithm>
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

  // A value given in little endian order, of units of `size` bytes.
  std::string Units(std::string value, std::size_t size) const {
    for (std::size_t i = 0; big_endian && i + size <= value.size(); i += size)
      std::reverse(value.begin() + static_cast<std::ptrdiff_t>(i),
                   value.begin() + static_cast<std::ptrdiff_t>(i + size));
    return value;
  }

  // An element of each VR, as a writer without peculiarities has them: ascending, even, of defined length.
  std::string AllVRs() const {
    using namespace std::string_literals;
    return Text(0x00080005, "CS", "ISO_IR 100") + Text(0x00080008, "CS", "ORIGINAL\\PRIMARY") +
           Text(0x00080018, "UI", "1.2.3") + Text(0x00080020, "DA", "20240229") +
           Text(0x0008002A, "DT", "20240229102030-0500") + Text(0x00080030, "TM", "102030.5") +
           Text(0x00080050, "SH", "ACC") + Text(0x00080054, "AE", "STORE") + Text(0x00080081, "ST", "A\\B") +
           Text(0x00080119, "UC", "LONG") + Text(0x00080120, "UR", "urn:x") + Text(0x00081030, "LO", "K\xF6pfe") +
           Sequence(0x00081115, Item(Text(0x00100020, "LO", "\xC4")) + Item("")) +
           Element(0x00081163, "FD", Units("\0\0\0\0\0\0\xF8\x3F"s, 8)) +
           Element(0x00089459, "FL", Units("\0\0\xC0\xBF"s, 4)) + Text(0x00090010, "LO", "OURS") +
           Element(0x00091001, "UN", "\x01\x02\x03\x04") + Text(0x00100010, "PN", "Buc^J\xE9r\xF4me") +
           Text(0x00101010, "AS", "042Y") + Text(0x00104000, "LT", "one\r\ntwo") +
           Element(0x00142210, "OB", "\x01\x02") + Element(0x00181638, "OF", Units("\x01\x02\x03\x04"s, 4)) +
           Element(0x00186020, "SL", Units("\xFE\xFF\xFF\xFF"s, 4)) +
           Element(0x00186050, "UL", Units("\x01\x02\x03\x04"s, 4)) + Element(0x00189219, "SS", Units("\xFE\xFF"s, 2)) +
           Text(0x00200013, "IS", "-12") + Text(0x00200032, "DS", "1.5\\-2e3\\0") +
           Element(0x00209165, "AT", Units("\x20\0\x13\0"s, 2)) + Element(0x00280010, "US", Units("\0\x02\x01\0"s, 2)) +
           Text(0x0040A160, "UT", "A\\B") + Element(0x00660022, "OD", Units("\x01\x02\x03\x04\x05\x06\x07\x08"s, 8)) +
           Element(0x00660040, "OL", Units("\x01\x02\x03\x04"s, 4)) +
           Element(0x00720081, "OV", Units("\x01\x02\x03\x04\x05\x06\x07\x08"s, 8)) +
           Element(0x00720082, "SV", Units("\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, 8)) +
           Element(0x00720083, "UV", Units("\x01\0\0\0\0\0\0\x80"s, 8)) + Element(0x00880140, "UI", "") +
           Element(0x00880906, "ST", "") + Element(0x7FE00010, "OW", Units("\x01\x02\x03\x04"s, 2));
  }

  // A file with this data set, whose syntax has this UID.
  static std::string File(std::string const& syntax, std::string const& data_set) {
    DataSetBytes const meta;
    std::string const uid = meta.Text(0x00020010, "UI", syntax);
    return std::string(128, '\0') + "DICM" + meta.Element(0x00020000, "UL", meta.Number(uid.size(), 4)) + uid +
           data_set;
  }
};
