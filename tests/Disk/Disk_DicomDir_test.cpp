// The bytes of a standard DICOMDIR, its chains, and the strategies that it is written through.
#include "support/DataSetBytes.h"
#include "support/LogCapture.h"
#include "support/TempDirectory.h"

#include <Disk/Disk_DicomDir.h>
#include <Disk/Disk_InstanceDirectoryRecord.h>
#include <Disk/Disk_RecordList.h>
#include <Disk/Disk_StorageStrategy.h>
#include <infra/Util_FileSystem.h>

#include <fcntl.h>

#include <cerrno>
#include <gtest/gtest.h>
#include <optional>
#include <tuple>

namespace {

struct Syntax {
  char const* name;
  char const* uid;
  DataSetBytes bytes;
} const kSyntaxes[] = {{"explicit", "1.2.840.10008.1.2.1", {true, false}},
                       {"implicit", "1.2.840.10008.1.2", {false, false}},
                       {"big endian", "1.2.840.10008.1.2.2", {true, true}}};

/// The prefix of a DICOMDIR as this system makes one, in any syntax.
std::string Prefix(Syntax const& s, std::uint32_t first, std::uint32_t last, std::uint32_t length,
                   std::string const& id = "", std::uint32_t flag = 0) {
  DataSetBytes const& b = s.bytes;
  return b.Text(0x00041130, "CS", id) + b.Element(0x00041200, "UL", b.Number(first, 4)) +
         b.Element(0x00041202, "UL", b.Number(last, 4)) + b.Element(0x00041212, "US", b.Number(flag, 2)) +
         b.Claiming(0x00041220, "SQ", length);
}

std::string Meta(char const* uid) { return DataSetBytes::File(uid, ""); }

class DicomDirTest : public testing::Test {
protected:
  std::string Path() const { return directory / "DICOMDIR"; }
  std::string Content() const { return directory.Read("DICOMDIR"); }
  std::unique_ptr<Disk_DicomDir> Init(int expected = 0, bool read_only = false,
                                      Disk_StorageStrategy* strategy = nullptr) {
    auto dicomdir = std::make_unique<Disk_DicomDir>();
    EXPECT_EQ(dicomdir->Init(directory.Path().c_str(), read_only, strategy), expected);
    return dicomdir;
  }
  TempDirectory directory;
};

using InstanceList = Disk_RecordList<Disk_InstanceDirectoryRecord>;

std::unique_ptr<Disk_InstanceDirectoryRecord> Record(int number) {
  IOD_Msg msg;
  msg.SetModality(Dicom_CS("CT"));
  msg.SetImageNumber(Dicom_IS(number));
  msg.SetSOPInstanceUID(Dicom_UI("1.2." + std::to_string(number)));
  auto record = std::make_unique<Disk_InstanceDirectoryRecord>();
  EXPECT_EQ(record->FillInstanceRecord(msg, true, false), 0);
  return record;
}

} // namespace

TEST_F(DicomDirTest, NewFileIsAPrefixAndAnEmptySequence) {
  Init(-1, true); // nothing to read, and nothing is made
  EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
  auto const dicomdir = Init();
  std::string const content = Content();
  EXPECT_EQ(dicomdir->GetOffsetEnd(), content.size());
  EXPECT_EQ(unsigned(dicomdir->GetOffsetOfTheFirstDirectoryRecord()), content.size());
  std::string const data_set = Prefix(kSyntaxes[0], std::uint32_t(content.size()), std::uint32_t(content.size()), 0);
  ASSERT_TRUE(content.ends_with(data_set));
  EXPECT_EQ(content.substr(128, 4), "DICM");
  DataSetBytes const b;
  EXPECT_NE(content.find(b.Text(0x00020002, "UI", "1.2.840.10008.1.3.10") + b.Text(0x00020003, "UI", "")),
            content.npos);
  EXPECT_EQ(std::filesystem::status(Path()).permissions() & std::filesystem::perms::others_write,
            std::filesystem::perms::none);
  EXPECT_EQ(dicomdir->SetFileSetID(Dicom_CS("ID")), -1) << "there is no room for one";
  // a strategy that keeps it changes nothing; and what is empty was never one
  Disk_MemoryStorageStrategy memory;
  std::filesystem::remove(Path());
  Init(0, false, &memory);
  EXPECT_EQ(Content(), content);
  EXPECT_TRUE(memory.HasPendingData());
  directory.Write("DICOMDIR", "");
  Init(-1, false, &memory);
  EXPECT_EQ(Content(), "");
  // another name is used only if it is alone
  directory.Write("dicomdir", content);
  EXPECT_EQ(Init(-1)->IsLowercase(), 0);
  std::filesystem::remove(Path());
  EXPECT_EQ(Init()->IsLowercase(), 1);
}

