#include <Disk/Disk_RecordList.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/records/Disk_RecordWindow.h"
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <Disk/Disk_StorageStrategy.h>
#include <dicom/IOD_Image.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_Buffer.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <unistd.h>
#include <unordered_map>

namespace {

constexpr unsigned kHeader = 8; // tag and length of an item
constexpr char kCantConstruct[] = "ReadRecords: Failed constructing the record.\n";

/// An open file as it stands.
class File : public Disk_RecordSource {
public:
  File(int fd, Dicom_TransferSyntax const& syntax) : fd_(fd), syntax_(syntax) {
    struct stat status {};
    if (Util_FileSystemInterface::Current().Fstat(fd, &status) == 0)
      end_ = unsigned(std::clamp<off_t>(status.st_size, 0, UINT32_MAX));
  }
  int Seek(unsigned offset) const override {
    return Util_FileSystemInterface::Current().Lseek(fd_, off_t(offset), SEEK_SET) == -1 ? -1 : 0;
  }
  long ReadAt(void* data, unsigned size, unsigned offset) const override {
    return Util_FileSystem::PreadAll(fd_, data, size, off_t(offset));
  }
  Dicom_TransferSyntax const& Syntax() const override { return syntax_; }
  unsigned RecordsBegin() const override { return 1; }
  unsigned RecordsEnd() const override { return end_; }
  bool Claim(unsigned offset, unsigned length, unsigned owner) const override {
    return claims_.Add(offset, length, owner, end_);
  }

private:
  int fd_;
  Dicom_TransferSyntax const& syntax_;
  unsigned end_ = 0;
  mutable Disk_RecordClaims claims_;
};

/// The level that a record type belongs to; -1 for one that isn't bound to a level.
int LevelOf(Dicom_CS const& type) {
  if (type == IOD_Image::PATIENT) return 0;
  if (type == IOD_Image::STUDY) return 1;
  return type == IOD_Image::SERIES ? 2 : -1;
}

} // namespace

/// The records by the text of one attribute.
struct Disk_RecordChain::Index {
  Dicom_Tag tag;
  unsigned searches = 0;
  std::unordered_map<std::string, std::vector<Disk_DirectoryRecord*>> records;
  std::size_t entries = 0; // of the list that are in it
  const_iterator last{nullptr};
};

Disk_RecordChain::Disk_RecordChain() = default;

Disk_RecordChain::~Disk_RecordChain() { clearAndDestroy(); }

void Disk_RecordChain::clearAndDestroy() {
  unwritten_.clear();
  indexes_.clear();
  RWSlistCollectables::clearAndDestroy();
}

RWCollectable* Disk_RecordChain::remove(RWCollectable const* item) {
  indexes_.clear();
  std::erase(unwritten_, item);
  return RWSlistCollectables::remove(item);
}

int Disk_RecordChain::CountRecordsInUse() const {
  int count = 0;
  for (RWCollectable* record : *this)
    if (static_cast<Disk_DirectoryRecord*>(record)->GetRecordInUseFlag() != Dicom_US(0)) ++count;
  return count;
}

int Disk_RecordChain::Take(std::unique_ptr<Dicom_Msg> msg) {
  std::unique_ptr<Disk_DirectoryRecord> record = make();
  if (auto* const own = dynamic_cast<IOD_Msg*>(msg.get())) {
    msg.release();
    record->record_msg.reset(own);
  } else {
    record->record_msg = std::make_unique<IOD_Msg>(std::move(*msg));
  }
  if (record->ValidateDirectoryRecord() == -1) return -1;
  record->record_msg->BringInOrder();
  append(record.get());
  record.release();
  return 0;
}

// Reading

int Disk_RecordChain::ReadRecords(int fd, Dicom_TransferSyntax const& syntax, unsigned offset) {
  return ReadRecords(File(fd, syntax), offset);
}

int Disk_RecordChain::ReadRecords(Disk_RecordSource const& source, unsigned offset, unsigned owner) {
  return Disk_WithCause([&] { return read_chain(source, offset, owner); });
}

