#include <dicom/Dicom_CharacterSet.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>

#include "dicom/text/Dicom_CharacterCode.h"

namespace {

using Code = Dicom_CharacterCode;
using Place = Dicom_CharacterCodeInfo::Place;
using Delimiters = Dicom_CharacterSet::Delimiters;

constexpr char s_escape = '\x1b';

Place place_of(Code code) { return Dicom_InfoOf(code).place; }

bool is_delimiter(char c, Delimiters kind) {
  if (c == '\r' || c == '\n' || c == '\f' || c == '\t') return true;
  if (c == '\\') return kind != Delimiters::Text;
  return (c == '^' || c == '=') && kind == Delimiters::PersonName;
}

// Escapes that are understood besides those in the table of codes: JIS X 0201's Latin half, which is ASCII to
// us, and the two older spellings of JIS X 0208.
struct Escape {
  std::string_view bytes;
  Code code;
};
constexpr Escape s_more_escapes[] = {{"\x1b(J", Code::Ascii}, {"\x1b$@", Code::JisX0208}, {"\x1b$(B", Code::JisX0208}};

// The escape at the front; of no bytes when there is no known one.
Escape escape_at(std::string_view bytes) {
  for (size_t i = 0; i < Dicom_AllCharacterCodes().size(); ++i) {
    char const* escape = Dicom_AllCharacterCodes()[i].escape;
    if (escape && bytes.starts_with(escape)) return {escape, static_cast<Code>(i)};
  }
  for (Escape const& escape : s_more_escapes)
    if (bytes.starts_with(escape.bytes)) return escape;
  return {{}, Code::Ascii};
}

// Decodes text with ISO 2022 escapes: follows what is designated for bytes below 80 (`low_`) and above
// (`high_`), and hands each piece in between to the converter.
class Decoder {
public:
  Decoder(std::vector<Code> const& codes, Delimiters kind) : initial_(codes.front()), kind_(kind) {
    auto first = std::find_if(codes.begin(), codes.end(), [](Code c) { return place_of(c) == Place::Above7F; });
    if (first != codes.end()) high_ = *first;
    latin1_ = std::none_of(codes.begin(), codes.end(), [](Code c) { return Dicom_InfoOf(c).multi_byte; });
  }

  std::string Decode(std::string_view bytes) {
    out_.reserve(bytes.size() * 2);
    size_t start = 0;
    for (size_t i = 0; i < bytes.size();) {
      Escape escape = bytes[i] == s_escape ? escape_at(bytes.substr(i)) : Escape{{}, Code::Ascii};
      if (!escape.bytes.empty()) {
        piece(bytes.substr(start, i - start));
        designate(escape.code);
        start = i += escape.bytes.size();
      } else if (!at_initial() && is_delimiter(bytes[i], kind_) && (low_ == Code::Ascii || bytes[i] < ' ')) {
        piece(bytes.substr(start, i - start));
        back_to_initial();
        start = i++;
      } else {
        i += character_length(bytes.substr(i));
      }
    }
    piece(bytes.substr(start));
    return std::move(out_);
  }

private:
  void designate(Code code) { (place_of(code) == Place::Above7F ? high_ : low_) = code; }

  bool at_initial() const { return low_ == Code::Ascii && (high_ == initial_ || place_of(initial_) != Place::Above7F); }

  void back_to_initial() {
    low_ = Code::Ascii;
    if (place_of(initial_) == Place::Above7F) high_ = initial_;
  }

  // So that no byte within a character passes for a delimiter.
  size_t character_length(std::string_view bytes) const {
    auto first = static_cast<uint8_t>(bytes[0]), second = static_cast<uint8_t>(bytes.size() > 1 ? bytes[1] : 0);
    if (low_ != Code::Ascii && first > ' ' && first < 0x7F && second > ' ' && second < 0x7F) return 2;
    bool shift_jis_lead = first >= 0x81 && first <= 0xFC && (first <= 0x9F || first >= 0xE0);
    bool shift_jis_trail = second >= 0x40 && second <= 0xFC && second != 0x7F;
    return high_ == Code::JisX0201 && shift_jis_lead && shift_jis_trail ? 2 : 1;
  }

  void piece(std::string_view bytes) {
    if (low_ == Code::Ascii) return Dicom_Decode(high_, bytes, latin1_, out_);
    while (!bytes.empty()) {
      bool low = static_cast<uint8_t>(bytes[0]) < 0x80;
      auto end =
          std::find_if(bytes.begin(), bytes.end(), [&](char c) { return (static_cast<uint8_t>(c) < 0x80) != low; });
      auto length = static_cast<size_t>(end - bytes.begin());
      Dicom_Decode(low ? low_ : high_, bytes.substr(0, length), latin1_, out_);
      bytes.remove_prefix(length);
    }
  }

