#include <Disk/Disk_DicomDir.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Util_TransferSyntax.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <limits>
#include <unistd.h>

namespace {

constexpr off_t kLongestPrefix = 16 << 20; // of a DICOMDIR that anybody would write

/// `why` counts if no system call has failed since the reading began, which sets errno to 0.
Klb_Cause CantRead(std::string const& file, char const* why) {
  return errno == 0 ? Klb_Cause(DISK_FAILURE_DAMAGED).At(file).Because(why) : Klb_System(errno, "read", file).Unset();
}

off_t Tell(int fd) { return Util_FileSystemInterface::Current().Lseek(fd, 0, SEEK_CUR); }

} // namespace

/// Takes the elements in front of the records into this message. The position is on the tag of their sequence then.
int Disk_DicomDir::read_until_records() {
  Util_TransferSyntax start;
  if (start.GetDetails(file_descriptor) == -1)
    return DISK_FAIL(CantRead(file_name, "it is no DICOM file"),
                     "read_until_records: Failed getting the file (%s) transfer syntax.\n", file_name.c_str());
  int error = 0;
  transfer_syntax = Dicom_TransferSyntax(start.GetTransferSyntax(), &error);
  if (error == -1)
    return DISK_FAIL(Klb_Cause(DISK_FAILURE_DAMAGED).At(file_name).Because("its transfer syntax is unknown"),
                     "read_until_records: Unknown transfer syntax: %s\n", start.GetTransferSyntax().CStr());
  static_cast<IOD_Msg&>(*this) = IOD_Msg();
  off_t const data_set = Tell(file_descriptor);
  if (data_set == -1)
    return DISK_FAIL(CantRead(file_name, "it can't be read"), "read_until_records: the position can't be told.\n");
  data_set_begin = unsigned(data_set);
  for (int found = 0; (found = is_record_sequence()) != 1;) {
    if (found == -1 || Tell(file_descriptor) > kLongestPrefix)
      return DISK_FAIL(CantRead(file_name, "what stands before its records can't be read"),
                       "read_until_records: Failed constructing Dicom_ME.\n");
    auto const add = [&] {
      Dicom_ME element(file_descriptor, nullptr, transfer_syntax, this, &error);
      if (error == -1)
        return DISK_FAIL(CantRead(file_name, "what stands before its records can't be read"),
                         "read_until_records: Failed constructing Dicom_ME.\n");
      return Add(std::move(element)) == 0 ? 0 : DISK_FAIL("read_until_records: Failed adding the ME.\n");
    };
    if (Disk_Allocating("read_until_records: Failed Allocate memory for Dicom_ME.\n", add) == -1) return -1;
  }
  return 0;
}

/// Keeps the bytes from the start of the file to the records.
int Disk_DicomDir::read_prefix() {
  off_t const sequence = Tell(file_descriptor);
  if (sequence < 0 || sequence > kLongestPrefix) return -1;
  prefix.resize(std::size_t(sequence) + header_length());
  if (ReadAt(prefix.data(), unsigned(prefix.size()), 0) != long(prefix.size())) {
    prefix.clear();
    return -1;
  }
  records_begin = unsigned(prefix.size());
  locate_offsets();
  if (first_at != 0 && read_offset(first_at, kFirstOffset.Element()) == -1) return -1;
  return last_at == 0 ? 0 : read_offset(last_at, kLastOffset.Element());
}

/// 1 or 0; -1 when it can't be told. The position stays where it is.
int Disk_DicomDir::is_record_sequence() {
  std::uint32_t tag = 0;
  if (read_tag(&tag) == -1) return DISK_FAIL("is_record_sequence: Failed reading the tag.\n");
  if (Util_FileSystemInterface::Current().Lseek(file_descriptor, -4, SEEK_CUR) == -1)
    return DISK_FAIL(Klb_System(errno, "seek in", file_name).Unset(), "is_record_sequence: faild seeking back.\n");
  return tag == kRecordSequence.Number() ? 1 : 0;
}

int Disk_DicomDir::read_tag(std::uint32_t* tag) {
  char bytes[4];
  if (Util_FileSystem::ReadAll(file_descriptor, bytes, sizeof bytes) != sizeof bytes)
    return DISK_FAIL(CantRead(file_name, "it ends too early"), "read_tag: read Failed.\n");
  *tag = Dicom_LoadTag(bytes, transfer_syntax.IsBigEndian());
  return 0;
}

