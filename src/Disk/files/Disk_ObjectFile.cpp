// Stores and reads the file of one object. It chooses the transfer syntax and compresses where that is wanted.
#include <Disk/Disk_ObjectFile.h>

#include "Disk/files/Disk_Guard.h"

#include <dicom/Dicom_Compressor.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <infra/Util_FileSystem.h>

#include <unistd.h>

int Disk_ObjectFile::Get(IOD_Msg** msg, Disk_AsyncFile* async) {
  Klb_Operation const scope;
  if (Read(msg, async) == 0) return 0;
  return DISK_FAIL("Get(): Can't read object file.\n");
}

int Disk_ObjectFile::Read(IOD_Msg** msg, Disk_AsyncFile* async) {
  Klb_Operation const scope;
  int found = 0;
  if (Disk_File::Read(msg, &found, 0, async) == 0 && found) return 0;
  return DISK_FAIL(Klb_Cause(DISK_FAILURE_NOT_FOUND).At(file_id.Path()).Because("the file of the object is missing"),
                   "Can't read object file.\n");
}

int Disk_ObjectFile::Store(IOD_Msg* msg, bool sync_directory, Disk_Replacements* together) {
  Klb_Operation const scope;
  if (Disk_RefuseNull("Store", msg) == -1) return -1;
  if (params.read_only)
    return DISK_FAIL(Klb_Cause(DISK_ERROR_SYSTEM + EROFS),
                     "Disk_ObjectFile::Store() - operation cannot be performed on a read-only access object.\n");
  if (Disk_Guarded("Write", [&] { return Write(msg, sync_directory, together); }) == 0) return 0;
  return DISK_FAIL("Store(): Can't write object file.\n");
}

int Disk_ObjectFile::Write(IOD_Msg* msg, bool sync_directory, Disk_Replacements* together) {
  if (msg->GetSOPClassUID() == UI_NULL) return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Can't get SOP Class UID.\n");
  if (msg->GetSOPInstanceUID() == UI_NULL) return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Can't get SOP Instance UID.\n");
  Dicom_UI syntax = Dicom_UIDic::NATIVE_TRANSFER_SYNTAX;
  if (!params.store_native) {
    Dicom_Compressor const compressor;
    int flag = 0;
    if (compressor.GetKolbaCompressionVersion(*msg, &flag) == 0 && compressor.Compress(msg, 0) == -1) return -1;
    syntax = Util_File::GetRecomendedCommpressedTxForSave(msg);
  }
  msg->SettleCharacterSet();
  DISK_LOG(7, "Write: will store image in tx <%s>\n", syntax.CStr());
  if (Util_FileSystem::GetDurability() == Util_Durability::Full)
    return write(msg, syntax, sync_directory ? Synced::FileAndEntry : Synced::File, together);
  // one that replaces another, which may have been durable, is whole before it gets its name
  bool const replaces = Util_FileSystem::MayExist(file_id.Path().c_str());
  return write(msg, syntax, replaces ? Synced::File : Synced::Nothing);
}
