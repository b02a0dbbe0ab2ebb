#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_LookAgain.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Replacements.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/files/Disk_VersionFile.h"
#include "Disk/structure/Disk_Structure.h"

#include <Disk/Disk_Bits.h>
#include <Disk/Disk_DicomDir.h>
#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_Error.h>
#include <Disk/Disk_RecordList.h>
#include <Disk/Disk_StorageStrategy.h>
#include <dicom/Dicom_UIDic.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

namespace {

/// The elements of a private directory file. The sequence isn't taken over.
int FillDirectory(IOD_Msg& msg, Dicom_Sequence& sequence) {
  int status = 0;
  Dicom_CS const no_id("", &status);
  if (status == -1) return DISK_FAIL("Write(): Can't create Dicom_CS.\n");
  auto const add = [&msg](Dicom_Tag tag, std::unique_ptr<Dicom_Type> value) {
    return msg.Add(Dicom_ME(tag, std::move(value)));
  };
  if (add(kFileSetID, std::make_unique<Dicom_CS>(no_id)) == 0 &&
      add(kFirstOffset, std::make_unique<Dicom_UL>(0u)) == 0 && add(kLastOffset, std::make_unique<Dicom_UL>(0u)) == 0 &&
      add(kConsistencyFlag, std::make_unique<Dicom_US>(std::uint16_t(0))) == 0 &&
      add(kRecordSequence, std::make_unique<Dicom_SQ>(&sequence, 0)) == 0)
    return 0;
  return DISK_FAIL("Write(): Can't add element to message.\n");
}

std::string VersionPath(std::string const& folder) {
  return folder.empty() ? folder : Disk_Names::In(folder, Disk_Names::kVersion);
}

} // namespace

Disk_DirectoryFile::Disk_DirectoryFile(Disk_FileID const& id, Disk_StoreParams store_params, Disk_DicomDir* dicomdir)
    : Disk_File(id), standard_dicomdir(dicomdir), structure(Disk_Structure::Of(dicomdir)), params(store_params),
      own_path(id.Path()), own_version_path(VersionPath(directory().FolderPath())) {}

int Disk_DirectoryFile::Lowercase() const { return structure->Lowercase(); }

int Disk_DirectoryFile::Read(Dicom_Sequence** sequence, int* found, IOD_Msg** msg) {
  if (Disk_RefuseNull("Read", sequence, found, msg) == -1) return -1;
  // these first: what is written meanwhile makes the records newer than their number, never older
  Disk_FileState const state = file_state();
  long const version = GetFileVersion();
  // a root's file that was never written has no VERSION; below the root a record names the file
  bool const is_expected = version != kNoVersion || file_id.GetID().GetNValues() > 1;
  if (read_file(msg, found, is_expected) == -1) return DISK_FAIL("Read(): Can't read directory file.\n");
  if (!*found) return 0;
  std::unique_ptr<IOD_Msg> owner(*msg);
  Dicom_Type const* value = owner->Get(kRecordSequence);
  auto const* records = dynamic_cast<Dicom_SQ const*>(value);
  if (!records || !records->GetSequence()) {
    constexpr char kNoRecords[] = "it has no directory records";
    DISK_FAIL_TEXT(Klb_Cause(DISK_FAILURE_DAMAGED).At(file_id.Path()).Because(kNoRecords),
                   !value             ? "Read(): Can't find sequence of directory records.\n"
                   : value->IsEmpty() ? "Read(): Can't retrieve data from element.\n"
                                      : "Read(): No sequence of directory records.\n");
    *msg = nullptr;
    return -1;
  }
  auto const count = std::size_t(records->GetSequence()->GetNItems());
  auto const fit = [count](std::size_t bytes) { return Disk_RecordClaims::AreMeaningful(count, bytes); };
  if (!fit(0) && !fit(owner->GetDumpLen())) {
    DISK_FAIL(Klb_Cause(DISK_FAILURE_DAMAGED).At(file_id.Path()), "Read(): %zu records are too many for %u bytes.\n",
              count, owner->GetDumpLen());
    *msg = nullptr;
    return -1;
  }
  *sequence = records->GetSequence();
  owner.release();
  take_version(version);
  read_state = state;
  writes_since_read = 0;
  return 0;
}

/// An expected file that is missing is looked for again: the next write would put an empty list in the place of its
/// records.
int Disk_DirectoryFile::read_file(IOD_Msg** msg, int* found, bool is_expected) {
  is_folder_gone = false;
  if (Disk_File::Read(msg, found, 1, nullptr) == -1) return -1;
  if (*found || !is_expected) return 0;
  Disk_Sight const sight = Disk_LookAgain(own_path);
  int const cause = sight == Disk_Sight::Unknown ? errno : ENOENT;
  if (Disk_File::Read(msg, found, 1, nullptr) == -1) return -1;
  if (*found) return 0;
  if (sight == Disk_Sight::Unknown || sight == Disk_Sight::There)
    return DISK_FAIL(Klb_System(cause, "look for", own_path), "Read(): Can't tell whether %s is there (errno=%d).\n",
                     own_path.c_str(), cause);
  is_folder_gone = sight == Disk_Sight::FolderGone;
  if (!params.refuse_lost || is_folder_gone || !holds_content()) {
    DISK_LOG(4,
             "Read(): %s is gone; adopting its object files, or storing the objects again, brings its records back.\n",
             own_path.c_str());
    return 0;
  }
  return DISK_FAIL(Klb_Cause(DISK_ERROR_SYSTEM + ENOENT).At(own_path),
                   "Read(): %s is gone; adopting its object files brings its records back.\n", own_path.c_str());
}

