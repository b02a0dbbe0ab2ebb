#include "support/FileSetFixture.h"

#include <Disk/Disk_Error.h>
#include <Disk/Disk_StorageStrategy.h>

namespace {

/// Opens what the derived classes use.
class OpenedFile : public Disk_DirectoryFile {
public:
  OpenedFile(std::string const& prefix, char const* name = "DIRFILE", unsigned flags = 0)
      : Disk_DirectoryFile(Disk_FileID(prefix.c_str(), Dicom_CS(name), 0), Disk_StoreParams(flags), nullptr) {}
  using Disk_DirectoryFile::file_version, Disk_DirectoryFile::IsUpToDate, Disk_DirectoryFile::MarkDirty,
      Disk_DirectoryFile::UpdateFileVersion;

  std::string FindUniqueFileName(std::string const& path) const {
    std::unique_ptr<char[]> const name(
        Disk_DirectoryFile::FindUniqueFileName(std::strcpy(new char[path.size() + 1], path.c_str())));
    return name ? name.get() : "";
  }
};

class DirectoryFileTest : public FileSetTest {
protected:
  void Touch(std::string const& name) { std::ofstream(At(name)).put('x'); }
  void SetVersion(std::string_view bytes) { directory.Write("VERSION", std::string(bytes)); }
};

} // namespace

TEST_F(DirectoryFileTest, UniqueNamesCountUp) {
  OpenedFile const file(Prefix());
  std::string const digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  auto const next = [&](char const* name) { return file.FindUniqueFileName(At(name)).substr(Prefix().size() + 1); };
  EXPECT_EQ(next("S1230"), "S1230000");
  Touch("S1230000");
  EXPECT_EQ(next("S1230"), "S1230001");
  for (char const c : digits)
    Touch(std::string("S123000") + c);
  EXPECT_EQ(next("S1230"), "S1230010");
  EXPECT_EQ(next("S"), "00000000");          // the last character goes too
  EXPECT_EQ(next("SA1234560"), "SA1234000"); // a longer name keeps its length
  std::filesystem::current_path(Prefix());
  EXPECT_EQ(file.FindUniqueFileName("S1230"), "S1230010"); // without a folder too
  std::filesystem::current_path("/");
  // when the counter is through the first letter is raised
  for (char const a : digits)
    for (char const b : digits)
      for (char const c : digits)
        Touch(std::string("Z1234") + a + b + c);
  std::filesystem::rename(At("Z12340ZZ"), At("other"));
  EXPECT_EQ(file.FindUniqueFileName(At("Z12340ZZ")), At("Z12340ZZ"));
  std::filesystem::rename(At("other"), At("Z12340ZZ"));
  KlbGError.Set(0);
  EXPECT_EQ(file.FindUniqueFileName(At("Z12340")), "");
  EXPECT_EQ(KlbGError.Get(), DISK_ERROR_OUT_OF_NAMES);
  for (auto const& [name, size] : Files())
    std::filesystem::rename(At(name), At("S123" + name.substr(4)));
  for (char const c : digits)
    Touch(std::string("S1234ZZ") + c);
  EXPECT_EQ(file.FindUniqueFileName(At("S12340")), At("T1234Z00"));
}

TEST_F(DirectoryFileTest, VersionFile) {
  OpenedFile file(Prefix());
  EXPECT_FALSE(file.IsUpToDate()) << "without VERSION a file-set is looked at again and again";
  using Case = std::pair<std::string_view, int>;            // what stands there, and what a write makes of it
  for (auto const& [bytes, next] : {Case({"\x07\0", 2}, 1), // a broken VERSION counts as none
                                    {{"\0\0\0\0", 4}, 1},
                                    {{"\x29\0\0\0", 4}, 42},
                                    {{"\xFF\xFF\xFF\x7F", 4}, 1},
                                    {{"\x07\0\0\0more", 8}, 8}}) {
    SetVersion(bytes);
    {
      LogCapture log;
      EXPECT_FALSE(file.IsUpToDate());
      EXPECT_EQ(log.Count(3, "Can't read version from VERSION file."), bytes.size() < 4);
      EXPECT_EQ(log.Lines().size(), bytes.size() < 4);
    }
    Dicom_Sequence none;
    ASSERT_EQ(file.Write(none), 0);
    EXPECT_EQ(Version(""), next);
    EXPECT_EQ(file.file_version, next);
    EXPECT_EQ(Files()["VERSION"], 4u);
    EXPECT_TRUE(file.IsUpToDate());
  }
  Dicom_Sequence* sequence = nullptr;
  IOD_Msg* msg = nullptr;
  int found = 0;
  OpenedFile reader(Prefix());
  ASSERT_EQ(reader.Read(&sequence, &found, &msg), 0);
  std::unique_ptr<IOD_Msg> const owner(msg);
  EXPECT_EQ(found, 1);
  EXPECT_EQ(sequence->GetNItems(), 0);
  EXPECT_EQ(reader.file_version, 8);
  std::filesystem::remove(At("VERSION"));
  OpenedFile medium(Prefix(), "DIRFILE", Disk_StoreParams::READ_ONLY);
  for (bool const was_looked_at : {false, true, false}) {
    EXPECT_EQ(medium.IsUpToDate(), was_looked_at) << "a read-only medium without VERSION is read once";
    if (was_looked_at) medium.ResetVersionFileStatus();
  }
}

// However long ago the directory file was written, and however often. Its own state only makes records older: a process
// may have been killed in front of its VERSION.
TEST_F(DirectoryFileTest, VersionIsComparedAtEveryLook) {
  OpenedFile file(Prefix());
  Dicom_Sequence none;
  Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  for (int write = 1; write <= 520; ++write)
    ASSERT_EQ(file.Write(none), 0);
  Util_FileSystem::SetDurability(Util_Durability::Full);
  EXPECT_EQ(file.file_version, 520);
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_TRUE(file.IsUpToDate());
  SetVersion({"\x31\0\0\0", 4});
  EXPECT_FALSE(file.IsUpToDate());
  SetVersion({"\x32\0\0\0", 4});
  ASSERT_EQ(file.UpdateFileVersion(), 0);
  EXPECT_EQ(Version(""), 51) << "it is read again";
  EXPECT_TRUE(file.IsUpToDate());
  ASSERT_EQ(OpenedFile(Prefix()).Write(none), 0);
  SetVersion({"\x33\0\0\0", 4});
  EXPECT_FALSE(file.IsUpToDate());
  struct : Disk_FileStorageStrategy {
    bool HasPendingData() override { return true; }
  } pending;
  file.SetWritingStrategy(&pending);
  file.MarkDirty();
  EXPECT_TRUE(file.IsUpToDate()) << "nothing is read back over what is pending";
}
