// What the library writes: the dump in docs/format.md, written anew with DISK_UPDATE_DOCS in the environment; and what
// tools read that aren't ours.
#include "support/DataSetProperty.h"
#include "support/FileSetFixture.h"
#include "support/Readers.h"

namespace {

std::string Dump(std::string_view bytes) {
  std::string text, characters;
  char number[32];
  for (std::size_t i = 0; i < (bytes.size() + 15) / 16 * 16; ++i) {
    if (i % 16 == 0) text.append(number, std::size_t(std::snprintf(number, sizeof number, "%04zx ", i)));
    if (i < bytes.size()) {
      std::snprintf(number, sizeof number, " %02x", static_cast<unsigned char>(bytes[i]));
      characters += bytes[i] >= ' ' && bytes[i] <= '~' ? bytes[i] : '.';
    }
    text += i < bytes.size() ? number : "   ";
    if (i % 16 == 15) text += "  " + std::exchange(characters, {}) + "\n";
  }
  return text;
}

using FormatTest = BothStructuresTest;
FOR_BOTH_STRUCTURES(FormatTest);

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
      auto const charset = Phantom::Charset(patient % 8); // all there are
      Phantom::Object const object{
          .kind = kind, .patient = ++patient, .size = 16, .charset = charset, .key_image = "Y"};
      auto msg = Phantom::Make(object);
      EXPECT_EQ(Dumped(*msg), Dumped(*Phantom::Make(object))) << "it is the same each time";
      EXPECT_EQ(DataSetProperty::Difference(
                    *msg, *DataSetProperty::Read(DataSetBytes::File("1.2.840.10008.1.2.1", Dumped(*msg))), false),
                "");
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
