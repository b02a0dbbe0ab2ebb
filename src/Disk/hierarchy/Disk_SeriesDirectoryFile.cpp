// The records of one series: finds or makes that of an object, names its file, and writes or moves it into place.
#include <Disk/Disk_SeriesDirectoryFile.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/structure/Disk_Structure.h"

#include <Disk/Disk_ObjectFile.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/IOD_Image.h>
#include <dicom/Util_TransferSyntax.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

Disk_SeriesDirectoryFile::Disk_SeriesDirectoryFile(Disk_FileID const& id, Disk_StoreParams store_params,
                                                   Disk_DicomDir* dicomdir, unsigned offset)
    : Disk_DirectoryFile(id, store_params, dicomdir), first_image_offset(offset) {}

int Disk_SeriesDirectoryFile::Read() {
  static constexpr Disk_ReadTexts kTexts{"Read: Failed reading the records.\n",
                                         "Read(): Can't read series directory file.\n",
                                         "Read(): Can't create instance directory record.\n"};
  return read_level(image_records, first_image_offset, kTexts);
}

int Disk_SeriesDirectoryFile::Write(Disk_Replacements* together) {
  static constexpr Disk_WriteTexts kTexts{"Write: the offset of the images is 0.\n",
                                          "Write(): Bad instance directory record.\n"};
  return write_level(image_records, first_image_offset, kTexts, together);
}

Disk_InstanceDirectoryRecord* Disk_SeriesDirectoryFile::GetImageRecord(Dicom_UI const& image_uid) const {
  return Disk_FindRecord(*structure, image_records, structure->InstanceUidTag(), image_uid.View());
}

int Disk_SeriesDirectoryFile::Store(IOD_Msg* msg, Disk_SeriesDirectoryRecord* series, int* new_image, bool add_icon,
                                    int in_place, char* existing_file, int move_store, char* file_to_move,
                                    char* stored_file_name, Dicom_UI const* syntax_in_file) {
  Disk_StoreRequest const request{
      msg, add_icon, 0, in_place, existing_file, move_store, file_to_move, stored_file_name, syntax_in_file};
  return Disk_Guarded("Store", [&] { return Store(request, series, new_image) == 0 ? 0 : -1; });
}

int Disk_SeriesDirectoryFile::Store(Disk_StoreRequest const& request, Disk_SeriesDirectoryRecord* series,
                                    int* new_image, Disk_Replacements* together) {
  if (Disk_RefuseNull("Store", request.msg, new_image) == -1) return -1;
  if (structure->RefuseNoParent(series) == -1) return -1;
  DISK_LOG(7, "Entering Store\n");
  structure->TellStore("Store: standard_dicomdir.\n");
  if (refuse_read_only("Store") == -1 || RefuseLink() == -1) return -1;
  if (Read() == -1) return DISK_FAIL("Store(): Can't read series directory file.\n");
  if (is_folder_gone) return kFolderIsGone;
  MarkDirty();
  Disk_InstanceDirectoryRecord* image = GetImageRecord(request.msg->GetSOPInstanceUID());
  *new_image = image ? 0 : 1;
  if (image ? update_key_image(*request.msg, image) == -1 : add_image(request, series, &image) == -1) return -1;

  Dicom_SQ const icon = image->GetRecordMsg()->GetIconImage();
  if (icon.IsEmpty()) {
    DISK_LOG(7, "Store(): There is no icon in ImageRecord\n");
  } else if (request.msg->SetIconImage(icon) == -1) {
    DISK_LOG(3, "Store(): Warning: Can't attach icon to stored object.\n");
  }
  if (place_object(request, *image, together) == -1) return -1;
  if (Write(together) == 0) return 0;
  return DISK_FAIL("Store(): Can't update the series directory file.\n");
}

