// Deletes images of a series: their files first, then their records.
#include <Disk/Disk_SeriesDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_Remove.h"
#include "Disk/structure/Disk_Structure.h"

#include <Disk/Disk_ObjectFile.h>
#include <dicom/IOD_Image.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <unistd.h>

namespace {

std::atomic<bool> s_deletes_cine_files{true};

/// Images of this type come with a second file, the cine file.
bool IsAccompanied(IOD_Msg const& record) {
  static Dicom_CS const s_accompanied =
      IOD_Image::DERIVED | IOD_Image::SECONDARY | IOD_Image::ITINERARY | IOD_Image::CINE;
  return record.GetImageType() == s_accompanied;
}

} // namespace

void Disk_SetDeletesCineFiles(bool wanted) { s_deletes_cine_files = wanted; }
bool Disk_DeletesCineFiles() { return s_deletes_cine_files; }

int Disk_SeriesDirectoryFile::Delete(Dicom_UI const& image_uids, Disk_Tally* tally, int* records) {
  if (Disk_RefuseNull("Delete", tally, records) == -1) return -1;
  DISK_LOG(7, "Delete:\n");
  if (refuse_read_only("Delete") == -1) return -1;
  if (Read() == -1) return DISK_FAIL("Delete(): Can't read series directory file.\n");
  MarkDirty();
  std::vector<Disk_InstanceDirectoryRecord*> going = Disk_InUse(*structure, image_records);
  *records = int(going.size());
  bool const all = image_uids == UI_NULL;
  if (!all) going.clear();
  for (int i = 0; !all && i < image_uids.GetNValues(); ++i) {
    Disk_InstanceDirectoryRecord* const image = GetImageRecord(Dicom_UI(image_uids.ValueView(i)));
    if (image && std::find(going.begin(), going.end(), image) == going.end()) {
      going.push_back(image);
      continue;
    }
    ++tally->failed;
    if (!image) structure->CountMissing(*tally);
  }
  std::map<std::string, std::string> folders; // of the files that go, with one of them
  for (Disk_InstanceDirectoryRecord* image : going) {
    std::string const path = object_id(image->GetReferencedFileID()).Path();
    if (!path.empty()) folders[Disk_Names::FolderOf(path)] = path;
    // a series that goes takes all its images with it, also one whose file can't be removed
    Klb_Attempt const attempt;
    int const deleted = DeleteImage(*image);
    if (deleted == -1) attempt.PassOver();
    if (deleted == -1 && !all) {
      ++tally->failed;
      continue;
    }
    ++tally->completed;
    if (structure->TakeOut(image_records, image) == 0) continue;
    return DISK_FAIL_TEXT(all ? "Delete: Failed setting the record in use flag.\n"
                              : "Delete: Faile setting the record in use flag.\n");
  }
  // the files are gone for good before their records go, where these don't bring their own folder to the disk
  for (auto const& [folder, path] : folders)
    if (!structure->SyncsWithRecords(path, GetFileID().Path()) &&
        Util_FileSystemInterface::Current().Access(folder.c_str(), F_OK) == 0 && sync_directory_of(path) == -1)
      return -1;
  if (Write() == 0) return 0;
  return DISK_FAIL("Delete(): Can't update the file.\n");
}

int Disk_SeriesDirectoryFile::Delete(Dicom_UI image_uids, MXL_SubOperationsReport* report) {
  if (Disk_RefuseNull("Delete", report) == -1) return -1;
  Disk_Tally tally{report->Get(MXL_SubOperationsReport::Completed), report->Get(MXL_SubOperationsReport::Failed)};
  int records = 0;
  int const result = Disk_Guarded("Delete", [&] { return Delete(image_uids, &tally, &records); });
  tally.Tell(report);
  return result;
}

int Disk_SeriesDirectoryFile::DeleteImage(Disk_InstanceDirectoryRecord const& image) const {
  Dicom_CS const referenced = image.GetReferencedFileID();
  Disk_FileID const id = object_id(referenced);
  if (IsAccompanied(*image.GetRecordMsg())) DeleteCineFile(id, referenced);
  std::string const path = id.Path();
  if (path.empty()) return DISK_FAIL(DISK_ERROR_FILE_NAME, "DeleteImage(): Illegal file name.\n");
  if (Util_FileSystemInterface::Current().Unlink(path.c_str()) == 0) return 0;
  if (errno == ENOENT) {
    DISK_LOG(4, "DeleteImage(): Warning: can't delete file %s (does not exist)\n", path.c_str());
    return 0;
  }
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "delete", path), "DeleteImage(): Can't delete a file %s (errno=%d).\n",
                   path.c_str(), cause);
}

/// The object names the file, which may stand anywhere.
void Disk_SeriesDirectoryFile::DeleteCineFile(Disk_FileID const& id, Dicom_CS const& referenced) const {
  IOD_Msg* object = nullptr;
  if (Disk_ObjectFile(id, params).Get(&object, nullptr) == -1) {
    DISK_LOG(4, "DeleteImage: Can't build IOD_Msg out of %s, thus can't delete cine file\n", referenced.CStr());
    return;
  }
  std::unique_ptr<IOD_Msg> const owner(object);
  std::string const name = object->GetInputFileName().GetText();
  DISK_LOG(7, "DeleteImage: %s is an accompanied image\n", referenced.CStr());
  if (name.empty() || !deletes_cine_files.value_or(Disk_DeletesCineFiles())) return;
  DISK_LOG(5, "DeleteImage: deleting the cine file %s\n", name.c_str());
  if (Util_FileSystemInterface::Current().Unlink(name.c_str()) == 0) return;
  if (errno == ENOENT)
    DISK_LOG(4, "DeleteImage(): Warning: Cannot delete unexisting file %s\n", name.c_str());
  else
    Disk_CantRemove(name, 3, "DeleteImage(): Can't delete a file %s (errno=%d).\n");
}
