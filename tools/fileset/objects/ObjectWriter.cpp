#include "objects/ObjectWriter.h"

#include "objects/StoreObject.h"
#include "output/Report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dicom/Dicom_Compressor.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <fcntl.h>
#include <filesystem>
#include <infra/Util_FileSystem.h>
#include <memory>
#include <unistd.h>

namespace {

// A file name of letters, digits, dots and hyphens that doesn't begin with a dot and isn't too long.
std::string SafeName(std::string_view uid) {
  constexpr std::size_t kLongest = 128;
  std::string name(uid.substr(0, kLongest));
  for (char& c : name) {
    bool const safe =
        (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' || c == '-';
    if (!safe) c = '_';
  }
  if (name.empty()) return "object";
  if (name[0] == '.') name[0] = '_';
  return name;
}

// Renames the finished file to its name. An older file is replaced only with `force`.
int Place(char const* temporary, char const* path, bool force) {
  if (force) return std::rename(temporary, path);
  if (renameat2(AT_FDCWD, temporary, AT_FDCWD, path, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (access(path, F_OK) == 0) { // the file system can't refuse by itself
    errno = EEXIST;
    return -1;
  }
  return std::rename(temporary, path);
}

int WriteNew(char const* path, std::string_view bytes) {
  Util_FileDescriptor file = Util_FileSystem::Open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
  if (!file) return -1;
  return Util_FileSystem::WriteAll(file.Get(), bytes.data(), bytes.size()) == 0 ? file.Close() : -1;
}

// The bytes of the object's file. Empty after a failure, and `*cause` says why. `*file` holds bytes that are new.
std::string_view ObjectBytes(IOD_Msg& object, bool decompress, std::unique_ptr<Util_File>* file, std::string* cause) {
  bool const decompressed = decompress && Decompress(object, cause);
  if (!decompressed && !object.GetOriginalBuffer().empty()) return object.GetOriginalBuffer();
  int status = 0;
  *file = std::make_unique<Util_File>(object, &status, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, 2, cause);
  return (*file)->Bytes();
}

} // namespace

bool Decompress(IOD_Msg& object, std::string* problem) {
  if (object.GetEncapsulatedSyntax() == UI_NULL) return false;
  Dicom_DecodingFailure failure;
  if (Dicom_Compressor().Decompress(&object, &failure) == 0) return true;
  *problem =
      (failure.kind == failure.Damaged ? "its pixels are damaged (" : "can't be decompressed (") + failure.text + ")";
  return false;
}

int ObjectWriter::MakeFolder() const {
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (!error && !std::filesystem::is_directory(folder_, error))
    error = std::make_error_code(std::errc::not_a_directory);
  errno = error.value();
  return error ? -1 : 0;
}

int ObjectWriter::Write(std::string_view uid, std::string_view bytes, std::string* path) {
  std::string name = SafeName(uid);
  int const count = ++names_[name];
  if (count > 1) name += "-" + std::to_string(count);
  *path = folder_ + "/" + name + ".dcm";
  std::string const temporary = folder_ + "/." + name + "." + std::to_string(getpid()) + ".tmp";
  if (WriteNew(temporary.c_str(), bytes) == 0 && Place(temporary.c_str(), path->c_str(), force_) == 0) return 0;
  int const cause = errno;
  unlink(temporary.c_str());
  errno = cause;
  return -1;
}

std::string ObjectWriter::Copy(IOD_Msg& object, std::string const& name, bool decompress, Report& report) {
  std::string cause, path;
  std::unique_ptr<Util_File> file;
  std::string_view const bytes = ObjectBytes(object, decompress, &file, &cause);
  if (!cause.empty()) report.Fail(name, bytes.empty() ? cause : cause + ": copied as it is");
  if (bytes.empty()) return {};
  if (Write(object.GetSOPInstanceUID().View(), bytes, &path) == 0) return path;
  is_full_ = errno == ENOSPC || errno == EDQUOT;
  report.Fail(path, std::string(std::strerror(errno)) + (is_full_ ? kDiskIsFull : ""));
  return {};
}
