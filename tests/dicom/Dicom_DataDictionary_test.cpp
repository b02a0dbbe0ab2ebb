#include <dicom/Dicom_DataDictionary.h>

#include <gtest/gtest.h>

namespace {

TEST(Dicom_DataDictionary, FindsVRAndKeyword) {
  struct {
    uint16_t group, element;
    Dicom_VR vr;
    char const* keyword; // null: no entry
  } const cases[] = {
      {0x0000, 0x0000, Dicom_VR::UL, "CommandGroupLength"}, // the first
      {0xFFFE, 0xE0DD, Dicom_VR::None, "SequenceDelimitationItem"},
      {0x0004, 0x1400, Dicom_VR::UL, "OffsetOfTheNextDirectoryRecord"}, // "up"
      {0x0028, 0x0106, Dicom_VR::xs, "SmallestImagePixelValue"},
      {0x0028, 0x3006, Dicom_VR::lt, "LUTData"},
      {0x7FE0, 0x0010, Dicom_VR::px, "PixelData"},
      {0x6000, 0x3000, Dicom_VR::ox, "OverlayData"},
      {0x60FE, 0x0010, Dicom_VR::US, "OverlayRows"},
      {0x6100, 0x0010, Dicom_VR::UN, nullptr}, // above the repeating group
      {0x5002, 0x0005, Dicom_VR::US, "CurveDimensions"},
      {0x7F10, 0x0010, Dicom_VR::ox, "VariablePixelData"},
      {0x0020, 0x3100, Dicom_VR::CS, "SourceImageIDs"},
      {0x0020, 0x3200, Dicom_VR::UN, nullptr},
      {0x0014, 0x3050, Dicom_VR::ox, "DarkCurrentCounts"}, // of another industry
      {0x0008, 0x0000, Dicom_VR::UL, nullptr},             // group length
      {0x0029, 0x000F, Dicom_VR::UN, nullptr},             // creators are 10 to FF
      {0x0029, 0x0010, Dicom_VR::LO, nullptr},
      {0x0029, 0x00FF, Dicom_VR::LO, nullptr},
      {0x0029, 0x1010, Dicom_VR::UN, nullptr},
      {0x6001, 0x0010, Dicom_VR::LO, nullptr}, // private, not an overlay
      {0x0008, 0x0003, Dicom_VR::UN, nullptr},
  };
  for (auto [group, element, vr, keyword] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << group << ',' << element);
    EXPECT_EQ(Dicom_DataDictionary::VROf(group, element), vr);
    auto const* entry = Dicom_DataDictionary::Find(group, element);
    ASSERT_EQ(entry != nullptr, keyword != nullptr);
    if (!entry) continue;
    EXPECT_STREQ(entry->keyword, keyword);
    EXPECT_EQ(Dicom_DataDictionary::FindKeyword(keyword), entry);
  }
}

} // namespace
