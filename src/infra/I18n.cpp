#include <infra/I18n.h>

namespace {

constexpr char32_t replacement = 0xFFFD;

bool is_character(char32_t c) { return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF); }

void append_utf8(std::string& text, char32_t c) {
  auto const add = [&text](char32_t byte) { text += static_cast<char>(byte); };
  if (c < 0x80) {
    add(c);
  } else if (c < 0x800) {
    add(0xC0 | c >> 6);
    add(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    add(0xE0 | c >> 12);
    add(0x80 | (c >> 6 & 0x3F));
    add(0x80 | (c & 0x3F));
  } else {
    add(0xF0 | c >> 18);
    add(0x80 | (c >> 12 & 0x3F));
    add(0x80 | (c >> 6 & 0x3F));
    add(0x80 | (c & 0x3F));
  }
}

// Takes one character off the front of `text`, which ends with a null; a byte that starts none counts as one.
char32_t next_character(char const*& text) {
  auto const lead = static_cast<unsigned char>(*text++);
  if (lead < 0x80) return lead;
  int const more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC2 || lead > 0xF4) return replacement;
  char32_t c = lead & (0x3F >> more);
  for (int i = 0; i < more; ++i) {
    auto const byte = static_cast<unsigned char>(text[i]); // the null ends the loop before we can pass it
    if ((byte & 0xC0) != 0x80) return replacement;
    c = c << 6 | (byte & 0x3F);
  }
  bool const shortest = c >= (more == 1 ? 0x80U : more == 2 ? 0x800U : 0x10000U);
  if (!shortest || !is_character(c)) return replacement;
  text += more;
  return c;
}

} // namespace

RWCString ToUTF8(const wchar_t* text) {
  std::string result;
  for (; text && *text; ++text) {
    auto const c = static_cast<char32_t>(*text);
    append_utf8(result, is_character(c) ? c : replacement);
  }
  return result;
}

RWWString FromUTF8(char const* text) {
  std::wstring result;
  while (text && *text)
    result += static_cast<wchar_t>(next_character(text));
  return result;
}
