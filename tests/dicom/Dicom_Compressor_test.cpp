#include "support/LogCapture.h"
#include "support/Objects.h"
#include "support/TempDirectory.h"
#include "support/TestImage.h"

#include <dicom/Dicom_Compressor.h>

#include <tuple>

namespace {

// What DCMTK decodes the file to; empty when it can't.
std::string DecodedByDcmtk(TempDirectory const& directory, Util_File& file) {
  std::string const command = "dcmdjpls '" + (directory / "c.dcm") + "' '" + (directory / "n.dcm") + "'";
  if (file.Write((directory / "c.dcm").c_str(), nullptr) == -1 || std::system(command.c_str()) != 0) return {};
  return PixelsOf(*ReadObject(directory / "n.dcm"));
}

void SetIcon(IOD_Msg& msg, IOD_Msg& icon) {
  Dicom_Sequence items;
  items.Append(&icon, false);
  msg.SetIconImage(Dicom_SQ(&items, 1));
}

struct {
  TestImage image;
  bool noise;
} const s_kinds[] = {
    {{}, false},
    {{}, true}, // something above the bits stored
    {{.bits_stored = 8}, false},
    {{.bits_allocated = 8, .bits_stored = 2}, false},
    {{.rows = 5, .columns = 3, .bits_allocated = 8, .bits_stored = 7, .frames = 3}, false}, // odd
    {{.rows = 1, .columns = 1}, true},
    {{.rows = 300, .columns = 1, .frames = 40}, false},
    {{.samples = 3, .bits_allocated = 8, .bits_stored = 8, .frames = 2}, false},
    {{.rows = 7, .columns = 7, .samples = 3, .bits_allocated = 8, .bits_stored = 8, .by_plane = true}, true},
    {{.samples = 3, .bits_stored = 16, .by_plane = true, .frames = 2}, false},
    {{.samples = 3, .bits_stored = 16}, true},
    {{.rows = 512, .columns = 512, .bits_allocated = 8, .bits_stored = 8}, true}, // grows
};

TEST(Dicom_Compressor, GivesTheWholeObjectBack) {
  TempDirectory const directory;
  bool const dcmtk = std::system("dcmdjpls --version >/dev/null 2>&1") == 0;
  for (auto const& kind : s_kinds) {
    SCOPED_TRACE(&kind - s_kinds);
    IOD_Msg msg = kind.image.Make(kind.image.MakePixels(kind.noise)), icon = msg;
    SetIcon(msg, icon);
    std::string const pixels = PixelsOf(msg), before = Dumped(msg);
    ASSERT_EQ(Dicom_Compressor().Compress(&msg, 0), 0);
    ASSERT_EQ(Dicom_Compressor().Compress(&icon, 0), 0);
    SetIcon(msg, icon); // which comes back with the object
    int status = 0;
    EXPECT_EQ(Dicom_Compressor().GetKolbaCompressionVersion(msg, nullptr), 1);
    EXPECT_EQ(msg.GetPlanarConfiguration(), 0); // as the standard has it
    msg.Condense();
    EXPECT_NE(msg.GetEncapsulatedSyntax(), UI_NULL);
    Util_File file(msg, &status, Util_File::GetRecomendedCommpressedTxForSave(&msg), 2, nullptr);
    ASSERT_EQ(status, 0);
    if (dcmtk && !kind.image.by_plane) {
      EXPECT_TRUE(DecodedByDcmtk(directory, file) == pixels);
    }
    Util_File again;
    again.GetBytes(file.Bytes());
    std::unique_ptr<IOD_Msg> const back(again);
    EXPECT_EQ(back->GetEncapsulatedSyntax().GetText(), "1.2.840.10008.1.2.4.80");
    ASSERT_EQ(Dicom_Compressor().Decompress(back.get()), 0);
    EXPECT_TRUE(Dumped(*back) == before);
    SetItems(icon, Item("") + Item("\xFF\x4F"), "1.2.840.10008.1.2.4.90");
    SetIcon(msg, icon); // or goes with the compressed pixels
    ASSERT_EQ(Dicom_Compressor().Decompress(&msg), 0);
    EXPECT_TRUE(msg.GetIconImage().IsEmpty() && PixelsOf(msg) == pixels);
  }
  if (!dcmtk) GTEST_SKIP() << "dcmdjpls isn't installed: nobody else decoded these";
}

void ExpectLeftAlone(IOD_Msg msg, char const* why) {
  std::string const before = Dumped(msg);
  LogCapture log;
  EXPECT_EQ(Dicom_Compressor().Compress(&msg, 1), -1);
  EXPECT_EQ(Dicom_Compressor().Compress(&msg, 0), 0);
  EXPECT_TRUE(Dumped(msg) == before) << why;
  EXPECT_EQ(log.Count(6, why), 1) << why;
}

TEST(Dicom_Compressor, LeavesAloneWhatItCannotBringBack) {
  IOD_Msg const good = TestImage().Make();
  std::tuple<char const*, uint16_t, uint16_t> const cases[] = {
      {"no rows", 0x0010, 0},    {"neither 8 nor 16", 0x0100, 1}, {"neither 1 nor 3", 0x0002, 4},
      {"length", 0x0010, 65535}, {"length", 0x0008, 65535},       {"no frames", 0x0008, 0}};
  for (auto const& [why, element, number] : cases) {
    IOD_Msg msg = good;
    msg.Set(Dicom_Tag(0x0028, element), Dicom_US(number));
    ExpectLeftAlone(msg, why);
  }
  ExpectLeftAlone(TestImage{.rows = 3, .columns = 3, .bits_allocated = 8}.Make("123456789x"), "behind its pixels");
  IOD_Msg msg = good;
  msg.Set(kPixelData, Dicom_UN("", 0, 1, nullptr));
  ExpectLeftAlone(msg, "neither OB");
  msg.Remove(kPixelData);
  msg.Set(Dicom_Tag(0x7FE0, uint16_t(0x0008)), Dicom_OF("abcd", 4, 1, nullptr));
  ExpectLeftAlone(msg, "floating");
  msg = TestImage{.samples = 3}.Make();
  msg.SetPhotometricInterpretation(Dicom_CS("YBR_FULL_422"));
  ExpectLeftAlone(msg, "subsampled");
}

TEST(Dicom_Compressor, DecodesHoweverFramesAreCut) {
  TestImage const image{.frames = 3};
  std::string const pixels = image.MakePixels();
  std::string streams[3]; // one frame each
  for (size_t i = 0; i < 3; ++i) {
    IOD_Msg one = TestImage().Make(pixels.substr(i * image.Length() / 3, image.Length() / 3));
    ASSERT_EQ(Dicom_Compressor().Compress(&one, 0), 0);
    streams[i] = PixelsOf(one).substr(20);
  }
  auto const halves = [](std::string const& s) { return Item(s.substr(0, 100)) + Item(s.substr(100)); };
  std::string const first = halves(streams[0]), second = Item(streams[1]);
  std::string const whole = Item(streams[0]) + second + Item(streams[2]);
  std::string const cut = first + second + halves(streams[2]);
  std::string const table = Little32(0) + Little32(first.size()) + Little32(first.size() + second.size());
  std::string const wrong = Little32(0) + Little32(first.size() + 2) + Little32(cut.size() + 8);
  IOD_Msg msg = image.Make({});
  std::string const padded = Item(streams[0] + "\xFF\xFF") + second + Item(streams[2] + std::string("\xFF\0\0", 3));
  for (std::string const& items :
       {Item("") + whole, Item("") + padded, Item("") + cut, Item(table) + cut, Item(wrong) + cut}) {
    SetItems(msg, items);
    ASSERT_EQ(Dicom_Compressor().Decompress(&msg), 0);
    EXPECT_TRUE(PixelsOf(msg) == pixels);
  }
}

TEST(Dicom_Compressor, RefusesWhatIsDamaged) {
  TestImage const image;
  IOD_Msg msg = image.Make();
  ASSERT_EQ(Dicom_Compressor().Compress(&msg, 0), 0);
  std::string const good = PixelsOf(msg), stream = good.substr(20);
  std::string lying = stream; // 65535 x 65535
  lying.replace(7, 4, "\xFF\xFF\xFF\xFF");
  struct {
    std::string items;
    char const *text, *syntax = "1.2.840.10008.1.2.4.80";
  } const cases[] = {
      {good, "no codec for transfer syntax 1.2.840.10008.1.2.4.90", "1.2.840.10008.1.2.4.90"},
      {"", "told apart"},
      {Item(""), "told apart"},
      {Item("") + Item(stream).substr(0, 60), "told apart"},
      {Item("") + Item(""), "frame 1"},
      {Item("") + Item(stream.substr(0, 100)), "frame 1: its end is missing"}, // takes seconds to decode
      {Item("") + Item(stream.substr(0, 100) + "\xFF\xD9"), "frame 1"},
      {Item("") + Item(lying), "65535 rows"},
  };
  for (auto const& c : cases) {
    SetItems(msg, c.items, c.syntax);
    LogCapture log;
    Dicom_DecodingFailure failure, tried;
    EXPECT_EQ(Dicom_Compressor().Decompress(&msg, &failure), -1) << c.text;
    EXPECT_EQ(log.Count(3, c.text), 1) << c.text;
    EXPECT_EQ(Dicom_Compressor().TryDecompress(msg, &tried), -1);
    EXPECT_EQ(tried.text, failure.text);
    EXPECT_EQ(failure.kind, &c == cases ? failure.NoCodec : failure.Damaged) << c.text;
    EXPECT_TRUE(PixelsOf(msg) == c.items);
  }
  for (size_t i = 0; i < good.size(); ++i) { // any answer will do, as long as it keeps to the size
    std::string bent = good;
    bent[i] = char(bent[i] ^ 0x5A);
    SetItems(msg, bent);
    if (Dicom_Compressor().Decompress(&msg) == -1) continue;
    EXPECT_EQ(PixelsOf(msg).size(), image.Length());
  }
}

} // namespace
