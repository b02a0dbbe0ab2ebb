#include <dicom/Util_File.h>

#include "dicom/Dicom_DataSetReader.h"
#include "dicom/Dicom_DataSetWriter.h"
#include "dicom/Util_FileStart.h"
#include "dicom/Util_Inflate.h"

#include <dicom/Dicom_UIDGenerator.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_TransferSyntax.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kPreamble = 128;
constexpr std::uint32_t kDirectoryRecordSequence = 0x00041220;
char const kImplementationUid[] = "2.25.329800735698586629295641978511506172918"; // of this library

/// All calls go to the current file system; asking for another one is an error and not overlooked.
bool IsCurrent(Util_FileSystemInterface* fs) {
  if (!fs || fs == &Util_FileSystemInterface::Current()) return true;
  errno = EINVAL;
  return false;
}

std::unique_ptr<Dicom_Msg> MetaFor(Dicom_Msg const& msg, Dicom_UI const& syntax) {
  Dicom_UI sop_class = msg.Value<Dicom_UI>(Dicom_Tag(0x0008, 0x0016));
  Dicom_UI sop_instance = msg.Value<Dicom_UI>(Dicom_Tag(0x0008, 0x0018));
  if (msg.Has(Dicom_Tag(kDirectoryRecordSequence))) {
    sop_class = Dicom_UIDic::BASIC_DIRECTORY_STORAGE;
    sop_instance = Dicom_UIDGenerator().Generate();
  }
  return std::unique_ptr<Dicom_Msg>(Util_File::BuildMetaInformation(syntax, sop_class, sop_instance));
}

/// A copy without elements of commands and of meta information, which would be taken for the file's own; null when
/// the message has none, as is right.
std::unique_ptr<Dicom_Msg> WithoutFileGroups(Dicom_Msg const& msg) {
  constexpr unsigned kLast = 0x0002;
  Dicom_ME const* first = msg.GetElement(0);
  if (!first || first->GetTag().Group() > kLast) return nullptr;
  auto copy = std::make_unique<Dicom_Msg>(msg);
  for (int i = 0; (first = msg.GetElement(i)) && first->GetTag().Group() <= kLast; ++i)
    copy->Remove(first->GetTag());
  return copy;
}

} // namespace

Util_File::Util_File() = default;
Util_File::~Util_File() = default;

int Util_File::fail(std::string text) {
  error_ = std::move(text);
  return -1;
}

Util_File::Util_File(Dicom_Msg& msg, int* status, Dicom_UI const& syntax, int, std::string* text) {
  Dicom_UI const encapsulated = msg.GetEncapsulatedSyntax();
  syntax_ = encapsulated == UI_NULL ? syntax : encapsulated;
  Dicom_TransferSyntax const transfer(syntax_, status);
  std::unique_ptr<Dicom_Msg> const meta = MetaFor(msg, syntax_);
  Dicom_Encoding const encoding{transfer.IsExplicitVR(), transfer.IsBigEndian()};
  std::size_t const meta_length = meta->GetDumpLen();
  Dicom_DataSetWriter counter(encoding);
  std::unique_ptr<Dicom_Msg> const cleaned = WithoutFileGroups(msg);
  Dicom_Msg const& data_set = cleaned ? *cleaned : msg;
  counter.Message(data_set);
  data_set_start_ = kPreamble + 4 + meta_length;
  std::size_t const total = data_set_start_ + counter.Length();
  std::shared_ptr<Util_Buffer> buffer;
  if (*status == -1 || transfer.IsDeflated()) {
    *status = fail("can't write the transfer syntax " + syntax_.GetText());
  } else if (!counter.Ok() || total >= kUndefinedLength) {
    *status = fail("too large or nested too deep to be written, or without a form in " + syntax_.GetText());
  } else if (!(buffer = Util_Buffer::Make(total))) {
    *status = fail("out of memory");
  }
  if (text) *text = error_;
  if (!buffer) return;
  char* const out = buffer->data();
  std::memset(out, 0, kPreamble);
  std::memcpy(out + kPreamble, "DICM", 4);
  Dicom_DataSetWriter writer(encoding, out + data_set_start_, counter.Length());
  writer.Message(data_set);
  bool const ok = meta->Dump(out + kPreamble + 4, unsigned(meta_length)) != -1 && writer.Ok() &&
                  writer.Length() == counter.Length();
  *status = ok ? 0 : fail("the message changed while it was dumped");
  if (text) *text = error_;
  if (ok) file_ = buffer;
}

std::string_view Util_File::Bytes() const {
  return file_ ? std::string_view(file_->data(), file_->size()) : std::string_view();
}

int Util_File::Write(char const* path, Util_FileSystemInterface* fs) {
  if (!IsCurrent(fs)) return -1;
  std::string_view const parts[] = {Bytes()};
  return Util_FileSystem::WriteNewFile(path, parts, true);
}

int Util_File::Write(int fd) {
  std::string_view const bytes = Bytes();
  return Util_FileSystem::WriteAll(fd, bytes.data(), bytes.size());
}