int Disk_RecordChain::read_chain(Disk_RecordSource const& source, unsigned offset, unsigned owner) {
  DISK_LOG(7, "ReadRecords: record offset is %d.\n", int(offset));
  clearAndDestroy();
  Disk_RecordWindow window(source);
  Disk_PassingOver const damage{source.PassesOverDamage()};
  // a loop is noticed by going on from a remembered place, moved ever more rarely, which needs no memory
  unsigned remembered = 0;
  for (std::size_t steps = 1, next_move = 1; offset != 0; ++steps) {
    if (offset == remembered) {
      DISK_FAIL(DISK_FAILURE_DAMAGED, "ReadRecords: the record at offset %u is reached twice.\n", offset);
      return damage.Failed();
    }
    if (steps == next_move) {
      remembered = offset;
      next_move *= 2;
    }
    auto const read = [&] { return read_record(source, window, offset, owner); };
    if (Disk_Allocating(kCantConstruct, read) == -1) return damage.Failed();
    offset = static_cast<Disk_DirectoryRecord*>(last())->GetOffsetOfTheNextDirectoryRecord();
  }
  return 0;
}

int Disk_RecordChain::read_record(Disk_RecordSource const& source, Disk_RecordWindow& window, unsigned offset,
                                  unsigned owner) {
  if (source.Seek(offset) == -1)
    return DISK_FAIL(Klb_System(errno, "seek in the directory records").Unset(),
                     "ReadRecords: Failed setting the offset. errno %d.\n", errno);
  unsigned const end = source.RecordsEnd();
  bool const outside = offset < source.RecordsBegin() || offset >= end;
  if (outside)
    DISK_FAIL(DISK_FAILURE_DAMAGED, "ReadRecords: offset %u in the chain of %u is outside of the records.\n", offset,
              owner);
  if (offset >= end)
    return DISK_FAIL(DISK_FAILURE_DAMAGED, "ReadRecords: Failed reading item tag from file. errno %d.\n", errno);
  Dicom_Msg msg;
  unsigned length = 0;
  if (window.Read(offset, &msg, &length) == -1 || outside) return -1;
  msg.BringInOrder();
  std::unique_ptr<Disk_DirectoryRecord> record = make();
  record->record_msg = std::make_unique<IOD_Msg>(std::move(msg));
  if (!source.Claim(offset, length, owner))
    return DISK_FAIL(
        DISK_FAILURE_DAMAGED,
        "ReadRecords: the record at offset %u is reached twice, stands in another, or is one of too many.\n", offset);
  Dicom_CS const type = record->GetDirectoryRecordType();
  if (int const its = LevelOf(type); its != -1 && its < level())
    return DISK_FAIL(DISK_FAILURE_DAMAGED, "ReadRecords: a %s record can't stand below its own level. offset is %u\n",
                     type.CStr(), offset);
  record->place_at(offset, length - kHeader);
  record->keep_lookup_uid();
  record->enlist_in(&unwritten_);
  Disk_PassingOver const damage{source.PassesOverDamage()};
  if (LevelOf(type) == level() && read_below(*record, source, offset) == -1 && damage.Failed() == -1)
    return DISK_FAIL_TEXT(kCantConstruct);
  append(record.get());
  record.release();
  return 0;
}

// Writing

int Disk_RecordChain::add_new_record(Disk_DirectoryRecord* record, unsigned offset) {
  if (auto* const before = static_cast<Disk_DirectoryRecord*>(last())) {
    if (before->SetOffsetOfTheNextDirectoryRecord(Dicom_UL(offset)) == -1)
      return DISK_FAIL("AddNewRecord: Failed update the last record.\n");
    before->SetChanged(true);
  }
  record->place_at(offset, Disk_DirectoryRecord::kUnknownLength);
  append(record); // what follows leaves it to its caller when it fails
  try {
    record->enlist_in(&unwritten_);
  } catch (...) {
    remove(record);
    throw;
  }
  return 0;
}