/// Whether the folder holds more than what a killed delete removes last.
bool Disk_DirectoryFile::holds_content() const {
  std::vector<Util_FileSystemInterface::Entry> entries;
  std::string const folder = Disk_Names::FolderOf(own_path);
  if (Util_FileSystemInterface::Current().List(folder.c_str(), entries) == -1) return true;
  return std::any_of(entries.begin(), entries.end(), [](auto const& entry) {
    return entry.name != Disk_Names::kLockFile && entry.name != Disk_Names::kVersion &&
           !Disk_Names::IsTemporary(entry.name);
  });
}

int Disk_DirectoryFile::Write(Dicom_Sequence& sequence, Disk_Replacements* together) {
  if (refuse_read_only("Write") == -1) return -1;
  return Disk_Guarded("Write", [&] {
    IOD_Msg msg;
    auto const fill = [&] { return FillDirectory(msg, sequence); };
    return Disk_Allocating("Write(): Can't create message element.\n", fill) == -1 ? -1 : rewrite(&msg, together);
  });
}

int Disk_DirectoryFile::rewrite(IOD_Msg* msg, Disk_Replacements* together) {
  bool const relaxed =
      Util_FileSystem::GetDurability() == Util_Durability::Relaxed && Disk_RelaxedEpoch::Keep(file_id, is_unnamed) == 0;
  Synced const synced = relaxed ? Synced::Unsynced : is_unnamed ? Synced::Nothing : Synced::FileAndEntry;
  bool const waits = together && synced == Synced::FileAndEntry;
  if (write(msg, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, synced, waits ? together : nullptr) == -1) return -1;
  auto const written = [this, relaxed] { return (relaxed || forget_copy() == 0) ? take_written() : -1; };
  if (!waits) return written();
  together->Then(written);
  return 0;
}

int Disk_DirectoryFile::forget_copy() const {
  if (Disk_RelaxedEpoch::Forget(file_id) == 0) return 0;
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "forget the copy of", file_id.Path()),
                   "Write(): Can't forget the copy of %s (errno=%d).\n", file_id.Path().c_str(), cause);
}

/// The records in memory are those of the file now.
int Disk_DirectoryFile::take_written() {
  ++writes_since_read;
  return UpdateFileVersion();
}

// The records of a lower level

int Disk_DirectoryFile::read_level(Disk_RecordChain& records, unsigned first, Disk_ReadTexts const& texts) {
  if (may_keep_records()) return 0;
  MarkDirty();            // until all is read
  lasting_folder.clear(); // others may have removed it and made it anew
  records.clearAndDestroy();
  if (Disk_Guarded("Read", [&] { return structure->Load(*this, records, first, texts); }) == -1) return -1;
  is_loaded = true;
  return 0;
}

int Disk_DirectoryFile::write_level(Disk_RecordChain& records, unsigned first, Disk_WriteTexts const& texts,
                                    Disk_Replacements* together) {
  DISK_LOG(7, "Write:\n");
  return structure->Save(*this, records, first, texts, together);
}

Disk_FileID Disk_DirectoryFile::file_below(Disk_DirectoryRecord const& record, Dicom_Tag const& uid_tag,
                                           unsigned* first) const {
  return structure->FileBelow(*this, record, uid_tag, first);
}

// VERSION

int Disk_DirectoryFile::IsUpToDate() const {
  if (writing_strategy && writing_strategy->HasPendingData()) return 1; // nothing is read back over it
  return is_current();
}

int Disk_DirectoryFile::is_current() const {
  if (version_file_in_use == 0) return 1;
  long const version = GetFileVersion();
  if (version == kNoVersion && params.read_only) version_file_in_use = 0; // a read-only medium can't change
  return file_version == version && read_state == file_state();
}

bool Disk_DirectoryFile::may_keep_records() const {
  // each write leaves records that stand apart from the others; when many do, reading brings all together again
  constexpr int kMostWrites = 512;
  if (!structure->HasPending(writing_strategy) && !is_current()) return false;
  return has_records() && writes_since_read <= kMostWrites;
}

Disk_FileState Disk_DirectoryFile::file_state() const { return structure->StateOf(own_path); }

long Disk_DirectoryFile::GetFileVersion() const { return Disk_ReadVersion(own_version_path); }

void Disk_DirectoryFile::take_version(long version) { file_version = version < 0 ? 0 : version; }

void Disk_DirectoryFile::ReadFileVersion() {
  read_state = file_state();
  take_version(GetFileVersion());
}

int Disk_DirectoryFile::UpdateFileVersion() {
  read_state = file_state();
  if (structure->CountVersion(*this, &file_version) == 0) return 0;
  return DISK_FAIL("UpdateFileVersion: Failed setting the file version.\n");
}

// Clock

Dicom_DA Disk_DirectoryFile::GetCurrentDate() {
  Dicom_DA date = Dicom_DA::GetCurrentDate();
  if (date != DA_NULL) return date;
  DISK_FAIL(Klb_System(errno, "tell the time"), "GetCurrentTime(): Error in localtime() (errno=%d).\n", errno);
  return DA_NULL;
}

Dicom_TM Disk_DirectoryFile::GetTickCount() {
  Dicom_TM time = Dicom_TM::GetTickCount();
  if (time != TM_NULL) return time;
  DISK_FAIL(Klb_System(errno, "tell the time"), "GetCurrentTime(): Error in localtime (errno=%d).\n", errno);
  return TM_NULL;
}
