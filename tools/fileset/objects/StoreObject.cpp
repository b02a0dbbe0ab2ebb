#include "objects/StoreObject.h"

#include "sets/Cause.h"

#include <Disk/Disk_Error.h>
#include <cerrno>
#include <cstring>
#include <dicom/Util_File.h>
#include <infra/Klb_GError.h>
#include <sys/stat.h>

namespace {

// Why a file can't be moved into the file-set; empty if it can.
std::string MoveProblem(std::string const& file, std::string const& directory) {
  struct stat source {
  }, target{};
  if (lstat(file.c_str(), &source) == -1 || stat(directory.c_str(), &target) == -1) return std::strerror(errno);
  if (S_ISLNK(source.st_mode)) return "a symbolic link can't be moved into the file-set";
  return source.st_dev == target.st_dev ? "" : "on another file system than the file-set, so it can't be moved";
}

} // namespace

std::unique_ptr<IOD_Msg> ReadObject(std::string const& path, std::string* problem, bool* was_read) {
  constexpr Dicom_Tag kDirectoryRecords(0x0004, std::uint16_t(0x1220));
  Util_File file;
  bool const is_read = file.GetFile(path.c_str(), 0, nullptr) == 0;
  if (was_read) *was_read = is_read;
  std::unique_ptr<IOD_Msg> object(is_read ? file.operator IOD_Msg*() : nullptr);
  if (!object) {
    *problem = file.GetError();
  } else if (object->Has(kDirectoryRecords)) {
    *problem = kIsDicomDir;
    object.reset();
  }
  return object;
}

bool RanOutOfMemory() {
  int const code = KlbGError.Get();
  return code == DISK_ERROR_SYSTEM + ENOMEM || code == DISK_ERROR_MEMORY || code == DISK_ERROR_NEW_RECORD;
}

bool RanOutOfDisk() {
  int const code = KlbGError.Get();
  return code == DISK_ERROR_SYSTEM + ENOSPC || code == DISK_ERROR_SYSTEM + EDQUOT;
}

std::string StoreObject(IOD_Msg& object, StoreHow const& how, FileSet& set, std::string* stored_as) {
  bool const move = !how.file_to_move.empty();
  char const* const contradiction = object.GetPixelContradiction();
  if (!move && contradiction) return contradiction; // before folders are made for what can't be written
  std::string problem = move ? MoveProblem(how.file_to_move, set.directory) : "";
  if (!problem.empty()) return problem;
  KlbGError.Set(0);
  char place[Disk_FileID::kPathSize] = "";
  int const result = set.root->Store({.msg = &object,
                                      .add_icon = how.icon,
                                      .store_unmatching_images = how.accept_mismatch,
                                      .move_store = move,
                                      .file_to_move = how.file_to_move.c_str(),
                                      .stored_file_name = place});
  if (stored_as) *stored_as = place;
  return result == 0 ? "" : LastCause();
}