// Prefix, header and item in three syntaxes, with and without the length of the sequence and its delimiter.
TEST_F(DicomDirTest, BytesInEverySyntax) {
  for (Syntax const& s : kSyntaxes)
    for (int const form : {0, 1, 2}) { // defined length; undefined with a delimiter; without one
      SCOPED_TRACE(std::string(s.name) + " " + std::to_string(form));
      DataSetBytes const& b = s.bytes;
      std::string const meta = Meta(s.uid);
      auto const first = std::uint32_t(meta.size() + Prefix(s, 0, 0, 0, "OLD_ID").size());
      std::string const body = b.Record(0, 0, "IMAGE", b.Text(0x00041511, "UI", "1.2.3"));
      std::string const item = b.Item(body);
      std::string const before =
          meta + Prefix(s, first, first, form == 0 ? std::uint32_t(item.size()) : DataSetBytes::undefined, "OLD_ID");
      directory.Write("DICOMDIR", before + item + (form == 1 ? b.SequenceEnd() : ""));
      LogCapture log;
      auto const dicomdir = Init();
      unsigned const end = first + unsigned(item.size());
      EXPECT_EQ(dicomdir->GetOffsetEnd(), end);
      EXPECT_EQ(log.Count(4, "last tag is not sequence delimination item."), form == 2 ? 1 : 0);

      InstanceList list;
      ASSERT_EQ(list.ReadRecords(dicomdir->GetFd(), dicomdir->Syntax(), first), 0);
      ASSERT_EQ(list.entries(), 1u);
      auto* old = static_cast<Disk_InstanceDirectoryRecord*>(list.first());
      EXPECT_EQ(old->GetRecordMsg()->GetSOPInstanceUID().View(), "1.2.3") << "added for lookups";
      auto record = Record(2);
      unsigned const length = record->GetRecordMsg()->GetDumpLen(dicomdir->Syntax(), 0, {});
      ASSERT_EQ(list.AddNewRecord(record.get(), end), 0);
      Disk_InstanceDirectoryRecord const* added = record.release();
      ASSERT_EQ(dicomdir->Reserve(*added->GetRecordMsg()), 0);
      EXPECT_EQ(dicomdir->SetFileSetID(Dicom_CS("LONGER_ID")), -1);
      EXPECT_EQ(dicomdir->SetFileSetID(Dicom_CS("NEW")), 0);
      EXPECT_EQ(dicomdir->SetFileSetConsistencyFlag(Dicom_US(0xFFFF)), 0);
      ASSERT_EQ(dicomdir->Write(nullptr), 0);
      ASSERT_EQ(list.WriteRecords(dicomdir->GetFd(), dicomdir->Syntax(), first, nullptr), 0);

      std::string added_bytes(length, '\0');
      added->GetRecordMsg()->Dump(added_bytes.data(), length, dicomdir->Syntax(), 0, nullptr);
      std::string const expected =
          meta + Prefix(s, first, first, std::uint32_t(item.size()) + length + 8, "NEW   ", 0xFFFF) +
          b.Item(b.Record(end, 0, "IMAGE", b.Text(0x00041511, "UI", "1.2.3"))) + b.Item(added_bytes);
      EXPECT_EQ(Content(), expected);
      EXPECT_TRUE(b.Item("").starts_with(b.big_endian ? "\xFF\xFE\xE0" : std::string("\xFE\xFF\0\xE0", 4)));
    }
}

