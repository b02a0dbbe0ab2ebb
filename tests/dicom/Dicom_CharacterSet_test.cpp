#include <dicom/Dicom_CharacterSet.h>

#include <gtest/gtest.h>
#include <utility>

namespace {

constexpr auto person_name = Dicom_CharacterSet::Delimiters::PersonName;
constexpr auto multi_value = Dicom_CharacterSet::Delimiters::MultiValue;
constexpr auto text = Dicom_CharacterSet::Delimiters::Text;

struct Case {
  char const* terms;
  std::string bytes, utf8;
  Dicom_CharacterSet::Delimiters kind = person_name;
};

TEST(Dicom_CharacterSet, DecodesAndEncodes) {
  Case const cases[] = {
      {"", "Smith^John", "Smith^John"},
      {"ISO_IR 100", "Buc^J\351r\364me", "Buc^Jérôme"},
      {"ISO_IR 100", "\304neas^R\374diger", "Äneas^Rüdiger"},
      {"ISO_IR 101", "Wa\263\352sa", "Wałęsa"},
      {"ISO_IR 109", "Za\277miet", "Zażmiet"},
      {"ISO_IR 110", "\340rgl\272\371\340i", "ārglēųāi"},
      {"ISO_IR 144", "\273\356\332ce\334\321yp\323", "Люкceмбypг"},
      {"ISO_IR 127", "\342\310\307\346\352^\344\346\322\307\321", "قباني^لنزار"},
      {"ISO_IR 126", "\304\351\357\355\365\363\351\357\362", "Διονυσιος"},
      {"ISO_IR 138", "\371\370\345\357^\343\341\345\370\344", "שרון^דבורה"},
      {"ISO_IR 148", "\307avu\376o\360lu", "Çavuşoğlu"},
      {"ISO_IR 203", "\244 \275uvre", "€ œuvre"},
      {"ISO_IR 166", "\312\301\252\322\302", "สมชาย"},
      {"ISO_IR 192", "Wang^XiaoDong=王^小东=", "Wang^XiaoDong=王^小东="},
      {"GB18030", "Wang^XiaoDong=\315\365^\320\241\266\253=", "Wang^XiaoDong=王^小东="},
      {"GBK", "Wang^XiaoDong=\315\365^\320\241\266\253=", "Wang^XiaoDong=王^小东="},
      {"GB18030", "\x81\\^\x95\x32\x82\x36", "乗^𠀀"}, // a backslash byte and one of four
      {"\\ISO 2022 IR 87", "Yamada^Tarou=\33$B;3ED\33(B^\33$BB@O:\33(B=\33$B$d$^$@\33(B^\33$B$?$m$&\33(B",
       "Yamada^Tarou=山田^太郎=やまだ^たろう"},
      {"ISO_IR 13\\ISO 2022 IR 87",
       "\324\317\300\336^\300\333\263=\33$B;3ED\33(J^\33$BB@O:\33(J=\33$B$d$^$@\33(J^\33$B$?$m$&\33(J",
       "ﾔﾏﾀﾞ^ﾀﾛｳ=山田^太郎=やまだ^たろう"},
      {"ISO_IR 13", "\324\317\300\336^\300\333\263\\~", "ﾔﾏﾀﾞ^ﾀﾛｳ\\~"},
      {"\\ISO 2022 IR 87\\ISO 2022 IR 159", "\33$B;3\33$(D0!\33(B", "山丂"},
      {"\\ISO 2022 IR 149", "Hong^Gildong=\33$)C\373\363^\33$)C\321\316\324\327=\33$)C\310\253^\33$)C\261\346\265\277",
       "Hong^Gildong=洪^吉洞=홍^길동"},
      {"\\ISO 2022 IR 58", "Zhang^XiaoDong=\33$)A\325\305^\33$)A\320\241\266\253=", "Zhang^XiaoDong=张^小东="},
      {"\\ISO 2022 IR 58", "1\33$)A\265\332\322\273\320\320\r\n\33$)A\265\332\266\376\320\320 2", "1第一行\r\n第二行 2",
       text},
      // The initial set is there at the start; later it is called back, before delimiters too.
      {"ISO 2022 IR 100\\ISO 2022 IR 126", "\344\33-F\304\33-A\374\33-F\304\33-A\\\344", "äΔüΔ\\ä", multi_value},
      {"ISO 2022 IR 100\\ISO 2022 IR 87", "\344\33$B;3\33(B-\33-A\344\33$B;3\33(B\t\344", "ä山-ä山\tä", text},
      {"\\ISO 2022 IR 100\\ISO 2022 IR 144", "\33-A\344^\33-L\320\33-A\344", "ä^аä"},
      // Which characters are delimiters is a matter of the VR.
      {"\\ISO 2022 IR 149", "\33$)C\310\253^\310\253\\\33$)C\310\253", "홍^홍\\홍", multi_value},
      {"\\ISO 2022 IR 149", "\33$)C\310\253\\\310\253", "홍\\홍", text},
  };
  for (auto const& [terms, bytes, utf8, kind] : cases) {
    SCOPED_TRACE(utf8);
    auto set = Dicom_CharacterSet::Make(terms);
    EXPECT_EQ(set->ToUtf8(bytes, kind), utf8);
    std::string encoded = "rest";
    EXPECT_TRUE(set->FromUtf8(utf8, kind, encoded));
    EXPECT_EQ(encoded, bytes);
  }
}

TEST(Dicom_CharacterSet, DecodesWhatOthersWriteWrong) {
  Case const cases[] = {
      {"", "J\303\251r\303\264me", "Jérôme"}, // UTF-8 and Latin-1 without a word
      {"", "J\351r\364me", "Jérôme"},
      {"ISO_IR 6", "J\351r\364me", "Jérôme"},
      {"ISO_IR 13", "\216R\223c^\221\276\230Y=\224\\", "山田^太郎=能"}, // Shift-JIS; the last trail byte is 5C
      {"ISO_IR 13", "\324\216", "ﾔ\uFFFD"},
      {"\\ISO 2022 IR 149", "\310\253^\261\346\265\277", "홍^길동"},       // no escape
      {"\\ISO 2022 IR 149", "\33$)C\310\253^\261\346\265\277", "홍^길동"}, // not repeated
      {"ISO 2022 IR 149", "\33$)C\310\253", "홍"},
      {"ISO_IR 100", "\33$)C\310\253", "홍"},                 // not among the terms
      {"\\ISO 2022 IR 149", "\33$)C\201A", "갂"},             // not in KS X 1001
      {"\\ISO 2022 IR 87", "\33$B|b66\33(B", "髙橋"},         // not in JIS X 0208
      {"\\ISO 2022 IR 87", "\33$@;3\33(J^\33$(B;3", "山^山"}, // older escapes, none at the end
      {"\\ISO 2022 IR 87", "\33$B;\n3\33(B", ";\n3"},         // half a character
      {"\\ISO 2022 IR 87", "\33$B/!;3\33(B", "\uFFFD山"},     // one that doesn't exist
      {"\\ISO 2022 IR 87", "a\351", "a\uFFFD"},
      {"\\ISO 2022 IR 58", "\33$)A\252\241\325\305\325", "\uFFFD张\uFFFD"},
      {"ISO_IR 126", "\304\256\304", "Δ®Δ"}, // AE isn't used: Latin-1
      {"ISO_IR 192", "a\351\303\251", "a\uFFFDé"},
      {"ISO_IR 192", "\33$B\303\251", "\33$Bé"}, // no escapes
      {"GB18030", "\315\365\377a", "王\uFFFDa"},
      {"ISO_IR 100", "\33X\351", "\33Xé"}, // unknown escape
      {"ISO_IR 100", "\33", "\33"},
  };
  for (Case const& c : cases)
    EXPECT_EQ(Dicom_CharacterSet::Make(c.terms)->ToUtf8(c.bytes, c.kind), c.utf8) << c.terms;
}

TEST(Dicom_CharacterSet, RefusesToEncodeWhatTheSetLacks) {
  std::pair<char const*, std::vector<char const*>> const cases[] = {
      {"", {"é"}},
      {"ISO_IR 6", {"é"}},
      {"ISO_IR 100", {"Ł", "é\33", "\33", "\303"}},
      {"ISO_IR 100\\ISO 2022 IR 126", {"Ł"}},
      {"GBK", {"𠀀"}},
      {"GB18030", {"\U000E0041"}},
      {"ISO_IR 13", {"山", "¥"}},
      {"ISO_IR 192", {"\303"}},
      {"\\ISO 2022 IR 87", {"ﾔ", "丂"}},
      {"\\ISO 2022 IR 149", {"갂"}},
  };
  std::string bytes;
  for (auto const& [terms, texts] : cases)
    for (char const* utf8 : texts)
      EXPECT_FALSE(Dicom_CharacterSet::Make(terms)->FromUtf8(utf8, text, bytes)) << terms << ' ' << utf8;
}

TEST(Dicom_CharacterSet, UnderstandsTermsInManySpellings) {
  using namespace std::string_view_literals;
  std::pair<char const*, std::vector<std::string_view>> const cases[] = {
      {"", {"", " ", "\\", "FOO"}},
      {"ISO_IR 6", {"ISO_IR 6"}},
      {"ISO_IR 100", {"ISO_IR 100 ", "ISO-IR 100", "ISO_IR_100", "ISO IR 100", "iso_ir 100", "ISO_IR 100\\ISO_IR 100"}},
      {"ISO 2022 IR 100\\ISO 2022 IR 144", {"ISO 2022-IR 100\\ISO_IR 144"}},
      {"\\ISO 2022 IR 87", {"\\ISO2022IR87", "FOO\\ISO_2022_IR 87\\BAR"}},
      {"ISO 2022 IR 6\\ISO 2022 IR 149", {"ISO_IR 6\\ISO 2022 IR 149"}},
      {"ISO 2022 IR 149", {"ISO_IR 149"}},
      {"ISO_IR 192", {"ISO_IR 192\0"sv, "UTF-8", "utf8", "\\ISO_IR 192"}},
      {"GBK", {"ISO 2022 GBK", "gbk"}},
  };
  for (auto const& [terms, values] : cases)
    for (std::string_view value : values) {
      auto set = Dicom_CharacterSet::Make(value);
      EXPECT_EQ(set->Terms(), terms) << value;
      EXPECT_EQ(set, Dicom_CharacterSet::Make(terms)) << value;
      EXPECT_EQ(set->IsUtf8(), set->Terms() == "ISO_IR 192") << value;
      EXPECT_EQ(set->IsAscii(), set->Terms() == "" || set->Terms() == "ISO_IR 6") << value;
    }
}

} // namespace
