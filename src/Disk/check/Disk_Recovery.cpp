#include "Disk/check/Disk_Recovery.h"

#include "Disk/check/Disk_CheckStandard.h"
#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_LookAgain.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/structure/Disk_RecordIO.h"

#include <Disk/Disk_LockManager.h>
#include <infra/Util_FileSystem.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <unistd.h>

// What is done about the unsynced files of an earlier boot. All of it can be done again: a power cut in between costs
// nothing.

namespace {

Util_FileSystemInterface& System() { return Util_FileSystemInterface::Current(); }

bool Exists(std::string const& path) { return System().Access(path.c_str(), F_OK) == 0; }

/// A copy that may not have got its final name yet.
std::string CopyIn(std::string const& folder, std::string const& name) {
  std::string const copy = Disk_Names::In(folder, name), unfinished = copy + Disk_Names::kUnfinished;
  return Exists(copy) || !Exists(unfinished) ? copy : unfinished;
}

/// Whether there is certainly no copy: then a torn file is dropped. False with errno.
bool IsWithoutCopy(std::string const& folder, std::string const& name) {
  std::string const copy = Disk_Names::In(folder, name);
  errno = EIO; // unless one is there and can't be read
  return Disk_IsGone(copy) && Disk_IsGone(copy + Disk_Names::kUnfinished);
}

struct PrivateFiles {
  std::string prefix, folder;

  /// The file, if it is torn, gives way to its copy; or, where there was none before, to nothing.
  int Mend(Disk_FileID const& id) const {
    std::string const path = id.Path();
    std::shared_ptr<Util_Buffer const> const file = Util_FileSystem::ReadWholeFile(path.c_str());
    if (!file || Disk_RelaxedEpoch::IsWhole({file->data(), file->size()})) return 0; // what can't be read stays
    std::string const copy = CopyIn(folder, id.GetID().GetText());
    std::shared_ptr<Util_Buffer const> const kept = Util_FileSystem::ReadWholeFile(copy.c_str());
    if (!kept && !IsWithoutCopy(folder, id.GetID().GetText())) return -1;
    bool const is_kept = kept && Disk_RelaxedEpoch::IsWhole({kept->data(), kept->size()});
    DISK_LOG(3, "Recover: %s was torn by a power cut; %s.\n", path.c_str(),
             is_kept ? "it is now what it was when it was last synced" : "it held nothing that was synced before");
    return System().Rename(is_kept ? copy.c_str() : path.c_str(),
                           is_kept ? path.c_str() : (path + Disk_Names::kTemporary).c_str());
  }

  /// A folder that a relaxed store made can be gone while the record above, in `parent`, names it. The next store there
  /// needs it.
  static void RestoreFolder(Disk_FileID id, std::string const& parent) {
    std::string const folder = id.RemoveLastComponent() == 0 ? id.Path() : std::string();
    if (folder.empty() || Disk_Names::FolderOf(folder) != parent || Exists(folder)) return;
    int const made = System().Mkdir(folder.c_str(), 0775);
    int const cause = made == -1 ? errno : 0;
    DISK_LOG(4, "Recover: %s is gone; made anew (errno=%d).\n", folder.c_str(), cause);
  }

