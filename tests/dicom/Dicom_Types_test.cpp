#include <dicom/Dicom_Match.h>
#include <dicom/Dicom_Msg.h>
#include <dicom/Dicom_UIDGenerator.h>

#include <array>
#include <climits>
#include <cmath>

#include <gtest/gtest.h>

#include <tuple>

namespace {

TEST(Dicom_Types, EqualityIsThatOfTextWithoutPadding) {
  std::tuple<std::unique_ptr<Dicom_Type>, std::unique_ptr<Dicom_Type>, bool> const cases[] = {
      {Dicom_LO("A  ").Clone(), Dicom_LO("A").Clone(), true},
      {Dicom_UI(std::string_view("1.2\0", 4)).Clone(), Dicom_UI("1.2").Clone(), true},
      {Dicom_LO(" A").Clone(), Dicom_LO("A").Clone(), false},
      {Dicom_IS("7").Clone(), Dicom_IS("07").Clone(), false},
      {Dicom_IS(7, true).Clone(), Dicom_IS("7").Clone(), true},
      {Dicom_IS("7").Clone(), Dicom_US(7).Clone(), true},
      {Dicom_US(7).Clone(), Dicom_UL(7).Clone(), true},
      {Dicom_US(std::vector<std::uint16_t>{7, 8}).Clone(), Dicom_US(7).Clone(), false},
      {Dicom_CS("A").Clone(), Dicom_LO("A").Clone(), true},
      {Dicom_OB("ab", 2, 1, nullptr).Clone(), Dicom_OW("ab", 2, 1, nullptr).Clone(), true},
      {Dicom_OB("ab", 2, 1, nullptr).Clone(), Dicom_OB("ab", 2, 1, nullptr, "1.2").Clone(), false},
      {Dicom_OB("ab", 2, 1, nullptr).Clone(), Dicom_LO("ab").Clone(), false},
  };
  for (auto const& [a, b, equal] : cases) {
    EXPECT_EQ(*a == *b, equal) << a->GetText() << " and " << b->GetText();
    EXPECT_EQ(*b != *a, !equal);
  }
}

TEST(Dicom_Types, DatesAndTimesHaveFieldsAndOrder) {
  std::tuple<char const*, int, int, int> const dates[] = {
      {"19930822", 1993, 8, 22}, {"1993.08.22", 1993, 8, 22}, {"1993", 1993, 0, 0}, {"", 0, 0, 0},
      {"19x30822", 0, 8, 22},    {"1993082", 1993, 8, 0},     {"-", 0, 0, 0}};
  for (auto const& [text, year, month, day] : dates) {
    Dicom_DA const date(text);
    EXPECT_EQ(std::vector({date.Year(), date.Month(), date.Day()}), std::vector({year, month, day})) << text;
  }
  EXPECT_EQ(Dicom_DA(1993, 8, 2).GetText(), "19930802");
  EXPECT_TRUE(Dicom_DA("1993.08.22") < Dicom_DA("19930823"));
  EXPECT_FALSE(Dicom_DA("1993.08.22") < Dicom_DA("19930822") || Dicom_DA("19930822") < Dicom_DA("1993.08.22"));
  Dicom_TM const old("10:20:30.5");
  EXPECT_EQ(std::vector({old.Hours(), old.Minutes(), old.Seconds()}), std::vector({10, 20, 30}));
  EXPECT_EQ(Dicom_TM("10").Minutes(), 0);
  EXPECT_TRUE(Dicom_TM("102030.05") < old && Dicom_TM("1020") < old && !(old < Dicom_TM("102030.500")));
  Dicom_DT const point("20240229102030.25-0500");
  EXPECT_EQ(point.Date().GetText() + " " + point.Time().GetText(), "20240229 102030.25");
  EXPECT_TRUE(point < Dicom_DT("20240229102030.3") && Dicom_DT("2024+0100") < point);
  int status = 0;
  EXPECT_EQ(Dicom_DT(Dicom_DA("20240229"), TM_NULL, &status).GetText(), "20240229000000");
  EXPECT_TRUE(status == 0 && Dicom_DT(DA_NULL, Dicom_TM("10"), &status).IsEmpty() && status == -1);
}

TEST(Dicom_Types, NumbersInTextSaturate) {
  std::pair<char const*, int> const integers[] = {
      {"7", 7},     {" +7 ", 7}, {"-7\\9", -7}, {"2147483648", INT_MAX}, {"-99999999999999999999999", INT_MIN},
      {"seven", 0}, {"", 0}};
  for (auto const& [text, number] : integers)
    EXPECT_EQ(int(Dicom_IS(text)), number) << text;
  for (int const number : {0, 7, INT_MIN}) // one width for all, which a copy keeps
    EXPECT_EQ(Dicom_IS(number, true).Duplicate().GetLength(), 12u);
  Dicom_ME const big(Dicom_Tag(0x0020, 0x0013), std::make_unique<Dicom_IS>("70000"));
  EXPECT_TRUE(big.ValueAs<Dicom_US>() == Dicom_US(65535) && big.ValueAs<Dicom_SS>() == Dicom_SS(32767));
  EXPECT_EQ(big.ValueAs<Dicom_UV>(), Dicom_UV(70000));
  Dicom_ME const minus(Dicom_Tag(0x0020, 0x0013), std::make_unique<Dicom_DS>("-1e400"));
  EXPECT_TRUE(minus.ValueAs<Dicom_UL>() == Dicom_UL(0) && minus.ValueAs<Dicom_SL>() == Dicom_SL(INT_MIN) &&
              minus.ValueAs<Dicom_SV>() == Dicom_SV(INT64_MIN));
  EXPECT_TRUE(std::isfinite(float(minus.ValueAs<Dicom_FL>())));
}

TEST(Dicom_Types, UnionOfCodes) {
  std::tuple<char const*, char const*, char const*> const cases[] = {
      {"CT", "MR", "CT\\MR"}, {"CT\\MR", "MR\\PR\\CT", "CT\\MR\\PR"}, {"", "CT", "CT"},           {"CT", "", "CT"},
      {"", "", ""},           {"CT\\\\MR ", "\\PR", "CT\\MR\\PR"},    {"CT \\MR", "CT", "CT\\MR"}};
  for (auto const& [a, b, both] : cases)
    EXPECT_EQ((Dicom_CS(a) | Dicom_CS(b)).GetText(), both);
  std::string hostile; // must not take time by the square of its parts
  for (int i = 0; i < 200000; ++i)
    hostile += std::to_string(i) + "\\";
  EXPECT_EQ((Dicom_CS(hostile) | Dicom_CS(hostile)).GetNValues(), 200000);
}

TEST(Dicom_Match, Rules) {
  using Texts = std::vector<char const*>;
  std::tuple<Dicom_VR, char const*, Texts, Texts> const cases[] = {
      // keys that match, and others
      {Dicom_VR::LO, "A", {""}, {"a"}},
      {Dicom_VR::LO, "", {"", "**"}, {"A"}},
      {Dicom_VR::LO, "HEAD", {"HEAD*", "H?AD", "*E*D"}, {"H?D", "HEAD*?"}},
      {Dicom_VR::LO, "H\u00C9D", {"H?D"}, {}}, // a character, not a byte
      {Dicom_VR::LO, "A\\B ", {"B"}, {}},
      {Dicom_VR::CS, "CT\\MR", {"PR\\MR", "CT\\MR"}, {"PR\\US"}},
      {Dicom_VR::LT, "A\\B", {"A?B"}, {"B"}},
      {Dicom_VR::UI, "1.2.3", {"1.2\\1.2.3", "*"}, {"1.2.*"}},
      {Dicom_VR::IS, "07", {"7", "+7"}, {}},
      {Dicom_VR::DS, "1.50\\2", {"1.5", "2.0"}, {"2x"}},
      {Dicom_VR::DS, "x", {}, {"0"}},
      {Dicom_VR::PN, "Doe^Jane", {"DOE^JANE", "doe*"}, {"jane"}},
      {Dicom_VR::PN, "Doe^Jane^^^", {"doe^jane"}, {}},
      {Dicom_VR::PN, "\u00C4neas", {"\u00E4NEAS"}, {}},
      {Dicom_VR::PN, "Yamada^Tarou=\u5C71\u7530", {"\u5C71*", "yamada^tarou"}, {"yamada^tarou=x"}},
      {Dicom_VR::DA, "20240229", {"20240229", "2024.02.29", "-20240229", "20240229-20240229"}, {"20240301-"}},
      {Dicom_VR::DA, "2024.02.29", {"20240201-20240301"}, {}},
      {Dicom_VR::DA, "20230101\\20240229", {"2024"}, {}},
      {Dicom_VR::DA, "", {}, {"-20240229"}},
      {Dicom_VR::TM, "102030.5", {"10", "10-10", "102030-102030"}, {"102029-102029"}},
      {Dicom_VR::TM, "10", {"1000-1100"}, {"102030"}}, // may lie within
      {Dicom_VR::TM, "10:20:30", {"1020-"}, {}},
      {Dicom_VR::DT, "20240229102030", {"20240229", "20240101-20241231", "20240229102030-0500"}, {"20240301-0500-"}},
      {Dicom_VR::DT, "20240229102030", {"20240229-0500-20240301-0500"}, {}},
      {Dicom_VR::DT, "20240229102030+0100", {"-20240229-0500"}, {}},
      {Dicom_VR::DT, "2023", {"2022-2024"}, {}},
  };
  for (auto const& [vr, value, matching, others] : cases)
    for (auto const& [keys, matches] : {std::pair(&matching, true), {&others, false}})
      for (char const* key : *keys)
        EXPECT_EQ(Dicom_MatchText(vr, value, key), matches) << value << " against " << key;
}

} // namespace
