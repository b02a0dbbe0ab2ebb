#include "dicom/pixels/Dicom_JpegHeader.h"
#include "support/TestImage.h"

#include <dicom/Dicom_Compressor.h>
#include <dicom/GDS_Icon.h>

#include <gtest/gtest.h>
#include <thread>

namespace {

std::unique_ptr<IOD_Msg> Icon(IOD_Msg const& msg, int frame = 1) {
  return std::unique_ptr<IOD_Msg>(GDS_Icon(&msg).GetImagePixelModule(frame));
}

// The grey values of the icon's first line at the left and at the right; empty without an icon.
std::vector<int> Ends(IOD_Msg const& msg, int frame = 1) {
  std::unique_ptr<IOD_Msg> const icon = Icon(msg, frame);
  if (!icon) return {};
  std::string const pixels = PixelsOf(*icon);
  return {static_cast<unsigned char>(pixels[0]), static_cast<unsigned char>(pixels[icon->GetColumns() - 1])};
}

// Two values, the left and the right half of each line.
std::string Halves(TestImage const& image, unsigned left, unsigned right) {
  std::string pixels;
  for (unsigned i = 0; i < image.rows * image.columns * image.samples; ++i) {
    unsigned const value = i / image.samples % image.columns < image.columns / 2 ? left : right;
    pixels += char(value);
    if (image.bits_allocated == 16) pixels += char(value >> 8);
  }
  return pixels;
}

TEST(GDS_Icon, KeepsTheAspect) {
  // rows and columns of the image, of the icon
  unsigned const cases[][4] = {{100, 200, 32, 64}, {128, 64, 64, 32}, {16, 24, 16, 24}, {2000, 1, 64, 1}};
  for (auto const& c : cases) {
    std::unique_ptr<IOD_Msg> const icon = Icon(TestImage{.rows = c[0], .columns = c[1]}.Make());
    ASSERT_TRUE(icon) << c[0];
    EXPECT_EQ(icon->GetRows(), c[2]);
    EXPECT_EQ(icon->GetColumns(), c[3]);
    EXPECT_EQ(PixelsOf(*icon).size(), size_t(c[2]) * c[3]);
    EXPECT_EQ(icon->GetPhotometricInterpretation().GetText(), "MONOCHROME2");
  }
}

TEST(GDS_Icon, ShowsWhatTheImageShows) {
  struct {
    TestImage image;
    unsigned left, right;
    char const *center, *width;
    std::vector<int> expected;
  } const cases[] = {
      {{}, 100, 3000, "", "", {0, 255}}, // from the lowest to the highest value
      {{.photometric = "MONOCHROME1"}, 100, 3000, "", "", {255, 0}},
      {{}, 1000, 3000, "2000\\500", "4000\\2", {64, 191}}, // the first of two windows
      {{}, 1000, 3000, "2000", "0", {0, 255}},             // a window that is none
      {{.bits_allocated = 8, .bits_stored = 8}, 40, 200, "128", "256", {40, 200}},
      {{.samples = 3, .bits_allocated = 8, .bits_stored = 8}, 40, 200, "", "", {40, 200}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(&c - cases);
    IOD_Msg msg = c.image.Make(Halves(c.image, c.left, c.right));
    msg.Set(Dicom_Tag(0x0028, uint16_t(0x1050)), Dicom_DS(c.center));
    msg.Set(Dicom_Tag(0x0028, uint16_t(0x1051)), Dicom_DS(c.width));
    std::vector<int> const native = Ends(msg);
    ASSERT_EQ(native.size(), 2u);
    EXPECT_NEAR(native[0], c.expected[0], 1);
    EXPECT_NEAR(native[1], c.expected[1], 1);
    ASSERT_EQ(Dicom_Compressor().Compress(&msg, 0), 0);
    EXPECT_EQ(Ends(msg), native);
  }
}

TEST(GDS_Icon, ComparesJpegWithTheAttributes) {
  std::string const start("\xFF\xD8\xFF\xE0\x00\x04zz\xFF", 9), scan("\xFF\xDA\x00\x02", 4);
  std::string const frame("\xFF\xC1\x00\x0B\x0C\x00\x10\x00\x18\x01\x01", 11);
  auto const agrees = [](TestImage const& image, std::string const& stream) {
    return Dicom_CheckJpeg(Dicom_ImagePixel(image.Make({})), stream);
  };
  EXPECT_TRUE(agrees({}, start + frame));
  for (TestImage const& other : {TestImage{.rows = 17},
                                 {.columns = 4096},
                                 {.samples = 3},
                                 {.bits_allocated = 8, .bits_stored = 8},
                                 {.bits_allocated = 32}})
    EXPECT_FALSE(agrees(other, start + frame));
  for (std::string const& stream : {start + scan + frame, start + frame.substr(0, 9), frame})
    EXPECT_FALSE(agrees({}, stream));
}

TEST(GDS_Icon, IsSilentAboutWhatItCannotShow) {
  IOD_Msg const good = TestImage().Make();
  std::vector<IOD_Msg> bad(7, good);
  bad[0].Remove(kPixelData);
  bad[1].SetRows(Dicom_US(65535));
  bad[2].SetBitsStored(Dicom_US(33));
  bad[3].SetSamplesPerPixel(Dicom_US(3)); // three times the bytes that are there
  bad[4].SetPhotometricInterpretation(Dicom_CS("PALETTE COLOR"));
  SetItems(bad[5], Item("") + Item("\xFF\xD8\xFF\xD9"));
  SetItems(bad[6], Item("") + Item("\xFF\x4F\xFF\x51"), "1.2.840.10008.1.2.4.90");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  std::vector<std::thread> threads; // several may ask at once
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([copies = bad, fine = good] {
      for (IOD_Msg const& msg : copies)
        EXPECT_FALSE(Icon(msg)) << &msg - copies.data();
      EXPECT_TRUE(Icon(fine));
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
}

} // namespace