int Util_File::GetFile(char const* path, int, Util_FileSystemInterface* fs) {
  if (!IsCurrent(fs)) return -1;
  error_.clear();
  file_ = Util_FileSystem::ReadWholeFile(path, kUndefinedLength);
  if (!file_) {
    int const cause = errno;
    fail(std::string("can't be read: ") + std::strerror(cause));
    errno = cause;
    return -1;
  }
  find_data_set();
  return 0;
}

int Util_File::copy(std::string_view bytes) {
  error_.clear();
  std::shared_ptr<Util_Buffer> const buffer = Util_Buffer::Make(bytes.size());
  if (!buffer) return fail("out of memory");
  std::copy(bytes.begin(), bytes.end(), buffer->data());
  file_ = buffer;
  return 0;
}

int Util_File::GetBytes(std::string_view bytes) {
  if (copy(bytes) == -1) return -1;
  find_data_set();
  return 0;
}

int Util_File::GetDataSetBytes(std::string_view bytes, Dicom_UI const& syntax) {
  if (copy(bytes) == -1) return -1;
  syntax_ = syntax;
  take_data_set(0);
  return 0;
}

int Util_File::find_data_set() {
  Util_FileStart const start = Util_ReadFileStart(Bytes(), true);
  syntax_ = start.error.empty() ? start.syntax : UI_NULL;
  data_set_ = nullptr;
  data_set_start_ = 0;
  if (!start.error.empty()) return fail(start.error);
  return take_data_set(start.data_set);
}

int Util_File::take_data_set(std::size_t start) {
  bool const deflated = syntax_ == Dicom_UIDic::DEFLATED_EXPLICIT_VR_LITTLE_ENDIAN;
  data_set_ = deflated ? Util_Inflate(Bytes().substr(start), &error_) : file_;
  data_set_start_ = deflated ? 0 : start;
  return data_set_ ? 0 : -1;
}

Util_File::operator IOD_Msg*() {
  if (!data_set_) return nullptr;
  int status = 0;
  Dicom_TransferSyntax const transfer(syntax_, &status);
  if (status == -1) {
    fail("unknown transfer syntax " + syntax_.GetText());
    return nullptr;
  }
  auto msg = std::make_unique<IOD_Msg>();
  std::size_t const length = data_set_->size() - data_set_start_;
  if (msg->take(data_set_, transfer, data_set_->data() + data_set_start_, length, nullptr, &error_) == -1) return nullptr;
  msg->parse(); // an object is asked for many attributes
  return msg.release();
}

void Util_File::SetOriginalBuffer(Dicom_Msg* msg) const {
  // the message's origin keeps the bytes alive
  if (msg && msg->origin_ && msg->origin_->buffer == file_) msg->original_ = Bytes();
}

Dicom_Msg* Util_File::BuildMetaInformation(Dicom_UI const& syntax, Dicom_UI const& sop_class,
                                           Dicom_UI const& sop_instance) {
  auto meta = std::make_unique<Dicom_Msg>();
  char const version[] = {0, 1};
  meta->Set(Dicom_Tag(0x0002, 0x0000), Dicom_UL(0));
  meta->Set(Dicom_Tag(0x0002, 0x0001), Dicom_OB(version, 2, 1, nullptr));
  meta->Set(Dicom_Tag(0x0002, 0x0002), sop_class);
  meta->Set(Dicom_Tag(0x0002, 0x0003), sop_instance);
  meta->Set(Dicom_Tag(0x0002, 0x0010), syntax);
  meta->Set(Dicom_Tag(0x0002, 0x0012), Dicom_UI(kImplementationUid));
  meta->Set(Dicom_Tag(0x0002, 0x0013), Dicom_SH("DISK_" DISK_VERSION));
  constexpr unsigned kGroupLengthElement = 12;
  meta->Set(Dicom_Tag(0x0002, 0x0000), Dicom_UL(meta->GetDumpLen() - kGroupLengthElement));
  return meta.release();
}

Dicom_UI Util_File::GetRecomendedCommpressedTxForSave(Dicom_Msg const* msg) {
  Dicom_UI const encapsulated = msg ? msg->GetEncapsulatedSyntax() : UI_NULL;
  return encapsulated == UI_NULL ? Dicom_UIDic::NATIVE_TRANSFER_SYNTAX : encapsulated;
}

int Util_TransferSyntax::GetDetails(int fd) {
  // meta information is short; what goes beyond this is none
  constexpr std::size_t kEnough = 64 * 1024;
  std::string bytes(kEnough, '\0');
  ssize_t const count = Util_FileSystem::PreadAll(fd, bytes.data(), bytes.size(), 0);
  if (count < 0) return -1;
  bytes.resize(std::size_t(count));
  Util_FileStart const start = Util_ReadFileStart(bytes, bytes.size() < kEnough);
  if (!start.error.empty()) return -1;
  syntax_ = start.syntax;
  return Util_FileSystemInterface::Current().Lseek(fd, off_t(start.data_set), SEEK_SET) == -1 ? -1 : 0;
}
