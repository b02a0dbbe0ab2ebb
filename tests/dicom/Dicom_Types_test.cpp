#include <dicom/Dicom_Match.h>
#include <dicom/Dicom_Msg.h>
#include <dicom/Dicom_UIDGenerator.h>

#include <climits>
#include <cmath>
#include <set>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(Dicom_Types, EqualityIsThatOfTextWithoutPadding) {
  struct {
    std::unique_ptr<Dicom_Type> a, b;
    bool equal;
  } const cases[] = {
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
  struct {
    char const* text;
    int year, month, day;
  } const dates[] = {{"19930822", 1993, 8, 22}, {"1993.08.22", 1993, 8, 22}, {"1993", 1993, 0, 0}, {"", 0, 0, 0},
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
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Dicom_DT(DA_NULL, Dicom_TM("10"), &status).IsEmpty());
  EXPECT_EQ(status, -1);
}

TEST(Dicom_Types, NumbersInTextSaturate) {
  struct {
    char const* text;
    int number;
  } const integers[] = {
      {"7", 7},     {" +7 ", 7}, {"-7\\9", -7}, {"2147483648", INT_MAX}, {"-99999999999999999999999", INT_MIN},
      {"seven", 0}, {"", 0}};
  for (auto const& [text, number] : integers)
    EXPECT_EQ(int(Dicom_IS(text)), number) << text;
  Dicom_ME const big(Dicom_Tag(0x0020, 0x0013), std::make_unique<Dicom_IS>("70000"));
  EXPECT_EQ(big.ValueAs<Dicom_US>(), Dicom_US(65535));
  EXPECT_EQ(big.ValueAs<Dicom_SS>(), Dicom_SS(32767));
  EXPECT_EQ(big.ValueAs<Dicom_UV>(), Dicom_UV(70000));
  Dicom_ME const minus(Dicom_Tag(0x0020, 0x0013), std::make_unique<Dicom_DS>("-1e400"));
  EXPECT_EQ(minus.ValueAs<Dicom_UL>(), Dicom_UL(0));
  EXPECT_EQ(minus.ValueAs<Dicom_SL>(), Dicom_SL(INT_MIN));
  EXPECT_EQ(minus.ValueAs<Dicom_SV>(), Dicom_SV(INT64_MIN));
  EXPECT_TRUE(std::isfinite(float(minus.ValueAs<Dicom_FL>())));
}

TEST(Dicom_Types, FixedWidthIsIndependentOfTheNumber) {
  for (int const number : {0, 7, INT_MIN}) {
    Dicom_Msg msg;
    msg.Set(Dicom_Tag(0x0020, 0x0013), Dicom_IS(number, true));
    EXPECT_EQ(msg.GetDumpLen(), 8u + 12u);
    EXPECT_EQ(int(msg.Value<Dicom_IS>(Dicom_Tag(0x0020, 0x0013))), number);
    EXPECT_EQ(Dicom_IS(number, true).Duplicate().GetLength(), 12u);
  }
}

TEST(Dicom_Types, UnionOfCodes) {
  struct {
    char const *a, *b, *both;
  } const cases[] = {
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
  struct {
    Dicom_VR vr;
    char const *value, *key;
    bool matches;
  } const cases[] = {
      {Dicom_VR::LO, "A", "", true},
      {Dicom_VR::LO, "", "", true},
      {Dicom_VR::LO, "", "**", true},
      {Dicom_VR::LO, "", "A", false},
      {Dicom_VR::LO, "A", "a", false},
      {Dicom_VR::LO, "HEAD FIRST", "HEAD*", true},
      {Dicom_VR::LO, "HEAD", "H?AD", true},
      {Dicom_VR::LO, "HEAD", "H?D", false},
      {Dicom_VR::LO, "HEAD", "*E*D", true},
      {Dicom_VR::LO, "HEAD", "HEAD*?", false},
      {Dicom_VR::LO,
       "H\xC3\x89"
       "D",
       "H?D", true}, // a character, not a byte
      {Dicom_VR::LO, "A\\B ", "B", true},
      {Dicom_VR::CS, "CT\\MR", "PR\\MR", true},
      {Dicom_VR::CS, "CT\\MR", "PR\\US", false},
      {Dicom_VR::CS, "CT\\MR", "CT\\MR", true},
      {Dicom_VR::LT, "A\\B", "B", false},
      {Dicom_VR::LT, "A\\B", "A?B", true},
      {Dicom_VR::UI, "1.2.3", "1.2\\1.2.3", true},
      {Dicom_VR::UI, "1.2.3", "1.2.*", false},
      {Dicom_VR::UI, "1.2.3", "*", true},
      {Dicom_VR::IS, "07", "7", true},
      {Dicom_VR::IS, "7", "+7", true},
      {Dicom_VR::DS, "1.50", "1.5", true},
      {Dicom_VR::DS, "1.5\\2", "2.0", true},
      {Dicom_VR::DS, "x", "0", false},
      {Dicom_VR::DS, "1", "1x", false},
      {Dicom_VR::PN, "Doe^Jane", "DOE^JANE", true},
      {Dicom_VR::PN, "Doe^Jane^^^", "doe^jane", true},
      {Dicom_VR::PN, "Doe^Jane", "doe*", true},
      {Dicom_VR::PN, "Doe^Jane", "jane", false},
      {Dicom_VR::PN, "\xC3\x84neas", "\xC3\xA4NEAS", true},
      {Dicom_VR::PN, "Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0", "\xE5\xB1\xB1*", true},
      {Dicom_VR::PN, "Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0", "yamada^tarou", true},
      {Dicom_VR::PN, "Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0", "yamada^tarou=x", false},
      {Dicom_VR::DA, "20240229", "20240229", true},
      {Dicom_VR::DA, "20240229", "2024.02.29", true},
      {Dicom_VR::DA, "2024.02.29", "20240201-20240301", true},
      {Dicom_VR::DA, "20240229", "20240301-", false},
      {Dicom_VR::DA, "20240229", "-20240229", true},
      {Dicom_VR::DA, "20240229", "20240229-20240229", true},
      {Dicom_VR::DA, "", "-20240229", false},
      {Dicom_VR::DA, "20230101\\20240229", "2024", true},
      {Dicom_VR::TM, "102030", "10", true},
      {Dicom_VR::TM, "10", "102030", false},
      {Dicom_VR::TM, "102030", "10-10", true},
      {Dicom_VR::TM, "10", "1000-1100", true}, // may lie within
      {Dicom_VR::TM, "102030.5", "102030-102030", true},
      {Dicom_VR::TM, "102031", "102030-102030", false},
      {Dicom_VR::TM, "10:20:30", "1020-", true},
      {Dicom_VR::DT, "20240229102030", "20240229", true},
      {Dicom_VR::DT, "20240229102030", "20240101-20241231", true},
      {Dicom_VR::DT, "20240229102030", "20240229102030-0500", true},
      {Dicom_VR::DT, "20240229102030", "20240229-0500-20240301-0500", true},
      {Dicom_VR::DT, "20240229102030", "20240301-0500-", false},
      {Dicom_VR::DT, "20240229102030+0100", "-20240229-0500", true},
      {Dicom_VR::DT, "2023", "2022-2024", true},
  };
  for (auto const& [vr, value, key, matches] : cases)
    EXPECT_EQ(Dicom_MatchText(vr, value, key), matches) << value << " against " << key;
}

} // namespace
