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

TEST(Phantom, UidsAreOfOneObjectOnly) {
  std::set<std::string> uids;
  std::set<std::string> patients;
  for (std::uint64_t const seed : {0, 1, 2})
    for (int place = 0; place < 81; ++place) {
      Phantom::Object const object{.patient = place % 3 + 1,
                                   .study = place / 3 % 3 + 1,
                                   .series = place / 9 % 3 + 1,
                                   .image = place / 27 + 1,
                                   .seed = seed};
      patients.insert(Phantom::PatientId(object).GetText());
      for (Dicom_UI const& uid :
           {Phantom::StudyUid(object), Phantom::SeriesUid(object), Phantom::InstanceUid(object)}) {
        EXPECT_EQ(uid.View().substr(0, 5), "2.25.");
        EXPECT_EQ(uid.View().find_first_not_of("0123456789", 5), std::string_view::npos);
        EXPECT_NE(uid.View()[5], '0');
        EXPECT_LE(uid.View().size(), 44U);
        uids.insert(uid.GetText());
      }
    }
  EXPECT_EQ(uids.size(), 3U * (9 + 27 + 81));
  EXPECT_EQ(patients.size(), 9U);
}

TEST(Phantom, ObjectsOfAStudyAgree) {
  std::unique_ptr<IOD_Msg> const first = Phantom::Make({.patient = 4, .study = 2});
  for (Kind const kind : kKinds) {
    std::unique_ptr<IOD_Msg> const msg =
        Phantom::Make({.kind = kind, .patient = 4, .study = 2, .series = 3, .image = 9});
    for (auto const* keyword :
         {"PatientName", "PatientID", "IssuerOfPatientID", "PatientBirthDate", "PatientSex", "StudyInstanceUID",
          "StudyDate", "StudyTime", "StudyID", "StudyDescription", "AccessionNumber", "ReferringPhysicianName"}) {
      Dicom_Tag const tag(Dicom_DataDictionary::FindKeyword(keyword)->tag);
      EXPECT_NE(msg->Text(tag), "") << keyword;
      EXPECT_EQ(msg->Text(tag), first->Text(tag)) << keyword;
    }
    EXPECT_EQ(msg->GetSeriesNumber(), Dicom_IS(3));
    EXPECT_EQ(msg->GetImageNumber(), Dicom_IS(9));
    EXPECT_EQ(msg->GetModality(), Phantom::Modality(kind));
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

TEST(Phantom, PresentationStatesReferToImages) {
  std::unique_ptr<IOD_Msg> const msg =
      Phantom::Make({.kind = Kind::PR, .series = 9, .references = {{Kind::MR, 2, 4}, {Kind::CT, 5, 1}}});
  Dicom_SQ const series = msg->GetReferencedSeriesSequence();
  ASSERT_EQ(series.GetNValues(), 2);
  IOD_Msg const item(*series.GetSequence()->Get(0));
  EXPECT_EQ(item.GetSeriesInstanceUID(), Phantom::SeriesUid({.series = 2}));
  Dicom_SQ const images = item.GetReferencedImageSequence();
  ASSERT_EQ(images.GetNValues(), 4);
  IOD_Msg const last(*images.GetSequence()->Get(3));
  EXPECT_EQ(last.GetReferencedSOPInstanceUID(), Phantom::InstanceUid({.series = 2, .image = 4}));
  EXPECT_EQ(last.GetReferencedSOPClassUID(), Phantom::SopClass({.kind = Kind::MR}));
}

TEST(Phantom, NumbersOutOfRangeMakeNothing) {
  Phantom::Object const impossible[] = {{.patient = 0}, {.image = -1},    {.size = 0},   {.size = 20'000},
                                        {.bits = 7},    {.bits = 17},     {.planar = 2}, {.frames = 0},
                                        {.slices = 0},  {.observers = -1}};
  for (Phantom::Object const& object : impossible)
    EXPECT_FALSE(Phantom::Make(object));
}

TEST(Phantom, OtherReadersAgree) {
  if (std::system("which dcmdump dciodvfy >/dev/null 2>&1") != 0) GTEST_SKIP() << "needs dcmdump and dciodvfy";
  TempDirectory directory;
  for (Kind const kind : kKinds) {
    std::string const path = directory / "a.dcm";
    std::string error;
    ASSERT_EQ(
        Phantom::Write({.kind = kind, .series = 2, .image = 3}, path, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, &error), 0)
        << error;
    EXPECT_EQ(std::system(("dcmdump -q +E " + path + " >/dev/null 2>" + path + ".log").c_str()), 0);
    EXPECT_EQ(directory.Read("a.dcm.log"), "");
    EXPECT_NE(std::system(("dciodvfy " + path + " 2>&1 | grep '^Error'").c_str()), 0) << int(kind);
  }
}

} // namespace
