#include "support/FileSetFixture.h"

#include <Disk/Disk_Error.h>

namespace {

/// Opens what the derived classes use.
class OpenedFile : public Disk_DirectoryFile {
public:
  OpenedFile(std::string const& prefix, char const* name = "DIRFILE", unsigned flags = 0)
      : Disk_DirectoryFile(Disk_FileID(prefix.c_str(), Dicom_CS(name), 0), Disk_StoreParams(flags), nullptr) {}
  using Disk_DirectoryFile::file_version;
  using Disk_DirectoryFile::FindUniqueFileName;
  using Disk_DirectoryFile::GenerateFileID;
  using Disk_DirectoryFile::IsUpToDate;

  std::string Hash(char const* uid) const {
    Dicom_CS const id = GenerateFileID(Dicom_UI(uid)).GetID();
    return id.GetText();
  }
};

class DirectoryFileTest : public FileSetTest {
protected:
  void Touch(std::string const& name) { std::ofstream(At(name)).put('x'); }
};

} // namespace

TEST_F(DirectoryFileTest, UniqueNamesCountUp) {
  OpenedFile const file(Prefix());
  auto const next = [&](char const* name) { return file.FindUniqueFileName(At(name)).substr(Prefix().size() + 1); };
  EXPECT_EQ(next("S1230"), "S1230000");
  Touch("S1230000");
  EXPECT_EQ(next("S1230"), "S1230001");
  for (char const c : std::string("123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"))
    Touch(std::string("S123000") + c);
  EXPECT_EQ(next("S1230"), "S1230010");
  EXPECT_EQ(next("S"), "00000000");          // the last character goes too
  EXPECT_EQ(next("SA1234560"), "SA1234000"); // a longer name keeps its length
  std::filesystem::current_path(Prefix());
  EXPECT_EQ(file.FindUniqueFileName("S1230"), "S1230010"); // without a folder too
  std::filesystem::current_path("/");
}

TEST_F(DirectoryFileTest, UniqueNamesRaiseTheFirstLetterWhenTheCounterIsThrough) {
  OpenedFile const file(Prefix());
  static char const digits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  for (char const a : std::string(digits))
    for (char const b : std::string(digits))
      for (char const c : std::string(digits))
        Touch(std::string("Z1234") + a + b + c);
  std::filesystem::rename(At("Z12340ZZ"), At("other"));
  EXPECT_EQ(file.FindUniqueFileName(At("Z12340ZZ")), At("Z12340ZZ"));
  std::filesystem::rename(At("other"), At("Z12340ZZ"));
  KlbGError.Set(0);
  EXPECT_EQ(file.FindUniqueFileName(At("Z12340")), "");
  EXPECT_EQ(KlbGError.Get(), DISK_ERROR_OUT_OF_NAMES);
  for (auto const& entry : std::filesystem::directory_iterator(Prefix())) {
    std::string const name = entry.path().filename();
    std::filesystem::rename(entry.path(), At("S123" + name.substr(4)));
  }
  for (char const c : std::string(digits))
    Touch(std::string("S1234ZZ") + c);
  EXPECT_EQ(file.FindUniqueFileName(At("S12340")), At("T1234Z00"));
}

TEST_F(DirectoryFileTest, NamesFromUidsAreAlwaysTheSame) {
  OpenedFile const file(Prefix());
  EXPECT_EQ(file.Hash("1.2.3"), "GBFU0NQA");
  EXPECT_EQ(file.Hash("1.2.840.10008.1.1"), "T4SBYDCU");
  EXPECT_EQ(OpenedFile(Prefix(), "ABC\\DIRFILE").Hash("1.2.3"), "ABC\\GBFU0NQA");
}

TEST_F(DirectoryFileTest, EmptySequenceReadsBackAsNoRecords) {
  OpenedFile file(Prefix());
  Dicom_Sequence none;
  ASSERT_EQ(file.Write(none), 0);
  EXPECT_EQ(Version(""), 1);
  EXPECT_TRUE(file.IsUpToDate());
  Dicom_Sequence* sequence = nullptr;
  IOD_Msg* msg = nullptr;
  int found = 0;
  OpenedFile reader(Prefix());
  ASSERT_EQ(reader.Read(&sequence, &found, &msg), 0);
  std::unique_ptr<IOD_Msg> const owner(msg);
  EXPECT_EQ(found, 1);
  EXPECT_EQ(sequence->GetNItems(), 0);
  EXPECT_EQ(reader.file_version, 1);
}

TEST_F(DirectoryFileTest, VersionFile) {
  OpenedFile file(Prefix());
  Dicom_Sequence none;
  EXPECT_FALSE(file.IsUpToDate()) << "without VERSION a file-set is looked at again and again";
  std::ofstream(At("VERSION"), std::ios::binary).write("\x07\0", 2);
  {
    LogCapture log;
    EXPECT_FALSE(file.IsUpToDate());
    EXPECT_EQ(log.Count(3, "Can't read version from VERSION file."), 1);
  }
  ASSERT_EQ(file.Write(none), 0);
  EXPECT_EQ(Version(""), 1) << "a broken VERSION counts as none";
  std::ofstream(At("VERSION"), std::ios::binary).write("\0\0\0\0", 4);
  LogCapture log;
  EXPECT_FALSE(file.IsUpToDate());
  EXPECT_TRUE(log.Lines().empty());
}

TEST_F(DirectoryFileTest, ReadOnlyMediumWithoutVersionIsReadOnce) {
  OpenedFile file(Prefix(), "DIRFILE", Disk_StoreParams::READ_ONLY);
  EXPECT_FALSE(file.IsUpToDate());
  EXPECT_TRUE(file.IsUpToDate());
  file.ResetVersionFileStatus();
  EXPECT_FALSE(file.IsUpToDate());
}

TEST_F(DirectoryFileTest, DirectoryFileThatCantBeParsedIsLeftAlone) {
  auto root = Open();
  auto msg = Example();
  for (std::string const& content : {std::string(), std::string("not a DICOM file at all"), std::string(200, '\0')}) {
    std::ofstream(At("DICOMDIR")) << content;
    LogCapture log;
    EXPECT_EQ(Store(*root, *msg), -1);
    EXPECT_EQ(log.Count(3, "Store: Can't read root directory file."), 1);
    EXPECT_EQ(Files(), (std::map<std::string, std::uintmax_t>{{"DICOMDIR", content.size()}, {"LOCKFILE", 0}}));
  }
}

// A process is killed between a directory file and its VERSION. Its store was not acknowledged; who has the old
// records in memory notices all the same that the file is another one.
TEST_F(DirectoryFileTest, KillBetweenFileAndVersionLeavesNobodyStale) {
  auto first = Example();
  auto live = Open();
  ASSERT_EQ(Store(*live, *first), 0);
  ASSERT_EQ(Studies(*live), 1); // the records are in memory now
  int const version = Version("");
  auto const killed = Example({.patient = 2});
  ASSERT_EQ(Store(*Open(), *killed), 0);
  // as if the kill had come in front of the write of VERSION
  std::ofstream(At("VERSION"), std::ios::binary).write("\x01\0\0\0", 4);
  ASSERT_EQ(version, 1);

  auto const third = Example({.patient = 3});
  ASSERT_EQ(Store(*live, *third), 0);
  EXPECT_EQ(Version(""), 2);
  EXPECT_EQ(Studies(*live), 3);
  EXPECT_EQ(Studies(*Open()), 3);
  EXPECT_TRUE(Fetch(*Open(), Uids(*killed)));
}