  Code initial_;
  Delimiters kind_;
  Code low_ = Code::Ascii;
  Code high_ = Code::Ascii;
  bool latin1_ = false;
  std::string out_;
};

// Encodes text with ISO 2022 escapes. Many readers keep one set at a time and know nothing of two halves, so
// each piece in another set gets its escape, also where ISO 2022 would do without.
class Encoder {
public:
  Encoder(std::vector<Code> const& codes, Delimiters kind, std::string& out)
      : codes_(codes), kind_(kind), initial_(codes.front()), out_(out) {
    // Multi-byte sets have no place as the initial one; as a lone or first term they mean ASCII and escapes.
    if (Dicom_InfoOf(initial_).multi_byte && initial_ != Code::JisX0201) initial_ = Code::Ascii;
    current_ = high_ = initial_;
  }

  bool Encode(std::string_view utf8) {
    while (!utf8.empty()) {
      size_t length = Dicom_Utf8Length(utf8);
      if (length == 0 || (length > 1 && !put(utf8.substr(0, length)))) return false;
      if (length == 1) put_ascii(utf8[0]);
      utf8.remove_prefix(length);
    }
    back_to_initial();
    return true;
  }

private:
  void put_ascii(char c) {
    if (is_delimiter(c, kind_))
      back_to_initial();
    else
      leave_low();
    out_ += c;
  }

  bool put(std::string_view character) {
    if (Dicom_EncodeCharacter(current_, character, out_)) return true;
    for (Code code : codes_) {
      std::string bytes;
      if (!Dicom_EncodeCharacter(code, character, bytes)) continue;
      designate(code);
      out_ += bytes;
      return true;
    }
    return false;
  }

  void designate(Code code) {
    if (place_of(code) == Place::Above7F) {
      leave_low();
      high_ = code;
    }
    if (code != current_) out_ += Dicom_InfoOf(code).escape;
    current_ = code;
  }

  // ASCII again for bytes below 80.
  void leave_low() {
    if (place_of(current_) != Place::Below80) return;
    out_ += initial_ == Code::JisX0201 ? "\x1b(J" : Dicom_InfoOf(Code::Ascii).escape;
    current_ = initial_ == Code::JisX0201 && high_ == initial_ ? initial_ : Code::Ascii;
  }

  void back_to_initial() {
    leave_low();
    if (high_ != initial_ && place_of(initial_) == Place::Above7F) out_ += Dicom_InfoOf(initial_).escape;
    current_ = high_ = initial_;
  }

  std::vector<Code> const& codes_;
  Delimiters kind_;
  Code initial_, current_, high_;
  std::string& out_;
};

// The letters and digits of a term, without "ISO", "2022" and "IR": "ISO 2022-ir 100" is "100".
std::string essence(std::string_view term, bool& says_2022) {
  std::string text;
  for (char c : term) {
    bool lower = c >= 'a' && c <= 'z';
    if (lower || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) text += static_cast<char>(lower ? c - 'a' + 'A' : c);
  }
  for (std::string_view prefix : {"ISO", "2022", "IR"}) {
    if (text.starts_with(prefix) && text.size() > prefix.size()) {
      text.erase(0, prefix.size());
      says_2022 |= prefix == "2022";
    }
  }
  return text == "UTF8" ? "192" : text;
}

struct TermList {
  std::vector<Code> codes; // the first is the initial set
  std::string text;
};

TermList parse(std::string_view value) {
  std::vector<Code> codes;
  bool says_2022 = false, names_ascii = false;
  for (size_t start = 0, i = 0; start <= value.size(); ++i) {
    std::string_view term = value.substr(start, value.find('\\', start) - start);
    start += term.size() + 1;
    std::string number = essence(term, says_2022);
    auto infos = Dicom_AllCharacterCodes();
    auto info = std::find_if(infos.begin(), infos.end(), [&](auto const& c) { return c.number == number; });
    auto code = static_cast<Code>(info - infos.begin());
    if (info == infos.end()) {
      if (i == 0) codes.push_back(Code::Ascii);
    } else if (info->place == Place::Alone) {
      return {{code}, code == Code::Utf8 ? "ISO_IR 192" : std::string(info->number)};
    } else if (std::find(codes.begin(), codes.end(), code) == codes.end()) {
      names_ascii |= code == Code::Ascii && i == 0;
      codes.push_back(code);
    }
  }
  says_2022 |= codes.size() > 1;
  std::string text;
  for (size_t i = 0; i < codes.size(); ++i) {
    if (i > 0) text += '\\';
    bool extension = says_2022 || (Dicom_InfoOf(codes[i]).multi_byte && codes[i] != Code::JisX0201);
    if (codes[i] != Code::Ascii || i > 0 || names_ascii)
      text.append(extension ? "ISO 2022 IR " : "ISO_IR ").append(Dicom_InfoOf(codes[i]).number);
  }
  return {std::move(codes), std::move(text)};
}

} // namespace