int Disk_SeriesDirectoryFile::add_image(Disk_StoreRequest const& request, Disk_SeriesDirectoryRecord* series,
                                        Disk_InstanceDirectoryRecord** image) {
  std::unique_ptr<Disk_InstanceDirectoryRecord> record(new (std::nothrow) Disk_InstanceDirectoryRecord());
  if (!record) Klb_Note(Klb_Cause(DISK_ERROR_NEW_RECORD).Because("out of memory"));
  if (!record || structure->Fill(*record, *request.msg, request.add_icon) == -1)
    return DISK_FAIL("Store(): Can't create new image directory record.\n");
  if (NewImage(series, record.get(), request) == -1) return DISK_FAIL("Store(): Can't create new image.\n");
  *image = record.release();
  return 0;
}

int Disk_SeriesDirectoryFile::NewImage(Disk_SeriesDirectoryRecord* series, Disk_InstanceDirectoryRecord* image,
                                       Disk_StoreRequest const& request) {
  int status = 0;
  IOD_Msg const& record = *image->GetRecordMsg();
  Disk_FileID const id = request.in_place
                             ? Disk_FileID(GetFileSetPrefix(), request.existing_file, &status, 0)
                             : GenerateReferencedFileID(record.GetImageNumber(), record.GetImageLabel(), &status);
  if (status == -1) return DISK_FAIL("NewImage(): Can't generate a file ID.\n");
  if (structure->RecordsSyntax() && set_syntax(image, request) == -1) return -1;
  if (image->SetReferencedFileID(id.GetID()) == -1) return -1;
  return structure->Add(image_records, series, image, &first_image_offset);
}

/// The transfer syntax that the record tells: that of a file in place; native for one that is about to be written,
/// whatever it will hold.
int Disk_SeriesDirectoryFile::set_syntax(Disk_InstanceDirectoryRecord* image, Disk_StoreRequest const& request) const {
  Dicom_UI syntax = Dicom_UIDic::NATIVE_TRANSFER_SYNTAX;
  if (request.in_place && request.syntax_in_file) {
    syntax = *request.syntax_in_file;
  } else if (request.in_place) {
    Util_FileDescriptor const file = Util_FileSystem::Open(request.existing_file, O_RDONLY | O_NONBLOCK);
    if (!file) {
      int const cause = errno;
      return DISK_FAIL(Klb_System(cause, "open", request.existing_file), "NewImage: Can't open file %s (errno=%d).\n",
                       request.existing_file, cause);
    }
    Util_TransferSyntax start;
    errno = 0; // stays so when the file is no DICOM file
    if (start.GetDetails(file.Get()) == -1) {
      int const code = errno != 0 ? DISK_ERROR_SYSTEM + errno : int(DISK_FAILURE_ARGUMENT);
      return DISK_FAIL(Klb_Cause(code).At(request.existing_file).Because("it is no DICOM file"),
                       "NewImage: Failed getting the file (%s) transfer syntax.\n", request.existing_file);
    }
    syntax = start.GetTransferSyntax();
  }
  if (image->SetReferencedTransferSyntaxInFile(syntax) == 0) return 0;
  return DISK_FAIL("NewImage: Failed setting the transfer syntax.\n");
}

bool Disk_SeriesDirectoryFile::is_named(std::string const& id) const {
  return image_records.Find(kReferencedFileID, id, [](Disk_InstanceDirectoryRecord const&) { return true; });
}

Disk_FileID Disk_SeriesDirectoryFile::GenerateReferencedFileID(Dicom_IS const& image_number,
                                                               Dicom_SH const& image_label, int* status) const {
  constexpr std::size_t kNumberLength = 4, kLabelLength = 2;
  std::string const label = image_label == SH_NULL ? "" : name_part(sanitized(image_label.View()), kLabelLength);
  return unique_file_id("I" + name_part(image_number.View(), kNumberLength) + label + "0", status);
}

/// A known object that comes again may bring another key image flag.
int Disk_SeriesDirectoryFile::update_key_image(IOD_Msg const& msg, Disk_InstanceDirectoryRecord* image) const {
  Dicom_CS const now = msg.GetKolbaKeyImage(), before = image->GetRecordMsg()->GetKolbaKeyImage();
  if (now == before || (structure->KeepsLength() && before == CS_NULL)) return 0;
  image->SetChanged(true);
  return image->GetRecordMsg()->SetKolbaKeyImage(now == CS_NULL ? IOD_Image::N : now);
}

