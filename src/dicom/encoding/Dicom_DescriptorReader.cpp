#include "dicom/encoding/Dicom_DescriptorReader.h"

#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <unistd.h>

namespace {

/// The number of bytes between the position and the end; -1 for what has no size.
long long BytesLeft(int fd) {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  struct stat status {};
  if (system.Fstat(fd, &status) == -1 || !S_ISREG(status.st_mode)) return -1;
  long long const position = system.Lseek(fd, 0, SEEK_CUR);
  return position < 0 || position > status.st_size ? -1 : status.st_size - position;
}

} // namespace

char const* Dicom_TakeBytes(char const* buffer, std::size_t length, int copy, std::shared_ptr<Util_Buffer const>* own) {
  if (!buffer || !copy) return buffer;
  std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(length);
  if (!bytes) return nullptr;
  std::copy(buffer, buffer + length, bytes->data());
  *own = bytes;
  return bytes->data();
}

std::shared_ptr<Util_Buffer const> Dicom_ReadBytesFrom(int fd, std::size_t length) {
  long long const left = BytesLeft(fd);
  if (left < 0 || std::size_t(left) < length) return nullptr;
  std::shared_ptr<Util_Buffer> buffer = Util_Buffer::Make(length);
  if (!buffer || Util_FileSystem::ReadAll(fd, buffer->data(), length) != ssize_t(length)) return nullptr;
  return buffer;
}

std::shared_ptr<Util_Buffer const> Dicom_ReadRestFrom(int fd) {
  long long const left = BytesLeft(fd);
  return left < 0 ? nullptr : Dicom_ReadBytesFrom(fd, std::size_t(left));
}

int Dicom_ReadElementFrom(int fd, Dicom_Encoding encoding, std::string* bytes, Dicom_RawElement* element) {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  off_t const start = system.Lseek(fd, 0, SEEK_CUR);
  long long const left = BytesLeft(fd);
  bytes->clear();
  if (start < 0 || left < 0) return -1;
  // most elements are short: more and more is read for one that isn't
  long long wanted = 0;
  do {
    wanted = std::min(left, wanted == 0 ? 4096 : wanted * 8);
    if (system.Lseek(fd, start, SEEK_SET) == -1) return -1;
    std::shared_ptr<Util_Buffer const> const buffer = Dicom_ReadBytesFrom(fd, std::size_t(wanted));
    if (!buffer) return -1;
    if (!Dicom_ReadElement(buffer->data(), buffer->data() + buffer->size(), encoding, element)) continue;
    bytes->assign(buffer->data(), element->next);
    element->value = bytes->data() + (element->value - buffer->data());
    element->next = bytes->data() + bytes->size();
    return system.Lseek(fd, start + off_t(bytes->size()), SEEK_SET) == -1 ? -1 : 0;
  } while (wanted < left);
  return -1;
}
