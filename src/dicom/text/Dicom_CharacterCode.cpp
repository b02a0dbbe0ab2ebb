#include "dicom/text/Dicom_CharacterCode.h"

#include <algorithm>
#include <array>
#include <iconv.h>
#include <iterator>

namespace {

using Code = Dicom_CharacterCode;
using Info = Dicom_CharacterCodeInfo;
using Place = Info::Place;

// ISO-8859-11 is TIS 620 with a no-break space; UHC is KS X 1001 with the syllables that it lacks, which have
// other bytes. CP932 is Shift-JIS, which holds JIS X 0201. EUC-JP holds all Japanese codes, each marked.
constexpr Info s_codes[] = {
    {"6", Place::Ascii, false, "\x1b(B", nullptr, nullptr},
    {"100", Place::Above7F, false, "\x1b-A", "ISO-8859-1", "ISO-8859-1"},
    {"101", Place::Above7F, false, "\x1b-B", "ISO-8859-2", "ISO-8859-2"},
    {"109", Place::Above7F, false, "\x1b-C", "ISO-8859-3", "ISO-8859-3"},
    {"110", Place::Above7F, false, "\x1b-D", "ISO-8859-4", "ISO-8859-4"},
    {"144", Place::Above7F, false, "\x1b-L", "ISO-8859-5", "ISO-8859-5"},
    {"127", Place::Above7F, false, "\x1b-G", "ISO-8859-6", "ISO-8859-6"},
    {"126", Place::Above7F, false, "\x1b-F", "ISO-8859-7", "ISO-8859-7"},
    {"138", Place::Above7F, false, "\x1b-H", "ISO-8859-8", "ISO-8859-8"},
    {"148", Place::Above7F, false, "\x1b-M", "ISO-8859-9", "ISO-8859-9"},
    {"203", Place::Above7F, false, "\x1b-b", "ISO-8859-15", "ISO-8859-15"},
    {"166", Place::Above7F, false, "\x1b-T", "ISO-8859-11", "ISO-8859-11"},
    {"13", Place::Above7F, true, "\x1b)I", "CP932", "EUC-JP"},
    {"87", Place::Below80, true, "\x1b$B", "EUC-JP", "EUC-JP"},
    {"159", Place::Below80, true, "\x1b$(D", "EUC-JP", "EUC-JP"},
    {"149", Place::Above7F, true, "\x1b$)C", "UHC", "UHC"},
    {"58", Place::Above7F, true, "\x1b$)A", "EUC-CN", "EUC-CN"},
    {"192", Place::Alone, true, nullptr, nullptr, nullptr},
    {"GB18030", Place::Alone, true, nullptr, "GB18030", "GB18030"},
    {"GBK", Place::Alone, true, nullptr, "GBK", "GBK"},
};
constexpr size_t s_code_count = std::size(s_codes);
static_assert(s_code_count == static_cast<size_t>(Code::Gbk) + 1);

class Converter {
public:
  Converter() = default;
  Converter(Converter const&) = delete;
  Converter& operator=(Converter const&) = delete;
  ~Converter() {
    if (usable()) iconv_close(handle_);
  }

  // Converts as much of the text as it can and appends the result. Returns how many bytes it took: less than
  // all before something that it can't convert, 0 also when the C library lacks the conversion.
  size_t Convert(char const* to, char const* from, std::string_view text, std::string& out) {
    if (!opened_) {
      handle_ = iconv_open(to, from);
      opened_ = true;
    }
    if (!usable()) return 0;
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    char* in = const_cast<char*>(text.data());
    size_t left = text.size();
    for (;;) {
      char buffer[1024];
      char* end = buffer;
      size_t room = sizeof buffer;
      bool done = iconv(handle_, &in, &left, &end, &room) != static_cast<size_t>(-1);
      out.append(buffer, end);
      if (done || end == buffer) return text.size() - left;
    }
  }

private:
  bool usable() const { return opened_ && reinterpret_cast<intptr_t>(handle_) != -1; }

  iconv_t handle_{};
  bool opened_ = false;
};

size_t index_of(Code code) { return static_cast<size_t>(code); }

// A converter is no thing to share, and opening one costs more than most texts: each thread keeps its own.
size_t decode_some(Code code, std::string_view bytes, std::string& utf8) {
  thread_local std::array<Converter, s_code_count> converters;
  if (code == Code::Utf8) {
    size_t valid = 0;
    while (size_t length = Dicom_Utf8Length(bytes.substr(valid)))
      valid += length;
    utf8 += bytes.substr(0, valid);
    return valid;
  }
  if (!s_codes[index_of(code)].decoder) return 0;
  return converters[index_of(code)].Convert("UTF-8", s_codes[index_of(code)].decoder, bytes, utf8);
}

size_t encode_some(Code code, std::string_view utf8, std::string& bytes) {
  thread_local std::array<Converter, s_code_count> converters;
  if (!s_codes[index_of(code)].encoder) return 0;
  return converters[index_of(code)].Convert(s_codes[index_of(code)].encoder, "UTF-8", utf8, bytes);
}

uint8_t byte_at(std::string_view bytes, size_t i) { return i < bytes.size() ? static_cast<uint8_t>(bytes[i]) : 0; }

void append_latin1(uint8_t byte, std::string& utf8) {
  if (byte >= 0x80) utf8 += static_cast<char>(0xC0 | byte >> 6);
  utf8 += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F));
}