/// A descriptor or a strategy. Each step has the message of its failure, for the one and for the other.
struct Disk_RecordChain::Output {
  struct Texts {
    char const *through_strategy, *to_descriptor;
  };
  static constexpr Texts kSeekTag{"WriteRecords: Failed seeking to the item tag.\n",
                                  "WriteRecords: Failed seeking to the item tag. errno %d\n"},
      kTag{"WriteRecords: Failed writing the item tag number.\n",
           "WriteRecords: Failed writing the item tag number. errno %d.\n"},
      kLength{"WriteRecords: Failed writing the item length.\n",
              "WriteRecords: Failed writing the item length. errno %d.\n"},
      kSeekBody{"WriteRecords: Failed seeking to the offset.\n",
                "WriteRecords: Failed seeking to the offset. errno %d.\n"},
      kBody{"WriteRecords: Failed writing the record.\n", "WriteRecords: Failed writing the record. errno %d.\n"};

  int fd;
  Disk_StorageStrategy* strategy;

  int Seek(unsigned offset, Texts const& texts) const {
    if (strategy ? strategy->LSeek(long(offset), 0) != -1
                 : Util_FileSystemInterface::Current().Lseek(fd, off_t(offset), SEEK_SET) != -1)
      return 0;
    return Failed(texts);
  }
  int Write(void const* data, unsigned size, Texts const& texts) const {
    if (strategy ? strategy->Write(data, size) == int(size) : Util_FileSystem::WriteAll(fd, data, size) == 0) return 0;
    return Failed(texts);
  }
  int Failed(Texts const& texts) const {
    Klb_Cause const cause = Klb_System(errno, "write the directory records").Unset();
    return strategy ? DISK_FAIL_TEXT(cause, texts.through_strategy) : DISK_FAIL(cause, texts.to_descriptor, errno);
  }
};

int Disk_RecordChain::WriteRecords(int fd, Dicom_TransferSyntax const& syntax, unsigned offset,
                                   Disk_StorageStrategy* strategy) {
  return Disk_WithCause([&] { return write_chain(fd, syntax, offset, strategy); });
}

int Disk_RecordChain::write_chain(int fd, Dicom_TransferSyntax const& syntax, unsigned offset,
                                  Disk_StorageStrategy* strategy) {
  Output output{fd, strategy};
  for (RWCollectable* item : *this) {
    auto const& record = static_cast<Disk_DirectoryRecord const&>(*item);
    if ((record.IsNew() || record.Changed()) && !fits(record, syntax)) return -1;
  }
  for (RWCollectable* item : *this) {
    auto const& record = static_cast<Disk_DirectoryRecord const&>(*item);
    if ((record.IsNew() || record.Changed()) && write_record(output, syntax, record, offset) == -1) return -1;
    offset = record.GetOffsetOfTheNextDirectoryRecord();
  }
  return 0;
}

int Disk_RecordChain::WriteUnwritten(Dicom_TransferSyntax const& syntax, Disk_StorageStrategy& gather) {
  Output output{-1, &gather};
  for (Disk_DirectoryRecord const* record : unwritten_)
    if (!fits(*record, syntax)) return -1;
  for (Disk_DirectoryRecord const* record : unwritten_)
    if (write_record(output, syntax, *record, record->place()) == -1) return -1;
  for (Disk_DirectoryRecord* record : unwritten_)
    record->has_been_written();
  unwritten_.clear();
  return 0;
}

bool Disk_RecordChain::fits(Disk_DirectoryRecord const& record, Dicom_TransferSyntax const& syntax) const {
  if (record.length() == Disk_DirectoryRecord::kUnknownLength) return true;
  unsigned const length = record.dump_length(syntax);
  if (length == record.length()) return true;
  DISK_FAIL(DISK_FAILURE_ARGUMENT, "WriteRecords: the record at offset %u takes %u bytes and would become %u.\n",
            record.place(), record.length(), length);
  return false;
}