int Disk_SeriesDirectoryFile::place_object(Disk_StoreRequest const& request, Disk_InstanceDirectoryRecord const& image,
                                           Disk_Replacements* together) {
  Disk_FileID const id = object_id(image.GetReferencedFileID());
  if (request.move_store) return move_object(request, id);
  if (request.in_place) return sync_in_place(id.Path());
  if (Disk_ObjectFile(id, params).Store(request.msg, !is_synced_with(id), together) == 0) return 0;
  return DISK_FAIL("Store(): Can't store object.\n");
}

bool Disk_SeriesDirectoryFile::is_synced_with(Disk_FileID const& object) const {
  return structure->SyncsWithRecords(object.Path(), GetFileID().Path());
}

/// A file that must be there, and that its writer may not have synced.
int Disk_SeriesDirectoryFile::sync_in_place(std::string const& path) {
  Util_FileDescriptor const file = Util_FileSystem::Open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (file && Util_FileSystem::GetDurability() == Util_Durability::Relaxed) return 0;
  if (file && Util_FileSystem::SyncFile(file.Get()) == 0) return sync_directory_of(path);
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "sync", path), "Store(): Can't sync %s (errno=%d).\n", path.c_str(), cause);
}

int Disk_SeriesDirectoryFile::move_object(Disk_StoreRequest const& request, Disk_FileID const& id) {
  if (!request.file_to_move)
    return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Store(): move store was requested, no file name to move was given.\n");
  std::string const path = id.Path();
  if (path.empty()) return DISK_FAIL(DISK_ERROR_FILE_NAME, "Store(): Illegal file name.\n");
  DISK_LOG(7, "Store(): a move store. db file name will be %s\n", path.c_str());
  Util_FileDescriptor const file = Util_FileSystem::Open(request.file_to_move, O_RDONLY | O_NONBLOCK);
  bool const replaces = Util_FileSystem::MayExist(path.c_str()); // what may be durable
  auto const durability = replaces ? Util_Durability::Full : Util_FileSystem::GetDurability();
  bool const lasting = file && Util_FileSystem::SyncFile(file.Get(), durability) == 0;
  if (!lasting || Util_FileSystemInterface::Current().Rename(request.file_to_move, path.c_str()) == -1) {
    int const cause = errno;
    return DISK_FAIL(Klb_System(cause, "move", request.file_to_move), "Store(): rename of %s to %s failed. errno=%d.\n",
                     request.file_to_move, path.c_str(), cause);
  }
  if (!is_synced_with(id) && sync_directory_of(path) == -1) return -1;
  if (request.stored_file_name) std::memcpy(request.stored_file_name, path.c_str(), path.size() + 1);
  return 0;
}

int Disk_SeriesDirectoryFile::GetOne(Dicom_UI const& sop_instance_uid, IOD_Msg** object) {
  if (Disk_RefuseNull("GetOne", object) == -1) return -1;
  if (Read() == -1) return DISK_FAIL("GetOne(): Can't read series directory file.\n");
  Disk_InstanceDirectoryRecord const* image = GetImageRecord(sop_instance_uid);
  if (!image)
    return DISK_FAIL(DISK_FAILURE_NOT_FOUND, "GetOne(): Can't find image with SOPInstanceUID = %s\n",
                     sop_instance_uid.CStr());
  return Disk_ObjectFile(object_id(image->GetReferencedFileID()), params).Get(object, nullptr);
}

int Disk_SeriesDirectoryFile::GetKnown(Dicom_UI const& sop_instance_uid, IOD_Msg** object) const {
  Disk_InstanceDirectoryRecord const* image =
      is_current() && has_records() ? GetImageRecord(sop_instance_uid) : nullptr;
  return image ? Disk_ObjectFile(object_id(image->GetReferencedFileID()), params).Get(object, nullptr) : 1;
}
