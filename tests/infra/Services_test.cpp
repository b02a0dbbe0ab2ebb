#include <infra/I18n.h>

#include <gtest/gtest.h>

namespace {

TEST(I18n, IllFormedTextIsReplaced) {
  wchar_t const no_characters[] = {0xD800, wchar_t(0x110000), 0};
  EXPECT_EQ(ToUTF8(no_characters), "\xEF\xBF\xBD\xEF\xBF\xBD");
  std::pair<char const*, wchar_t const*> const cases[] = {
      {"a\xE9z", L"a\uFFFDz"},                           // a lone byte
      {"\xC0\xAF", L"\uFFFD\uFFFD"},                     // a slash, longer than need be
      {"\xE0\x9F\xBF", L"\uFFFD\uFFFD\uFFFD"},           // the same in three
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},           // a surrogate
      {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // above all
      {"\xE2\x82", L"\uFFFD\uFFFD"},                     // cut off
      {"\xF9\x80\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}, // no lead byte
  };
  for (auto const& [bytes, text] : cases)
    EXPECT_EQ(FromUTF8(bytes), text) << bytes;
}

} // namespace