int Disk_RecordChain::write_record(Output& output, Dicom_TransferSyntax const& syntax,
                                   Disk_DirectoryRecord const& record, unsigned offset) const {
  unsigned length = record.dump_length(syntax);
  std::shared_ptr<Util_Buffer> const buffer = Util_Buffer::Make(length);
  if (!buffer)
    return DISK_FAIL(Klb_Cause(DISK_ERROR_MEMORY).Because("out of memory").Unset(),
                     "WriteRecords: Failed allocate %d bytes.\n", int(length));
  if (record.dump(buffer->data(), length, syntax) == -1) return DISK_FAIL("WriteRecords: Failed dumping the record.\n");
  if (record.IsNew()) {
    std::uint16_t const tag[] = {kItemTag >> 16, kItemTag & 0xFFFF};
    char tag_bytes[4], length_bytes[4];
    Dicom_Copy(tag, tag_bytes, 2, 2, syntax.GetEndianity());
    Dicom_Copy(&length, length_bytes, 4, 1, syntax.GetEndianity());
    if (output.Seek(offset, Output::kSeekTag) == -1 || output.Write(tag_bytes, 4, Output::kTag) == -1 ||
        output.Write(length_bytes, 4, Output::kLength) == -1)
      return -1;
  }
  if (output.Seek(offset + kHeader, Output::kSeekBody) == -1) return -1;
  return output.Write(buffer->data(), length, Output::kBody);
}

// Finding

/// A list that is read again for each operation is better walked than indexed; only one that is searched again and
/// again is worth an index.
std::vector<Disk_DirectoryRecord*> Disk_RecordChain::find(Dicom_Tag const& tag, std::string_view text) const {
  constexpr std::size_t kWalks = 2, kShort = 16;
  std::vector<Disk_DirectoryRecord*> found;
  Index* const index = entries() <= kShort ? nullptr : index_of(tag);
  if (!index || ++index->searches <= kWalks) {
    for (RWCollectable* item : *this)
      if (auto* const record = static_cast<Disk_DirectoryRecord*>(item); record->GetRecordMsg()->TextEquals(tag, text))
        found.push_back(record);
    return found;
  }
  // what was appended since stands behind the entry that was indexed last
  const_iterator next = index->entries == 0 ? begin() : ++const_iterator(index->last);
  for (; next != end(); ++next) {
    auto* const record = static_cast<Disk_DirectoryRecord*>(*next);
    if (record->GetRecordMsg()->Has(tag)) index->records[record->GetRecordMsg()->Text(tag)].push_back(record);
    index->last = next;
    ++index->entries;
  }
  auto const place = index->records.find(std::string(text));
  return place == index->records.end() ? found : place->second;
}

Disk_RecordChain::Index* Disk_RecordChain::index_of(Dicom_Tag const& tag) const {
  for (std::unique_ptr<Index> const& index : indexes_)
    if (index->tag.Number() == tag.Number()) return index.get();
  indexes_.push_back(std::make_unique<Index>(Index{.tag = tag, .records = {}}));
  return indexes_.back().get();
}

/// Declared here, as only chains know of places.
void Disk_DirectoryRecord::keep_lookup_uid() {
  if (record_msg->GetSOPInstanceUID() != UI_NULL) return;
  Dicom_UI const uid = record_msg->GetReferencedSOPInstanceUIDInFile();
  if (uid == UI_NULL || record_msg->SetSOPInstanceUID(uid) == -1) return;
  added_uid_ = true;
}

unsigned Disk_DirectoryRecord::dump_length(Dicom_TransferSyntax const& syntax) const {
  if (!added_uid_) return record_msg->GetDumpLen(syntax, 0, SCompressionParms());
  Dicom_Msg stripped(*record_msg);
  stripped.Remove(kSopInstanceUid);
  return stripped.GetDumpLen(syntax, 0, SCompressionParms());
}

int Disk_DirectoryRecord::dump(char* buffer, unsigned length, Dicom_TransferSyntax const& syntax) const {
  if (!added_uid_) return record_msg->Dump(buffer, length, syntax, 0, nullptr);
  Dicom_Msg stripped(*record_msg);
  stripped.Remove(kSopInstanceUid);
  return stripped.Dump(buffer, length, syntax, 0, nullptr);
}
