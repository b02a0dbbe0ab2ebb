#include "Phantom.h"

#include "support/TempDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <dicom/Dicom_DataDictionary.h>
#include <dicom/Util_File.h>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

using Phantom::Charset;
using Phantom::Kind;

constexpr Kind kKinds[] = {Kind::CT, Kind::MR, Kind::US, Kind::MultiFrame, Kind::PR, Kind::SR};
constexpr Charset kCharsets[] = {Charset::Ascii,    Charset::Latin1,   Charset::Utf8,   Charset::Greek,
                                 Charset::Cyrillic, Charset::Japanese, Charset::Korean, Charset::Chinese};

std::string BytesOf(Phantom::Object const& object, Dicom_UI const& syntax = Dicom_UIDic::NATIVE_TRANSFER_SYNTAX) {
  std::unique_ptr<IOD_Msg> const msg = Phantom::Make(object);
  int status = -1;
  Util_File file(*msg, &status, syntax, 2, nullptr);
  EXPECT_EQ(status, 0);
  return std::string(file.Bytes());
}

void ExpectEqual(Dicom_Msg const& a, Dicom_Msg const& b) {
  ASSERT_EQ(a.GetNElements(), b.GetNElements());
  for (int i = 0; i < a.GetNElements(); ++i) {
    EXPECT_EQ(a.GetElement(i)->GetTag(), b.GetElement(i)->GetTag());
    EXPECT_TRUE(*a.GetElement(i)->GetValue() == *b.GetElement(i)->GetValue())
        << std::hex << a.GetElement(i)->GetTag().Number();
  }
}

TEST(Phantom, SameDescriptionGivesTheSameBytes) {
  for (Kind const kind : kKinds) {
    std::string const bytes = BytesOf({.kind = kind, .size = 32});
    EXPECT_EQ(bytes, BytesOf({.kind = kind, .size = 32}));
    EXPECT_NE(bytes, BytesOf({.kind = kind, .seed = 2, .size = 32}));
  }
}

TEST(Phantom, EveryKindIsReadBackAsItWasMade) {
  for (Kind const kind : kKinds)
    for (Charset const charset : kCharsets)
      for (Dicom_UI const& syntax : {Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN,
                                     Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN}) {
        SCOPED_TRACE(testing::Message() << int(kind) << " " << int(charset) << " " << syntax.View());
        Phantom::Object object{.kind = kind, .size = 21, .charset = charset};
        if (syntax != Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN) { // where private attributes have no VR
          object.key_image = "Y";
          object.image_label = object.series_label = "Label";
          object.slice_number = "7";
          object.slice_direction = "UP";
          object.study_body_part = "KNEE";
        }
        Util_File file;
        ASSERT_EQ(file.GetBytes(BytesOf(object, syntax)), 0);
        std::unique_ptr<IOD_Msg> const read(static_cast<IOD_Msg*>(file));
        ASSERT_TRUE(read) << file.GetError();
        ExpectEqual(*read, *Phantom::Make(object));
        EXPECT_EQ(read->GetPatientsName().View().find('?'),
                  std::string_view::npos); // lost in its character set
      }
}

TEST(Phantom, PixelsFitTheirDescription) {
  struct Case {
    Kind kind;
    int bits;
    bool is_signed;
    std::size_t bytes; // of a pixel of all frames
  };
  for (Case c : {Case{Kind::CT, 12, false, 2}, Case{Kind::CT, 16, true, 2}, Case{Kind::CT, 8, true, 1},
                 Case{Kind::MR, 8, false, 1}, Case{Kind::MR, 16, false, 2}, Case{Kind::MR, 12, true, 2},
                 Case{Kind::MultiFrame, 8, false, 5}, Case{Kind::MultiFrame, 16, true, 10}}) {
    SCOPED_TRACE(testing::Message() << int(c.kind) << " " << c.bits << " " << c.is_signed);
    std::unique_ptr<IOD_Msg> const msg =
        Phantom::Make({.kind = c.kind, .size = 40, .bits = c.bits, .is_signed = c.is_signed, .frames = 5});
    auto const* pixels = dynamic_cast<Dicom_OtherType const*>(msg->Get(Dicom_Tag(0x7FE0, 0x0010)));
    ASSERT_TRUE(pixels);
    ASSERT_EQ(pixels->Bytes().size(), 1600 * c.bytes);
    int low = 1 << 16, high = -low;
    for (std::size_t i = 0; i<pixels->Bytes().size(); i += c.bits> 8 ? 2 : 1) {
      auto const* byte = reinterpret_cast<unsigned char const*>(pixels->Bytes().data() + i);
      int value = c.bits > 8 ? byte[0] | byte[1] << 8 : byte[0];
      if (c.is_signed) value = c.bits > 8 ? std::int16_t(value) : std::int8_t(value);
      low = std::min(low, value);
      high = std::max(high, value);
    }
    EXPECT_GE(low, c.is_signed ? -(1 << (c.bits - 1)) : 0);
    EXPECT_LT(high, 1 << (c.bits - c.is_signed));
    EXPECT_GT(high - low, 1 << (std::min(c.bits, 12) - 3)); // there is a picture
    EXPECT_EQ(msg->Text(Dicom_Tag(0x0028, 0x0106)), std::to_string(low));
    EXPECT_EQ(msg->Text(Dicom_Tag(0x0028, 0x0107)), std::to_string(high));
  }
  auto const pixels = [](int planar) {
    return Phantom::Make({.kind = Kind::US, .size = 40, .planar = planar})->Value<Dicom_OB>(Dicom_Tag(0x7FE0, 0x0010));
  };
  Dicom_OB const by_pixel = pixels(0), by_plane = pixels(1);
  ASSERT_EQ(by_pixel.Bytes().size(), 4800U);
  for (std::size_t i = 0; i < 4800; ++i)
    ASSERT_EQ(by_pixel.Bytes()[i], by_plane.Bytes()[i % 3 * 1600 + i / 3]);
}

} // namespace