std::shared_ptr<Dicom_CharacterSet const> Dicom_CharacterSet::Make(std::string_view specific_character_set_value) {
  static std::mutex mutex;
  static std::map<std::string, std::shared_ptr<Dicom_CharacterSet const>, std::less<>> cache;
  constexpr size_t cache_limit = 64;

  TermList terms = parse(specific_character_set_value);
  std::lock_guard lock(mutex);
  auto found = cache.find(terms.text);
  if (found != cache.end()) return found->second;
  std::shared_ptr<Dicom_CharacterSet> set(new Dicom_CharacterSet);
  Code first = terms.codes.front();
  if (terms.codes.size() > 1 || place_of(first) != Place::Ascii) {
    set->kind_ = place_of(first) != Place::Alone ? Kind::Extended : first == Code::Utf8 ? Kind::Utf8 : Kind::Alone;
  }
  set->codes_ = std::move(terms.codes);
  set->terms_ = std::move(terms.text);
  if (cache.size() >= cache_limit) cache.clear();
  cache.emplace(set->terms_, set);
  return set;
}

std::string Dicom_CharacterSet::ToUtf8(std::string_view bytes, Delimiters kind) const {
  bool may_be_utf8 = kind_ == Kind::Ascii || kind_ == Kind::Utf8;
  if (Dicom_IsPlainAscii(bytes) || (may_be_utf8 && Dicom_IsValidUtf8(bytes))) return std::string(bytes);
  std::string utf8;
  if (kind_ == Kind::Extended)
    utf8 = Decoder(codes_, kind).Decode(bytes);
  else
    Dicom_Decode(kind_ == Kind::Ascii ? Code::Latin1 : codes_.front(), bytes, kind_ == Kind::Ascii, utf8);
  return utf8;
}

bool Dicom_CharacterSet::FromUtf8(std::string_view utf8, Delimiters kind, std::string& bytes) const {
  bytes.clear();
  if (!Dicom_IsValidUtf8(utf8)) return false;
  if (Dicom_IsPlainAscii(utf8) || kind_ == Kind::Utf8) {
    bytes = utf8;
    return true;
  }
  // iconv drops Unicode's tag characters (U+E00xx) without a word.
  if (utf8.find(s_escape) != utf8.npos || utf8.find("\xF3\xA0") != utf8.npos || kind_ == Kind::Ascii) return false;
  bool one_table = codes_.size() == 1 && !Dicom_InfoOf(codes_.front()).multi_byte;
  if (one_table || kind_ == Kind::Alone) return Dicom_EncodeText(codes_.front(), utf8, bytes);
  return Encoder(codes_, kind, bytes).Encode(utf8);
}

bool Dicom_IsValidUtf8(std::string_view text) {
  while (!text.empty()) {
    uint64_t block = 0;
    if (text.size() >= sizeof block) std::memcpy(&block, text.data(), sizeof block);
    bool ascii = text.size() >= sizeof block && (block & 0x8080808080808080u) == 0;
    size_t length = ascii ? sizeof block : Dicom_Utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

namespace {

constexpr size_t kBlock = sizeof(uint64_t);

bool IsPlainBlock(char const* bytes) {
  constexpr uint64_t high_bits = 0x8080808080808080u, ones = 0x0101010101010101u;
  uint64_t block;
  std::memcpy(&block, bytes, sizeof block);
  // Zero where an ESC stands, and only a zero byte among others borrows into a high bit that wasn't set.
  uint64_t other = block ^ ones * static_cast<uint8_t>(s_escape);
  return ((block | ((other - ones) & ~other)) & high_bits) == 0;
}

bool IsPlainByte(char byte) { return static_cast<uint8_t>(byte) < 0x80 && byte != s_escape; }

} // namespace

bool Dicom_IsPlainAscii(std::string_view text) {
  if (text.size() < kBlock) return std::all_of(text.begin(), text.end(), IsPlainByte);
  char const* const last = text.data() + text.size() - kBlock; // the block at the end overlaps the one before
  for (char const* p = text.data(); p < last; p += kBlock)
    if (!IsPlainBlock(p)) return false;
  return IsPlainBlock(last);
}