  /// The directory file, then those below its records. `level` is 0 for the root's.
  int MendTree(Disk_FileID const& id, int level = 0) const {
    if (id.Path().empty()) return 0;
    if (Mend(id) == -1) return -1;
    constexpr char const* kBelow[] = {"STUDY", "SERIES"};
    if (level == int(std::size(kBelow))) return 0;
    Dicom_Sequence* sequence = nullptr;
    IOD_Msg* msg = nullptr;
    int found = 0;
    Disk_DirectoryFile file(id, Disk_StoreParams::READ_ONLY, nullptr);
    Klb_Attempt const attempt;
    if (file.Read(&sequence, &found, &msg) == -1) { // logged, and left as it is
      attempt.Forget();
      return 0;
    }
    std::unique_ptr<IOD_Msg> const owner(msg);
    if (!found) return 0;
    std::string const path = id.Path(), folder = Disk_Names::FolderOf(path);
    bool const restores = level == 0 || file.RefuseLink() == 0;
    return Disk_TakeItems(*sequence, [&](std::unique_ptr<Dicom_Msg> item) {
      if (item->Text(kRecordType) != kBelow[level]) return 0;
      Disk_FileID const below(prefix.c_str(), item->Value<Dicom_CS>(kReferencedFileID), 0);
      if (restores) RestoreFolder(below, folder);
      return MendTree(below, level + 1);
    });
  }
};

/// What a check finds in the DICOMDIR itself; `synced` is how much of it was there when it was last synced.
std::size_t DamageOf(std::string const& folder, std::string const& dicomdir, std::uint32_t synced = UINT32_MAX) {
  Disk_CheckResult result;
  Disk_CheckOptions const options;
  Disk_CheckStandard check(folder.c_str(), options, &result);
  check.ExpectOwnFrom(synced);
  if (check.RunUnderLock() == -1) return SIZE_MAX;
  for (Disk_Finding const& finding : result.findings)
    if (finding.cause == Disk_Finding::NoMemory) throw std::bad_alloc(); // nothing may be concluded
  return std::size_t(std::count_if(result.findings.begin(), result.findings.end(), [&](Disk_Finding const& finding) {
    return finding.cause == Disk_Finding::Damage && finding.path == dicomdir;
  }));
}

int MendStandard(std::string const& prefix, std::string const& folder) {
  if (Disk_DicomDir::Replay(prefix.c_str()) == -1) return -1;
  std::string const upper = Disk_Names::In(prefix, Disk_Names::kDicomdir);
  bool const is_upper = Exists(upper) || !Disk_IsGone(upper);
  std::string const name = is_upper ? Disk_Names::kDicomdir : Disk_Names::kDicomdirOfMedia;
  std::string const file = Disk_Names::In(prefix, name), copy = Disk_Names::In(folder, name);
  struct stat status {};
  bool const has_copy = System().Stat(CopyIn(folder, name).c_str(), &status) == 0;
  std::size_t const damage = DamageOf(prefix, file, has_copy ? std::uint32_t(status.st_size) : UINT32_MAX);
  if (damage == 0) return 0;
  bool const may_be_torn = CopyIn(folder, name) != copy;
  if (may_be_torn && System().Rename((copy + Disk_Names::kUnfinished).c_str(), copy.c_str()) == -1) return -1;
  if (!Exists(copy) && !IsWithoutCopy(folder, name)) return -1;
  std::size_t const kept = Exists(copy) ? DamageOf(folder, copy) : SIZE_MAX;
  if (kept >= damage || (may_be_torn && kept > 0)) return 0; // it is not the power cut's
  DISK_LOG(3, "Recover: %s was torn by a power cut; it is now what it was when it was last synced.\n", file.c_str());
  return System().Rename(copy.c_str(), file.c_str());
}

int MendPrivate(std::string const& prefix, std::string const& folder) {
  return PrivateFiles{prefix, folder}.MendTree(Disk_FileID(prefix.c_str(), Dicom_CS(Disk_Names::kDicomdir), 0));
}

/// By the name of the structure, which ends BOOT.
struct Mender {
  std::string_view end_of_boot;
  int (*mend)(std::string const& prefix, std::string const& folder);
};
constexpr Mender kMenders[] = {{"\nprivate\n", MendPrivate}, {"\nstandard\n", MendStandard}};

int Mend(std::string const& prefix, Mender const& mender) {
  Disk_LockManager lock;
  Disk_Hold<Klb_LockFile> held;
  if (lock.Init(prefix.c_str(), 0) == -1 || held.Exclusive(lock) == -1) return -1;
  std::string const folder = Disk_Names::In(prefix, Disk_Names::kRelaxed);
  // what was renamed lasts before the copies go
  return mender.mend(prefix, folder) == -1 ? -1 : Util_FileSystem::SyncFileSystem(prefix.c_str());
}

} // namespace

int Disk_Recover(std::string const& prefix) {
  int const needed = Disk_RelaxedEpoch::NeedsRecovery(prefix);
  if (needed == 0) return 0;
  auto const failed = [&] {
    int const cause = errno;
    return DISK_FAIL(Klb_System(cause, "bring in order after a power cut", prefix),
                     "Recover: %s can't be brought in order after a power cut (errno=%d).\n", prefix.c_str(), cause);
  };
  if (needed == -1) return failed();
  std::string const folder = Disk_Names::In(prefix, Disk_Names::kRelaxed);
  std::string const boot = Disk_Names::In(folder, Disk_Names::kBoot);
  Klb_LockFile turn;
  Klb_Attempt const attempt;
  if (turn.Init(folder.c_str(), boot.c_str(), 0) == -1 || turn.LockExclusive() == -1) {
    if (Disk_RelaxedEpoch::NeedsRecovery(prefix) != 0) return failed();
    attempt.Forget(); // another did it
    return 0;
  }
  if (Disk_RelaxedEpoch::NeedsRecovery(prefix) == 0) return 0;
  std::shared_ptr<Util_Buffer const> const file = Util_FileSystem::ReadWholeFile(boot.c_str(), 256);
  if (!file) return failed(); // an empty one has another meaning
  std::string_view const content(file->data(), file->size());
  // without a whole BOOT nothing was written under it, or all of it was synced
  for (Mender const& mender : kMenders)
    if (content.ends_with(mender.end_of_boot) && Mend(prefix, mender) == -1) return failed();
  return Disk_RelaxedEpoch::RemoveCopies(folder) == -1 ? failed() : 0;
}
