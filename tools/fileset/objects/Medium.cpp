#include "objects/Medium.h"

#include "objects/StoreObject.h"
#include "sets/Cause.h"

#include <cerrno>
#include <cstring>
#include <dicom/Util_TransferSyntax.h>
#include <fcntl.h>
#include <infra/Klb_GError.h>
#include <infra/Util_FileSystem.h>
#include <unistd.h>

namespace {

// Makes the names of a folder of the standard structure, as the library does.
class Folder : public Disk_DirectoryFile {
public:
  explicit Folder(Disk_FileID const& file_in_it) : Disk_DirectoryFile(file_in_it, Disk_StoreParams(), nullptr) {}

  // Makes the folder of a study or series below this one. Empty with errno if it can't be made.
  Disk_FileID Make(Dicom_UI const& uid) const {
    Disk_FileID id = GenerateFileID(uid);
    if (make_directory(id.FolderPath()) == -1 && errno != EEXIST) return {};
    return id.AddComponent("DIRFILE") == 0 ? id : Disk_FileID();
  }
  // The path of a free name; empty if there is none.
  std::string FreePath(Dicom_IS const& image_number) const {
    constexpr std::size_t kNumberLength = 4;
    int status = 0;
    Disk_FileID const id = unique_file_id("I" + name_part(image_number.View(), kNumberLength) + "0", &status);
    return status == 0 ? id.Path() : "";
  }
};

// The path of a new file for the object. Empty after a failure, with errno; that is 0 if no name is free.
std::string PathFor(IOD_Msg const& object, std::string const& directory) {
  errno = 0;
  Folder const root(Disk_FileID(directory.c_str(), Dicom_CS("DICOMDIR"), 0));
  Disk_FileID const study = root.Make(object.GetStudyInstanceUID());
  Disk_FileID const series = study.View().empty() ? study : Folder(study).Make(object.GetSeriesInstanceUID());
  return series.View().empty() ? "" : Folder(series).FreePath(object.GetImageNumber());
}

// Writes a new file. 0; or -1 with errno, and no file is left.
int WriteNew(std::string const& path, std::string_view bytes, Dicom_UI* syntax) {
  Util_FileDescriptor file = Util_FileSystem::Open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW);
  if (!file) return -1;
  Util_TransferSyntax start;
  bool const is_whole = Util_FileSystem::WriteAll(file.Get(), bytes.data(), bytes.size()) == 0 &&
                        lseek(file.Get(), 0, SEEK_SET) == 0 && start.GetDetails(file.Get()) == 0;
  *syntax = start.GetTransferSyntax();
  if (file.Close() == 0 && is_whole) return 0;
  int const cause = errno;
  unlink(path.c_str());
  errno = cause;
  return -1;
}

} // namespace

std::string Medium::Add(IOD_Msg& object, std::string_view bytes) {
  if (object.GetStudyInstanceUID() == UI_NULL || object.GetSeriesInstanceUID() == UI_NULL ||
      object.GetSOPInstanceUID() == UI_NULL || object.GetPatientID() == LO_NULL)
    return "has no Patient ID, or no UID of study, series or instance";
  std::string const uids = object.GetStudyInstanceUID().GetText() + "|" + object.GetSeriesInstanceUID().GetText() +
                           "|" + object.GetSOPInstanceUID().GetText();
  if (added_.count(uids) != 0) return "the series holds two objects of this UID: the first is copied";
  Util_FileSystem::DurabilityScope folders; // as of the file-set
  folders.Begin(Util_Durability::Relaxed);
  KlbGError.Set(0);
  std::string const path = PathFor(object, set_.directory);
  Dicom_UI syntax;
  if (path.empty() || WriteNew(path, bytes, &syntax) == -1) {
    if (errno != 0) KlbGError.SetSystem(errno);
    return failed(errno != 0 ? std::strerror(errno) : "no name is free for it");
  }
  Disk_StoreRequest const request{.msg = &object,
                                  .store_unmatching_images = 1,
                                  .in_place = 1,
                                  .existing_file = path.c_str(),
                                  .syntax_in_file = &syntax};
  // a failure may have come after the record was written, so the file stays
  if (set_.root->Store(request) == -1) return failed(LastCause());
  added_.insert(uids);
  return {};
}

std::string Medium::failed(std::string const& cause) {
  is_full_ = RanOutOfDisk();
  return cause + (is_full_ ? kDiskIsFull : "");
}
