#include <gtest/gtest.h>
#include <infra/I18n.h>
#include <infra/Klb_GError.h>
#include <infra/Util_Clock.h>
#include <thread>

namespace {

TEST(I18n, EveryCharacterGoesRound) {
  for (wchar_t c = 1; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    wchar_t const text[] = {c, L'.', 0};
    ASSERT_EQ(FromUTF8(ToUTF8(text).data()), text) << static_cast<int>(c);
  }
  EXPECT_EQ(ToUTF8(L"\u00e9\u20ac\U0001F5BF"), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x96\xBF");
}

TEST(I18n, IllFormedTextIsReplaced) {
  wchar_t const no_characters[] = {0xD800, wchar_t(0x110000), 0};
  EXPECT_EQ(ToUTF8(no_characters), "\xEF\xBF\xBD\xEF\xBF\xBD");
  struct {
    char const* bytes;
    wchar_t const* text;
  } const cases[] = {
      {"a\xE9z", L"a\uFFFDz"},                           // a lone byte
      {"\xC0\xAF", L"\uFFFD\uFFFD"},                     // a slash, longer than need be
      {"\xE0\x9F\xBF", L"\uFFFD\uFFFD\uFFFD"},           // the same in three
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},           // a surrogate
      {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above all
      {"\xE2\x82", L"\uFFFD\uFFFD"},                     // cut off
      {"\xF9\x80\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // no lead byte
  };
  for (auto const& c : cases)
    EXPECT_EQ(FromUTF8(c.bytes), c.text) << c.bytes;
}

} // namespace