TEST_F(DicomDirTest, ChainsThatCantBeReadFail) {
  DataSetBytes const b;
  std::string const meta = Meta(kSyntaxes[0].uid);
  auto const first = std::uint32_t(meta.size() + Prefix(kSyntaxes[0], 0, 0, 0).size());
  auto const size = std::uint32_t(b.Item(b.Record(0, 0, "IMAGE")).size());
  std::pair<std::string, char const*> const cases[] = {
      {b.Item(b.Record(first, 0, "IMAGE")), "is reached twice"}, // it is its own next
      {b.Item(b.Record(first + size, 0, "IMAGE")), "Failed reading item tag from file."},
      {b.Item(b.Record(100, 0, "IMAGE")), "is not an item tag."}, // before the records
      {b.Item(b.Record(0, 0, "SERIES")), "can't stand below its own level."},
      {b.Claiming(0xFFFEE000, "", 5000, b.Record(0, 0, "IMAGE")), "Failed constructing the record."},
      {std::string("\xFE\xFF\x00\xE0\x10", 5), "Failed reading from file."}, // half a header
  };
  for (auto const& [items, message] : cases) {
    SCOPED_TRACE(message);
    std::string const content = meta + Prefix(kSyntaxes[0], first, first, std::uint32_t(items.size())) + items;
    directory.Write("DICOMDIR", content);
    auto const dicomdir = Init();
    LogCapture log;
    InstanceList list;
    EXPECT_EQ(list.ReadRecords(*dicomdir, first), -1);
    EXPECT_GE(log.Count(3, message), 1);
    EXPECT_EQ(Content(), content);
  }
  // an item of undefined length is read, and an unknown type passed on
  std::string const items = b.OpenItem(b.Record(0, 0, "NEW KIND"));
  directory.Write("DICOMDIR", meta + Prefix(kSyntaxes[0], first, first, std::uint32_t(items.size())) + items);
  InstanceList list;
  EXPECT_EQ(list.ReadRecords(*Init(), first), 0);
  EXPECT_EQ(list.entries(), 1u);
}

TEST_F(DicomDirTest, OnlyNewAndChangedRecordsAreWritten) {
  Dicom_TransferSyntax const& syntax = Dicom_TransferSyntax::Native();
  InstanceList list;
  unsigned offset = 100, places[3];
  for (int i = 0; i < 3; ++i) {
    auto record = Record(i);
    places[i] = offset;
    ASSERT_EQ(list.AddNewRecord(record.get(), offset), 0);
    offset += 8 + record.release()->GetRecordMsg()->GetDumpLen();
  }
  directory.Write("a", std::string(100, 'x'));
  {
    Util_FileDescriptor const file = Util_FileSystem::Open((directory / "a").c_str(), O_RDWR);
    ASSERT_EQ(list.WriteRecords(file.Get(), syntax, places[0], nullptr), 0);
    ASSERT_EQ(list.ReadRecords(file.Get(), syntax, places[0]), 0);
    EXPECT_EQ(list.entries(), 3u);
    std::string const whole = directory.Read("a");
    EXPECT_EQ(whole.size(), offset);
    // a fourth one: the third gets its link, the others stay untouched, whatever stands there
    directory.Write("a", std::string(places[2], 'x') + "header.." + std::string(offset - places[2] - 8, 'x'));
    auto record = Record(3);
    ASSERT_EQ(list.AddNewRecord(record.get(), offset), 0);
    record.release();
    ASSERT_EQ(list.WriteRecords(file.Get(), syntax, places[0], nullptr), 0);
    std::string const now = directory.Read("a");
    EXPECT_EQ(now.substr(0, places[2]), std::string(places[2], 'x'));
    EXPECT_EQ(now.substr(places[2], 8), "header..") << "an old record's item keeps tag and length";
    EXPECT_NE(now[places[2] + 8], 'x');
    // whatever the address of a strategy, and however a record came to the list
    std::optional<Disk_MemoryStorageStrategy> strategy;
    InstanceList appended;
    auto* const last = static_cast<Disk_InstanceDirectoryRecord*>(appended.append(Record(4).release()));
    last->SetNew(false);
    for (bool const changed : {false, true}) {
      EXPECT_EQ(list.WriteRecords(-1, syntax, places[0], &strategy.emplace()), 0);
      EXPECT_TRUE(strategy->HasPendingData());
      strategy.emplace();
      last->SetChanged(changed);
      EXPECT_EQ(appended.WriteRecords(-1, syntax, places[0], &*strategy), 0);
      EXPECT_EQ(strategy->HasPendingData(), changed);
    }
    // a record that would not fit its place: nothing is written
    auto* second = static_cast<Disk_InstanceDirectoryRecord*>(list.at(1));
    second->GetRecordMsg()->SetImageLabel(Dicom_SH("grown"));
    second->SetChanged(true);
    EXPECT_EQ(list.WriteRecords(file.Get(), syntax, places[0], nullptr), -1);
    EXPECT_EQ(directory.Read("a"), now);
    second->SetRecordInUseFlag(Dicom_US(0));
    EXPECT_EQ(list.CountRecordsInUse(), 3);
  }
  EXPECT_EQ(InstanceList().ReadRecords(-1, syntax, 0), 0) << "offset 0 stands for an empty chain";
  LogCapture log;
  InstanceList changed;
  auto record = Record(4);
  record->SetNew(false);
  record->SetChanged(true);
  ASSERT_EQ(changed.AddNewRecord(record.release(), 100), 0);
  EXPECT_EQ(changed.WriteRecords(-1, syntax, 100, nullptr), -1);
  EXPECT_EQ(InstanceList().ReadRecords(-1, syntax, 100), -1);
  EXPECT_EQ(Disk_DicomDir().Init((directory / "none").c_str(), false, nullptr), -1);
  directory.Write("DICOMDIR", Meta(kSyntaxes[0].uid));
  EXPECT_EQ(Disk_DicomDir().Init(directory.Path().c_str(), false, nullptr), -1);
  for (char const* line :
       {"WriteRecords: Failed seeking to the offset. errno 9.", "ReadRecords: Failed setting the offset. errno 9.",
        "/none/DICOMDIR (errno=2).", "read_until_records: Failed constructing Dicom_ME."})
    EXPECT_EQ(log.Count(3, line), 1) << line;
}

