// Writes a DICOM file under a temporary name and renames it, so that a crash leaves the old file or the new one; and
// reads one back.
#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Replacements.h"
#include "dicom/files/Util_EncodedFile.h"

#include <Disk/Disk_File.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <infra/Util_FileSystem.h>

#include <cstring>
#include <memory>

namespace {

Klb_Cause CantReplace(std::string const& path) {
  return Klb_System(errno, "rename the new file to", path).As(DISK_ERROR_RENAME);
}

} // namespace

int Disk_File::Write(IOD_Msg* msg, Dicom_UI const&, Dicom_UI const&, Dicom_UI const& syntax, bool) {
  if (Disk_RefuseNull("Write", msg) == -1) return -1;
  bool const full = Util_FileSystem::GetDurability() == Util_Durability::Full;
  return Disk_Guarded("Write", [&] { return write(msg, syntax, full ? Synced::FileAndEntry : Synced::Nothing); });
}

int Disk_File::write(IOD_Msg* msg, Dicom_UI const& syntax, Synced synced, Disk_Replacements* together) {
  msg->AddKolbaExeVersion(LO_NULL);
  std::string const path = file_id.Path();
  if (path.empty()) return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Write(): Illegal file name.\n");
  Util_EncodedFile const encoded(*msg, syntax);
  if (!encoded.error.empty()) {
    DISK_LOG(3, "Write: Failed Dumping the msg into a buffer.\n");
    return DISK_FAIL(Klb_Cause(DISK_FAILURE_ARGUMENT).At(path).Because(encoded.error), "Write: %s: %s\n", path.c_str(),
                     encoded.error.c_str());
  }
  std::string const temporary = path + Disk_Names::kTemporary;
  Util_FileDescriptor file = new_content(temporary, encoded.pieces.Views(), synced);
  if (!file) return cant_write(temporary);
  if (synced == Synced::File || synced == Synced::FileAndEntry) {
    if (together && Util_FileSystem::StartSync(file.Get()) == -1) return cant_write(temporary);
    Disk_Replacements alone;
    (together ? *together : alone).Add(std::move(file), temporary, path, synced == Synced::FileAndEntry);
    return alone.Finish();
  }
  if (file.Close() == -1) return cant_write(temporary);
  if (synced == Synced::Unsynced && take_over(temporary, path)) return 0;
  return replace(temporary, path);
}

int Disk_File::cant_write(std::string const& temporary) {
  int const cause = errno;
  DISK_LOG(3, "Write: Failed writing the buffer into the temporary file %s.\n", temporary.c_str());
  return DISK_FAIL(Klb_System(cause, "write", temporary), "Write: %s: %s\n", temporary.c_str(), std::strerror(cause));
}

Util_FileDescriptor Disk_File::new_content(std::string const& temporary, std::vector<std::string_view> parts,
                                           Synced synced) {
  if (synced != Synced::Unsynced) return Util_FileSystem::NewFile(temporary.c_str(), parts);
  parts.front().remove_prefix(Disk_RelaxedEpoch::kPreamble);
  auto const mark = Disk_RelaxedEpoch::Mark(parts);
  parts.insert(parts.begin(), {mark.data(), mark.size()});
  return Util_FileSystem::NewFile(temporary.c_str(), parts);
}

/// Puts a file that isn't synced in the place of an old one, if there is one. A rename would do as well, but upon it
/// some file systems begin to write the new file to the disk, for those who don't sync; the next store replaces it
/// again, and then all of that was for nothing.
bool Disk_File::take_over(std::string const& temporary, std::string const& path) {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (system.Exchange(temporary.c_str(), path.c_str()) == -1) return false;
  system.Unlink(temporary.c_str()); // what is left has no meaning
  return true;
}

int Disk_File::replace(std::string const& temporary, std::string const& path) {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  int result = system.Rename(temporary.c_str(), path.c_str());
  if (result == -1 && errno == EEXIST) { // a platform that doesn't replace a target
    if (system.Unlink(path.c_str()) == -1)
      return DISK_FAIL(CantReplace(path), "Write: can't remove file %s (errno=%d).\n", path.c_str(), errno);
    result = system.Rename(temporary.c_str(), path.c_str());
  }
  if (result == -1) {
    DISK_FAIL(CantReplace(path), "Write(): Can't rename file (errno=%d).\n", errno);
  }
  return result;
}

int Disk_File::sync_directory_of(std::string const& path, Util_Durability durability) {
  std::string const directory = Disk_Names::FolderOf(path);
  if (Util_FileSystem::SyncDirectory(directory.empty() ? "/" : directory.c_str(), durability) == 0) return 0;
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "sync", directory), "Write: Can't sync the directory %s (errno=%d).\n",
                   directory.c_str(), cause);
}

int Disk_File::Read(IOD_Msg** msg, int* found, int no_original_buffer, Disk_AsyncFile*) {
  if (Disk_RefuseNull("Read", msg, found) == -1) return -1;
  return Disk_Guarded("Read", [&] { return read(msg, found, no_original_buffer); });
}

int Disk_File::read(IOD_Msg** msg, int* found, int no_original_buffer) const {
  std::string const path = file_id.Path();
  if (path.empty()) return DISK_FAIL(DISK_ERROR_FILE_NAME, "Read(): Illegal file name.\n");
  DISK_LOG(7, "Disk_File::Read. file %s\n", path.c_str());
  Util_File file;
  file.no_original_buffer = no_original_buffer;
  std::string name = path;
  int result = file.GetFile(name.c_str(), 0, nullptr);
  if (result == -1 && errno == ENOENT) { // only then is it worth looking for another name
    name = get_filename_to_use(path.c_str()).str();
    if (name != path) {
      result = file.GetFile(name.c_str(), 0, nullptr);
    } else {
      errno = ENOENT;
    }
  }
  DISK_LOG(7, "Disk_File::File name to use = <%s>.\n", name.c_str());
  if (result == -1) {
    if (errno == ENOENT) {
      *found = 0;
      return 0;
    }
    int const cause = errno;
    DISK_LOG(3, "Read: Failed getting the File.\n");
    return DISK_FAIL(Klb_System(cause, "read", name), "Read: %s: %s\n", name.c_str(), std::strerror(cause));
  }
  if (file.GetTransferSyntax() != Dicom_UIDic::NATIVE_TRANSFER_SYNTAX)
    DISK_LOG(5, "Read(): Transfer Syntax should be native for file %s.\n", name.c_str());
  std::unique_ptr<IOD_Msg> decoded(file.operator IOD_Msg*());
  if (!decoded) {
    DISK_LOG(3, "Read(): Can't create message from buffer.\n");
    return DISK_FAIL(Klb_Cause(DISK_FAILURE_DAMAGED).At(name).Because(file.GetError()), "Read: %s: %s\n", name.c_str(),
                     file.GetError().c_str());
  }
  if (no_original_buffer == 0) file.SetOriginalBuffer(decoded.get());
  *msg = decoded.release();
  *found = 1;
  return 0;
}

int Disk_File::CreateDirectoryIfNotPresent(char const*) { return 0; }

/// A file that a medium carries as NAME.EXT is found under the ID NAME_EXT.
RWCString Disk_File::get_filename_to_use(char const* file_name) const {
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (system.Access(file_name, 0) == 0) return file_name;
  std::string candidate = file_name;
  std::size_t const last = candidate.rfind('_');
  if (last == std::string::npos || candidate.find_first_of("/\\", last) != std::string::npos) return file_name;
  candidate[last] = '.';
  return system.Access(candidate.c_str(), 0) == 0 ? RWCString(candidate) : RWCString(file_name);
}
