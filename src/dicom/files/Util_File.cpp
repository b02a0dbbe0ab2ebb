#include <dicom/Util_File.h>

#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/files/Util_EncodedFile.h"
#include "dicom/files/Util_FileStart.h"
#include "dicom/files/Util_Inflate.h"

#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_TransferSyntax.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace {

char const kImplementationUid[] = "2.25.329800735698586629295641978511506172918"; // of this library

/// All calls go to the current file system; asking for another one is an error and not overlooked.
bool IsCurrent(Util_FileSystemInterface* fs) {
  if (!fs || fs == &Util_FileSystemInterface::Current()) return true;
  errno = EINVAL;
  return false;
}

} // namespace

Util_File::Util_File() = default;
Util_File::~Util_File() = default;

int Util_File::fail(std::string text) {
  error_ = std::move(text);
  return -1;
}

Util_File::Util_File(Dicom_Msg& msg, int* status, Dicom_UI const& syntax, int, std::string* text) {
  Util_EncodedFile const encoded(msg, syntax);
  syntax_ = encoded.syntax;
  data_set_start_ = encoded.data_set_start;
  error_ = encoded.error;
  if (error_.empty()) join(encoded.pieces.Views());
  *status = error_.empty() ? 0 : -1;
  if (text) *text = error_;
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

int Util_File::join(std::vector<std::string_view> const& parts) {
  error_.clear();
  std::size_t length = 0;
  for (std::string_view const part : parts)
    length += part.size();
  if (length >= std::numeric_limits<std::uint32_t>::max()) return fail("too long");
  std::shared_ptr<Util_Buffer> const buffer = Util_Buffer::Make(length);
  if (!buffer) return fail("out of memory");
  char* out = buffer->data();
  for (std::string_view const part : parts)
    out = std::copy(part.begin(), part.end(), out);
  file_ = buffer;
  return 0;
}

int Util_File::GetBytes(std::string_view bytes) {
  if (join({bytes}) == -1) return -1;
  find_data_set();
  return 0;
}

int Util_File::GetDataSetBytes(std::string_view bytes, Dicom_UI const& syntax) {
  if (join({bytes}) == -1) return -1;
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
  bool const deflated = Dicom_TransferSyntax(syntax_, nullptr).IsDeflated();
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
  Dicom_PackedElements elements;
  char const* const start = data_set_->data() + data_set_start_;
  if (elements.Read(data_set_, transfer, start, data_set_->size() - data_set_start_, nullptr, &error_) == -1)
    return nullptr;
  elements.ExpectManyAsked();
  return new IOD_Msg(Dicom_Msg(std::move(elements)));
}

void Util_File::SetOriginalBuffer(Dicom_Msg* msg) const {
  if (msg) msg->SetOriginalBuffer(file_);
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