/// By what the header of the sequence says; where that is nothing, by a delimiter at the end of the file; where
/// there is none, by a walk over all items.
int Disk_DicomDir::find_end_offset() {
  char bytes[4];
  if (ReadAt(bytes, sizeof bytes, records_begin - 4) != sizeof bytes)
    return DISK_FAIL(CantRead(file_name, "it ends too early"), "find_end_offset: read Failed.\n");
  stated_length = Dicom_Load32(bytes, transfer_syntax.IsBigEndian());
  if (stated_length != kUndefinedLength) {
    std::uint64_t const end = std::uint64_t(records_begin) + stated_length;
    if (end >= std::numeric_limits<std::uint32_t>::max())
      return DISK_FAIL(CantRead(file_name, "the end of its records can't be found"),
                       "Failed finding sequence ending.\n");
    offset_end = unsigned(end);
    return 0;
  }
  return FindSequenceOffset(&offset_end) == 0 ? 0 : parse_sequence();
}

int Disk_DicomDir::FindSequenceOffset(unsigned* offset) {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  off_t const end = system.Lseek(file_descriptor, 0, SEEK_END);
  if (end == -1)
    return DISK_FAIL(Klb_System(errno, "seek in", file_name).Unset(), "FindSequenceOffset: Can't seek (errno=%d).\n",
                     errno);
  off_t const place = end < off_t(records_begin) + 8 ? -1 : system.Lseek(file_descriptor, -8, SEEK_CUR);
  if (place == -1 || place > off_t(std::numeric_limits<std::uint32_t>::max()) - 8)
    return DISK_FAIL(Klb_System(errno, "seek in", file_name).Unset(), "FindSequenceOffset: Can't seek(errno=%d).\n",
                     errno);
  std::uint32_t tag = 0;
  if (read_tag(&tag) == -1) return DISK_FAIL("FindSequenceOffset: Failed reading tag.\n");
  if (tag != kSequenceDelimiter) {
    DISK_LOG(4, "FindSequenceOffset: last tag is not sequence delimination item.\n");
    return -1;
  }
  *offset = unsigned(place);
  return 0;
}

int Disk_DicomDir::parse_sequence() {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  unsigned parsed_length = 0;
  int error = 0;
  if (system.Lseek(file_descriptor, off_t(records_begin), SEEK_SET) == -1)
    return DISK_FAIL(CantRead(file_name, "the end of its records can't be found"), "Failed finding sequence ending.\n");
  Dicom_Sequence const sequence(file_descriptor, -1, &parsed_length, transfer_syntax, &error);
  if (error == -1)
    return DISK_FAIL(CantRead(file_name, "the end of its records can't be found"), "Failed finding sequence ending.\n");
  offset_end = records_begin + parsed_length;
  return 0;
}

/// Takes an offset that stands in the prefix over into this message.
int Disk_DicomDir::read_offset(unsigned place, unsigned element) {
  char bytes[4];
  if (ReadAt(bytes, sizeof bytes, place) != sizeof bytes) return -1;
  return Set(Dicom_Tag(0x0004, std::uint16_t(element)), Dicom_UL(Dicom_Load32(bytes, transfer_syntax.IsBigEndian())));
}

int Disk_DicomDir::RefreshOffsetEnd() {
  return Disk_WithCause([&] { return refresh_offset_end(); });
}

int Disk_DicomDir::refresh_offset_end() {
  if (!Has(kFirstOffset))
    return DISK_FAIL(CantRead(file_name, "it lacks the offset of its first record"),
                     "RefreshOffsetEnd: Offset Of The First Directory Record is NULL.\n");
  if ((first_at != 0 && read_offset(first_at, kFirstOffset.Element()) == -1) ||
      (last_at != 0 && read_offset(last_at, kLastOffset.Element()) == -1))
    return DISK_FAIL(CantRead(file_name, "it ends too early"), "RefreshOffsetEnd: lseek Failed.\n");
  return find_end_offset() == 0 ? 0 : DISK_FAIL("RefreshOffsetEnd: find_end_offset failed.\n");
}

bool Disk_DicomDir::IsCurrent() const {
  char bytes[4];
  return ReadAt(bytes, sizeof bytes, records_begin - 4) == sizeof bytes &&
         Dicom_Load32(bytes, transfer_syntax.IsBigEndian()) == stated_length;
}
