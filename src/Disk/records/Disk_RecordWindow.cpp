#include "Disk/records/Disk_RecordWindow.h"
#include "infra/Klb_Failure.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <Disk/Disk_Error.h>
#include <infra/Util_Buffer.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

constexpr unsigned kHeader = 8; // tag and length of an item
constexpr unsigned kMostAhead = 1 << 16;

Dicom_Encoding EncodingOf(Dicom_TransferSyntax const& syntax) { return {syntax.IsExplicitVR(), syntax.IsBigEndian()}; }

/// errno is that of a call since the reading began, or 0.
Klb_Cause CantRead() {
  return errno == 0 ? Klb_Cause(DISK_FAILURE_DAMAGED) : Klb_System(errno, "read the directory records").Unset();
}

/// The body of the item at `offset`, whose length is left open. Null when no delimiter ends it.
std::shared_ptr<Util_Buffer const> ReadOpenItem(Disk_RecordSource const& source, unsigned offset) {
  unsigned const left = source.RecordsEnd() - offset;
  for (unsigned wanted = 4096;; wanted *= 4) {
    wanted = std::min(wanted, left);
    std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(wanted);
    if (!bytes || source.ReadAt(bytes->data(), wanted, offset) != long(wanted)) return nullptr;
    Dicom_RawItem item;
    if (Dicom_ReadItem(bytes->data(), bytes->data() + wanted, EncodingOf(source.Syntax()), &item)) {
      std::shared_ptr<Util_Buffer> const body = Util_Buffer::Make(item.length);
      if (body) std::copy(item.value, item.value + item.length, body->data());
      return body;
    }
    if (wanted == left) return nullptr;
  }
}

} // namespace

bool Disk_RecordWindow::covers(unsigned offset, std::uint64_t length) const {
  return bytes_ && offset >= begin_ && offset + length <= begin_ + std::uint64_t(bytes_->size());
}

/// What can't be read ahead is read, or fails, when it is needed.
void Disk_RecordWindow::read_ahead(unsigned offset) {
  unsigned const size = std::min({run_, kMostAhead, source_.RecordsEnd() - offset});
  if (offset != next_ || size < kHeader) return;
  std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(size);
  if (!bytes || source_.ReadAt(bytes->data(), size, offset) != long(size)) return;
  bytes_ = bytes;
  begin_ = offset;
  has_neighbour_ = false;
}

int Disk_RecordWindow::read_header(unsigned offset, std::uint32_t* length) const {
  bool const big_endian = source_.Syntax().IsBigEndian();
  char header[kHeader];
  long got = kHeader;
  if (covers(offset, kHeader))
    std::copy_n(bytes_->data() + (offset - begin_), kHeader, header);
  else
    got = source_.ReadAt(header, std::min(kHeader, source_.RecordsEnd() - offset), offset);
  if (got < 4) return DISK_FAIL(CantRead(), "ReadRecords: Failed reading item tag from file. errno %d.\n", errno);
  std::uint32_t const tag = Dicom_LoadTag(header, big_endian);
  if (tag != kItemTag)
    return DISK_FAIL(DISK_FAILURE_DAMAGED, "ReadRecords: (%04x,%04x) is not an item tag. offset is %d\n", tag >> 16,
                     tag & 0xFFFF, int(offset));
  if (got < long(kHeader))
    return DISK_FAIL(CantRead(), "ConstructFromFile: Failed reading from file. errno %d.\n", errno);
  *length = Dicom_Load32(header + 4, big_endian);
  return 0;
}

/// The body of the item at `offset`, in bytes of its own. Null when there is no whole one.
std::shared_ptr<Util_Buffer const> Disk_RecordWindow::read_alone(unsigned offset, std::uint32_t length) const {
  if (length == kUndefinedLength) return ReadOpenItem(source_, offset);
  if (length > source_.RecordsEnd() - offset - kHeader) return nullptr;
  std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(length);
  return bytes && source_.ReadAt(bytes->data(), length, offset + kHeader) == long(length) ? bytes : nullptr;
}

int Disk_RecordWindow::Read(unsigned offset, Dicom_Msg* record, unsigned* length) {
  std::uint32_t stated = 0;
  if (!covers(offset, kHeader)) read_ahead(offset);
  if (read_header(offset, &stated) == -1) return -1;
  int error = -1;
  std::size_t size = stated;
  if (stated != kUndefinedLength && covers(offset, std::uint64_t(stated) + kHeader)) {
    char const* const body = bytes_->data() + (offset - begin_) + kHeader;
    *record = Dicom_Msg(bytes_, body, stated, source_.Syntax(), has_neighbour_ ? &neighbour_ : nullptr, &error);
    if (error == 0 && !std::exchange(has_neighbour_, true)) neighbour_ = *record;
  } else if (std::shared_ptr<Util_Buffer const> const body = read_alone(offset, stated)) {
    size = body->size();
    *record = Dicom_Msg(body, source_.Syntax(), &error);
  }
  if (error == -1) {
    DISK_LOG(3, "ReadRecords: Failed constructing the record.\n");
    return DISK_FAIL(CantRead(), "ReadRecords: no whole record stands at offset %u.\n", offset);
  }
  *length = kHeader + unsigned(size);
  run_ = offset == next_ ? run_ + *length : *length;
  next_ = stated == kUndefinedLength ? 0 : offset + *length;
  return 0;
}