TEST_F(DicomDirTest, StrategiesSeekWriteAndFlush) {
  std::string const text = "0123456789012345678901234567890123456789";
  for (auto const& [size, capacity] : {std::pair(15u, 16L), {16u, 32L}, {31u, 64L}, {40u, 64L}}) {
    Disk_MemoryStorageStrategy strategy(16);
    EXPECT_EQ(strategy.LSeek(0, 2), 0);
    EXPECT_EQ(strategy.Write(text.data(), size), int(size));
    EXPECT_TRUE(strategy.HasPendingData());
    EXPECT_EQ(strategy.LSeek(capacity, 0), -1) << size;
    EXPECT_EQ(strategy.LSeek(capacity - 1, 0), capacity - 1) << size;
    EXPECT_EQ(strategy.LSeek(-capacity, 1), -1);
    EXPECT_EQ(strategy.LSeek(0, 3), -1);
    EXPECT_EQ(strategy.LSeek(-1, 2), long(size) - 1);
  }
  directory.Write("a", "the file as it was");
  Util_FileDescriptor const file = Util_FileSystem::Open((directory / "a").c_str(), O_RDWR);
  Disk_MemoryStorageStrategy strategy(16);
  strategy.InitFD(file.Get());
  EXPECT_EQ(strategy.UpdateFromFile(), 0);
  EXPECT_FALSE(strategy.HasPendingData());
  EXPECT_EQ(strategy.LSeek(4, 0), 4);
  EXPECT_EQ(strategy.Write("FILE", 4), 4);
  EXPECT_EQ(directory.Read("a"), "the file as it was");
  EXPECT_TRUE(strategy.Flush());
  EXPECT_FALSE(strategy.HasPendingData());
  EXPECT_EQ(directory.Read("a"), "the FILE as it was");
  // what was not read must not be flushed
  LogCapture log;
  Disk_MemoryStorageStrategy closed(16);
  closed.InitFD(-1);
  EXPECT_EQ(closed.UpdateFromFile(), -1);
  EXPECT_EQ(closed.Write("x", 1), -1);
  EXPECT_EQ(log.Count(3, "memory storage could not be updated!"), 1);
  Disk_FileStorageStrategy through;
  through.InitFD(file.Get());
  EXPECT_EQ(through.LSeek(0, 0), 0);
  EXPECT_EQ(through.Write("THE", 3), 3);
  EXPECT_FALSE(through.HasPendingData());
  EXPECT_EQ(directory.Read("a"), "THE FILE as it was");
}
