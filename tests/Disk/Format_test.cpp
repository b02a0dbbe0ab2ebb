// What the library writes: the dump in docs/format.md, written anew with DISK_UPDATE_DOCS in the environment; and what
// tools read that aren't ours.
#include "support/FileSetFixture.h"
#include "support/Readers.h"

#include <cstdlib>

namespace {

std::string Dump(std::string_view bytes) {
  std::string text;
  char number[32];
  for (std::size_t line = 0; line < bytes.size(); line += 16) {
    std::snprintf(number, sizeof number, "%04zx ", line);
    text += number;
    std::string characters;
    for (std::size_t i = line; i < line + 16; ++i) {
      if (i >= bytes.size()) {
        text += "   ";
        continue;
      }
      std::snprintf(number, sizeof number, " %02x", static_cast<unsigned char>(bytes[i]));
      text += number;
      characters += bytes[i] >= ' ' && bytes[i] <= '~' ? bytes[i] : '.';
    }
    text += "  " + characters + "\n";
  }
  return text;
}

using FormatTest = BothStructuresTest;
INSTANTIATE_TEST_SUITE_P(Structures, FormatTest, kBothStructures, StructureName);

} // namespace

TEST_P(FormatTest, TheDumpInTheDocumentIsWhatIsWritten) {
  Util_Clock::SetNow(1700000000);
  auto msg = Example();
  ASSERT_EQ(Store(*Open(), *msg), 0);
  std::string const file = directory.Read(structure ? "DICOMDIR" : "SA100000/S3000000/DIRFILE");
  // the meta information holds a random UID; the data set begins with File-set ID
  std::size_t const start = file.find(std::string("\x04\0\x30\x11", 4));
  ASSERT_NE(start, std::string::npos);
  std::string const expected = Dump(std::string_view(file).substr(start));

  std::string const path = DISK_SOURCE_DIR "/docs/format.md", end = "```\n<!-- end -->";
  std::string const begin = structure ? "<!-- standard dump -->\n```\n" : "<!-- private dump -->\n```\n";
  std::string text = ReadFile(path);
  std::size_t const from = text.find(begin), to = text.find(end, from);
  ASSERT_TRUE(from != std::string::npos && to != std::string::npos);
  std::size_t const body = from + begin.size();
  if (std::getenv("DISK_UPDATE_DOCS")) {
    std::ofstream(path) << text.replace(body, to - body, expected);
    GTEST_SKIP() << "docs/format.md written anew";
  }
  EXPECT_EQ(text.substr(body, to - body), expected) << "run this test with DISK_UPDATE_DOCS=1 and look at the change";
}

TEST_P(FormatTest, DirectoryFilesAndObjectsAreReadWithoutErrorOrWarning) {
  int patient = 0;
  std::set<std::string> uids;
  for (auto const kind : {Phantom::Kind::CT, Phantom::Kind::MR, Phantom::Kind::US, Phantom::Kind::MultiFrame,
                          Phantom::Kind::PR, Phantom::Kind::SR})
    for (unsigned flags : {0u, unsigned(Disk_StoreParams::STORE_NATIVE)}) {
      auto msg = Phantom::Make(
          {.kind = kind, .patient = ++patient, .size = 16, .charset = Phantom::Charset::Japanese, .key_image = "Y"});
      ASSERT_EQ(Store(*Open(flags), *msg, false, true), 0);
      uids.insert(msg->GetSOPInstanceUID().GetText());
    }
  if (structure) ExpectMedium(Prefix(), uids);
  if (!HasReaders()) GTEST_SKIP() << "dcmdump (dcmtk) and gdcmdump (libgdcm-tools) aren't installed";
  int directories = 0;
  for (auto const& [name, size] : Files()) {
    std::string const base = name.substr(name.rfind('/') + 1);
    if (base == "LOCKFILE" || base == "VERSION") continue;
    directories += base == "DIRFILE" || base == "DICOMDIR";
    ExpectReadersTake(At(name));
  }
  EXPECT_EQ(directories, structure ? 1 : 1 + 2 * patient);
}