// How many bytes to pass over when the converter doesn't know the character at the front.
size_t undecodable_length(Code code, std::string_view bytes) {
  size_t length = 1;
  if (s_codes[index_of(code)].multi_byte && code != Code::Utf8 && byte_at(bytes, 0) >= 0x81) {
    if (code == Code::JisX0212)
      length = 3;
    else if (byte_at(bytes, 1) >= 0x80)
      length = 2;
  }
  return std::min(length, bytes.size());
}

// A two-byte character of JIS X 0208 in EUC-JP form that isn't in the standard: vendors' additions (some of
// them in many family names) are known to Shift-JIS only.
bool decode_vendor_kanji(std::string_view euc, std::string& utf8) {
  unsigned row = byte_at(euc, 0) - 0xA1u, cell = byte_at(euc, 1) - 0xA1u;
  if (row >= 94 || cell >= 94) return false;
  unsigned lead = row / 2 + (row < 62 ? 0x81 : 0xC1);
  unsigned trail = row % 2 ? cell + 0x9F : cell + (cell < 63 ? 0x40 : 0x41);
  char const shift_jis[] = {static_cast<char>(lead), static_cast<char>(trail)};
  return decode_some(Code::JisX0201, {shift_jis, 2}, utf8) == 2;
}

// Bytes of a code that isn't in the form that its converter wants (JIS X 0208, 0212): makes it that.
std::string to_euc_jp(Code code, std::string_view bytes) {
  std::string euc;
  euc.reserve(bytes.size() * 3 / 2 + 3);
  for (size_t i = 0; i < bytes.size();) {
    uint8_t first = byte_at(bytes, i), second = byte_at(bytes, i + 1);
    if (first < 0x21 || first > 0x7E || second < 0x21 || second > 0x7E) {
      euc += bytes[i++];
      continue;
    }
    if (code == Code::JisX0212) euc += '\x8F';
    euc += static_cast<char>(first | 0x80);
    euc += static_cast<char>(second | 0x80);
    i += 2;
  }
  return euc;
}

} // namespace

Info const& Dicom_InfoOf(Code code) { return s_codes[index_of(code)]; }

std::span<Info const> Dicom_AllCharacterCodes() { return s_codes; }

size_t Dicom_Utf8Length(std::string_view text) {
  uint8_t lead = byte_at(text, 0), second = byte_at(text, 1);
  auto continues = [&](size_t i) { return (byte_at(text, i) & 0xC0) == 0x80; };
  if (lead < 0x80) return text.empty() ? 0 : 1;
  if (lead < 0xC2 || lead > 0xF4 || !continues(1)) return 0;
  if (lead < 0xE0) return 2;
  bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  bool surrogate = lead == 0xED && second > 0x9F, too_large = lead == 0xF4 && second > 0x8F;
  if (overlong || surrogate || too_large || !continues(2)) return 0;
  if (lead < 0xF0) return 3;
  return continues(3) ? 4 : 0;
}

void Dicom_Decode(Code code, std::string_view bytes, bool latin1, std::string& utf8) {
  std::string euc;
  if (s_codes[index_of(code)].place == Place::Below80) bytes = euc = to_euc_jp(code, bytes);
  while (!bytes.empty()) {
    bytes.remove_prefix(decode_some(code, bytes, utf8));
    if (bytes.empty()) return;
    size_t length = undecodable_length(code, bytes);
    uint8_t byte = byte_at(bytes, 0);
    if (byte < 0x80 || latin1)
      append_latin1(byte, utf8);
    else if (code != Code::JisX0208 || length != 2 || !decode_vendor_kanji(bytes.substr(0, 2), utf8))
      utf8 += "\xEF\xBF\xBD";
    bytes.remove_prefix(length);
  }
}

bool Dicom_EncodeCharacter(Code code, std::string_view character, std::string& bytes) {
  std::string raw;
  if (encode_some(code, character, raw) != character.size() || raw.empty() || byte_at(raw, 0) < 0x80) return false;
  Info const& info = s_codes[index_of(code)];
  bool halfwidth = byte_at(raw, 0) == 0x8E, supplement = byte_at(raw, 0) == 0x8F; // EUC-JP's marks
  if (code == Code::JisX0201) {
    if (raw.size() != 2 || !halfwidth) return false;
    raw.erase(0, 1);
  } else if (info.place == Place::Below80) {
    if (raw.size() != (code == Code::JisX0212 ? 3u : 2u) || halfwidth || supplement != (code == Code::JisX0212))
      return false;
    if (supplement) raw.erase(0, 1);
    for (char& c : raw)
      c = static_cast<char>(c & 0x7F);
  } else if (info.multi_byte && (raw.size() != 2 || byte_at(raw, 0) < 0xA1 || byte_at(raw, 1) < 0xA1)) {
    return false;
  }
  bytes += raw;
  return true;
}

bool Dicom_EncodeText(Code code, std::string_view utf8, std::string& bytes) {
  return encode_some(code, utf8, bytes) == utf8.size();
}
