#include <Disk/Disk_Bits.h>
#include <Disk/Disk_Error.h>
#include <Disk/Disk_FileID.h>
#include <infra/Klb_GError.h>

#include <gtest/gtest.h>

#include <tuple>

namespace {

std::string PathOf(char const* prefix, char const* id, int lowercase = 0) {
  std::unique_ptr<char[]> const path(Disk_FileID(prefix, Dicom_CS(id), lowercase).operator char*());
  return path ? path.get() : "(none)";
}

} // namespace

TEST(Disk_FileID, FormsPathsBelowThePrefixOnly) {
  std::tuple<char const*, char const*, int, std::string> const cases[] = {
      {"/d", "A\\B", 0, "/d/A/B"},
      {"/d", "", 0, "/d"},
      {nullptr, "", 0, ""},
      {"/D", "SA100000\\DIRFILE", 1, "/D/sa100000/dirfile"},
      {"/d", "A \\B", 0, "/d/A/B"},  // a padded component
      {"/d", "A\\\\B", 0, "/d/A/B"}, // an empty one
      {"/d", "A\\..\\B", 0, "(none)"},
      {"/d", "..", 0, "(none)"},
      {"/d", ".. \\B", 0, "(none)"}, // as the padding goes first
      {"/d", ".\\B", 0, "(none)"},
      {"/d", "A/../../etc", 0, "(none)"},
      {"/d", "/etc", 0, "(none)"},
  };
  for (auto const& [prefix, id, lowercase, path] : cases)
    EXPECT_EQ(PathOf(prefix, id, lowercase), path) << id;
  std::string const longest(Disk_FileID::kPathSize - 4, 'A'); // with "/d/" before it one byte short of the buffer
  EXPECT_EQ(PathOf("/d", longest.c_str()).size(), Disk_FileID::kPathSize - 1);
  EXPECT_EQ(PathOf("/d", (longest + "A").c_str()), "(none)");
}

TEST(Disk_FileID, TakesPathsApart) {
  int status = 7;
  Disk_FileID id("/d", "/d/A/B", &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(id.GetID().GetText(), "A\\B");
  EXPECT_EQ(id.Path(), "/d/A/B");
  EXPECT_EQ(id.AddComponent("DIRFILE"), 0);
  EXPECT_EQ(id.GetID().GetText(), "A\\B\\DIRFILE");
  for (char const* left : {"A\\B", "A", "", ""}) {
    EXPECT_EQ(id.RemoveLastComponent(), 0);
    EXPECT_EQ(id.GetID().GetText(), left);
  }
  EXPECT_EQ(id.AddComponent("DIRFILE"), 0);
  EXPECT_EQ(id.Path(), "/d/DIRFILE");

  for (char const* path : {"/d", "/d/", ""}) {
    KlbGError.Set(0);
    Disk_FileID const none("/d", path, &status, 0);
    EXPECT_EQ(status, -1) << path;
    EXPECT_EQ(KlbGError.Get(), DISK_ERROR_FILE_NAME);
    EXPECT_TRUE(none.GetID().IsEmpty());
  }
  EXPECT_EQ(Disk_FileID("/d", "/d/A\\B/C", &status, 0).GetID().GetNValues(), 3); // backslashes separate as well
  EXPECT_EQ(Disk_FileID().GetFileSetPrefix(), nullptr);
}

TEST(Disk_Bits, ShiftsAndRotates) {
  using Bytes = std::vector<unsigned char>;
  auto const result = [](Bytes const& bytes, void (*change)(Disk_Bits&)) {
    Disk_Bits bits(bytes.data(), int(bytes.size()) * 8);
    change(bits);
    return Bytes(&bits[0], &bits[0] + bits.NBits() / 8);
  };
  std::tuple<Bytes, void (*)(Disk_Bits&), Bytes> const cases[] = {
      {{0x80, 0, 0, 0, 0}, [](Disk_Bits& b) { b.RotateRight(7); }, {1, 0, 0, 0, 0}},
      {{0, 0, 0, 0, 1}, [](Disk_Bits& b) { b.RotateRight(7); }, {2, 0, 0, 0, 0}},
      {{2, 0, 0, 0, 0}, [](Disk_Bits& b) { b.RotateLeft(7); }, {0, 0, 0, 0, 1}},
      {{0xFF, 0xFF}, [](Disk_Bits& b) { b <<= 5; }, {0xFF, 0xE0}},
      {{0xFF, 0xFF}, [](Disk_Bits& b) { b >>= 9; }, {0, 0x7F}},
      {{0xFF, 0xFF}, [](Disk_Bits& b) { b = b >> 0; }, {0xFF, 0xFF}},
      {{0x0F, 0, 0x55}, [](Disk_Bits& b) { b |= Disk_Bits((unsigned char const*)"\xF0\1", 16); }, {0xFF, 1, 0x55}},
      {{0xFF, 1, 0x55}, [](Disk_Bits& b) { b ^= Disk_Bits((unsigned char const*)"\xFF", 8); }, {0, 1, 0x55}},
  };
  for (auto const& [from, change, to] : cases)
    EXPECT_EQ(result(from, change), to);
}
