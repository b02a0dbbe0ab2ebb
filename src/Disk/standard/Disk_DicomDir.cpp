#include <Disk/Disk_DicomDir.h>

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_LookAgain.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_RelaxedEpoch.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/files/Disk_VersionFile.h"
#include "Disk/standard/Disk_Extents.h"
#include "Disk/standard/Disk_Redo.h"
#include "Disk/standard/Disk_WriteGather.h"
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <Disk/Disk_Error.h>
#include <Disk/Disk_RecordList.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/Util_File.h>
#include <infra/Klb_GError.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <typeinfo>
#include <unistd.h>
#include <utility>

namespace {

constexpr unsigned kPreamble = 132; // with the magic
constexpr unsigned kItemHeader = 8;

enum class Presence { Absent, Present, Unknown };

/// Only what is known to be absent may be made anew.
Presence PresenceOf(std::string const& path) {
  if (Util_FileSystemInterface::Current().Access(path.c_str(), F_OK) == 0) return Presence::Present;
  if (errno == ENOENT) return Presence::Absent;
  int const cause = errno;
  DISK_FAIL(Klb_System(cause, "look for", path), "Can't tell whether %s is there (errno=%d).\n", path.c_str(), cause);
  return Presence::Unknown;
}

/// Looks again for a DICOMDIR that must have been there, as its VERSION is. If it counts as absent, a new one takes its
/// place.
Presence CertainPresenceOf(std::string const& path) {
  switch (Disk_LookAgain(path)) {
  case Disk_Sight::There:
    return Presence::Present;
  case Disk_Sight::Unknown:
    DISK_FAIL(Klb_System(errno, "look for", path).Unset(), "Can't tell whether %s is there (errno=%d).\n", path.c_str(),
              errno);
    return Presence::Unknown;
  default:
    return Presence::Absent;
  }
}

/// The DICOMDIR of a directory: "dicomdir" only if that alone is there.
std::string NameIn(std::string const& directory, Presence* presence, int* lowercase) {
  *lowercase = 0;
  std::string upper = Disk_Names::In(directory, Disk_Names::kDicomdir);
  std::string lower = Disk_Names::In(directory, Disk_Names::kDicomdirOfMedia);
  *presence = PresenceOf(upper);
  if (*presence != Presence::Absent) return upper;
  *presence = PresenceOf(lower);
  if (*presence == Presence::Absent &&
      Disk_ReadVersion(Disk_Names::In(directory, Disk_Names::kVersion)) != kNoVersion) {
    *presence = CertainPresenceOf(upper);
    if (*presence != Presence::Absent) return upper;
    *presence = CertainPresenceOf(lower);
    if (*presence == Presence::Absent)
      DISK_LOG(4, "%s is gone; a copy of it, or storing the objects again, brings its records back.\n", upper.c_str());
  }
  if (*presence == Presence::Absent) errno = 0;
  *lowercase = *presence == Presence::Present;
  return *lowercase ? lower : upper;
}

} // namespace

Disk_DicomDir::Disk_DicomDir()
    : transfer_syntax(Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN, nullptr),
      pending_writes(std::make_unique<Disk_Extents>()), gather(std::make_unique<Disk_WriteGather>()),
      overlay(std::make_unique<Disk_Redo>()) {}

Disk_DicomDir::~Disk_DicomDir() {
  if (file_descriptor != -1) Util_FileSystemInterface::Current().Close(file_descriptor);
}

/// A class derived from the one that writes at once may do otherwise.
bool Disk_DicomDir::KeepsImage(Disk_StorageStrategy* strategy) {
  return strategy && typeid(*strategy) != typeid(Disk_FileStorageStrategy);
}

int Disk_DicomDir::Init(char const* file_set_prefix, bool for_reading, Disk_StorageStrategy* strategy) {
  return Disk_WithCause([&] { return init(file_set_prefix, for_reading, strategy); });
}

int Disk_DicomDir::init(char const* file_set_prefix, bool for_reading, Disk_StorageStrategy* strategy) {
  if (!file_set_prefix) return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Read: file_set_prefix is NULL.\n");
  if (file_descriptor != -1) Util_FileSystemInterface::Current().Close(file_descriptor);
  file_descriptor = -1;
  device = inode = 0;
  read_only = for_reading;
  current_strategy = nullptr;
  prefix.clear();
  bool is_new = false;
  if (open(file_set_prefix, &is_new) == -1) return -1;
  if (is_new) return create(strategy);
  if (strategy) strategy->InitFD(file_descriptor);
  if (LayRedoOver() == -1) return -1;
  int const before = std::exchange(errno, 0); // that it can't be written, for instance
  bool const is_read = read_until_records() == 0 && read_prefix() == 0;
  if (errno == 0) errno = before;
  if (!is_read)
    return DISK_FAIL(Klb_System(errno, "read", file_name).Unset(),
                     "Init: Failed reading until the records sequence.\n");
  if (find_end_offset() == -1) return DISK_FAIL("Init: Failed finding the end offset.\n");
  return take_strategy(strategy);
}

/// Gives the file to a strategy; not to one that has something pending, which may be another file's.
int Disk_DicomDir::take_strategy(Disk_StorageStrategy* strategy) {
  current_strategy = nullptr;
  holds_more = false;
  pending_writes->Clear();
  // it writes without a redo record: one that a power cut brought back would undo what it has flushed
  if (!read_only && KeepsImage(strategy) && redo_file->Forget() == -1)
    return DISK_FAIL(Klb_System(errno, "remove the redo record of", file_name).Unset(),
                     "Init: Can't remove the redo record.\n");
  current_strategy = strategy;
  holds_more = KeepsImage(strategy) && strategy->HasPendingData();
  if (!strategy || holds_more) return 0;
  strategy->InitFD(file_descriptor);
  strategy->UpdateFromFile();
  return 0;
}

bool Disk_DicomDir::GoesBy(Disk_StorageStrategy* strategy) const {
  // one that was never given the file may stand where another one was
  bool const is_fresh = strategy && strategy->GetFd() == -1 && !strategy->HasPendingData();
  return strategy == current_strategy && !is_fresh;
}

int Disk_DicomDir::GoBy(Disk_StorageStrategy* strategy) {
  bool const was_flushed = holds_more && strategy == current_strategy && !strategy->HasPendingData();
  bool const is_another = was_flushed || !GoesBy(strategy);
  if (is_another && take_strategy(strategy) == -1) return -1;
  if (!holds_more) return is_another ? 1 : 0;
  return DISK_FAIL(Klb_Cause(DISK_ERROR_SYSTEM + EBUSY).At(file_name),
                   "%s: the strategy holds what was pending before: flush it first.\n", file_name.c_str());
}

/// Whether the file lacks what the strategy was given.
bool Disk_DicomDir::is_behind() const { return current_strategy && current_strategy->HasPendingData(); }

/// Opens the file unless it is new.
int Disk_DicomDir::open(char const* file_set_prefix, bool* is_new) {
  Presence presence{};
  file_name = NameIn(file_set_prefix, &presence, &lowercase_name);
  redo_file = std::make_unique<Disk_RedoFile>(file_name + Disk_Names::kRedo);
  if (presence == Presence::Unknown) return -1;
  bool const exists = presence == Presence::Present;
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (exists && system.Access(file_name.c_str(), W_OK) == -1) {
    if (errno != EACCES && errno != EROFS && errno != EPERM)
      return DISK_FAIL(Klb_System(errno, "look at", file_name).Unset(),
                       "Init: Can't tell whether it can be written.\n");
    read_only = true;
  }
  *is_new = !read_only && !exists;
  if (*is_new) return 0;
  Util_FileDescriptor file;
  if (!read_only) {
    file = Util_FileSystem::Open(file_name.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW);
    read_only = !file && errno == ELOOP; // what a link leads to is nobody's to write
  }
  if (read_only) file = Util_FileSystem::Open(file_name.c_str(), O_RDONLY | O_NONBLOCK);
  return file ? take_file(file.Release()) : cant_open(errno);
}

int Disk_DicomDir::cant_open(int cause) const {
  DISK_FAIL(Klb_System(cause, "open", file_name), "Init: Can't open file %s (errno=%d).\n", file_name.c_str(), cause);
  errno = cause;
  return -1;
}

int Disk_DicomDir::take_file(int descriptor) {
  file_descriptor = descriptor;
  struct stat status {};
  if (Util_FileSystemInterface::Current().Fstat(descriptor, &status) == -1)
    return DISK_FAIL(Klb_System(errno, "look at", file_name).Unset(), "Init: Can't look at it.\n");
  device = status.st_dev;
  inode = status.st_ino;
  return 0;
}

int Disk_DicomDir::FollowPath(bool for_reading, Disk_StorageStrategy* strategy) {
  struct stat status {};
  errno = 0;
  bool const is_there = Util_FileSystemInterface::Current().Stat(file_name.c_str(), &status) == 0;
  if (is_there && status.st_dev == device && status.st_ino == inode) return 0;
  if (is_there && !KeepsImage(strategy)) {
    DISK_LOG(4, "%s is another file than before.\n", file_name.c_str());
    if (Init(Disk_Names::FolderOf(file_name).c_str(), for_reading, strategy) == 0) return 1;
    device = inode = 0; // what was read of it isn't the whole: the next operation opens it again
    return -1;
  }
  int const cause = is_there ? ESTALE : errno;
  return DISK_FAIL(Klb_System(cause, "find the opened file again at", file_name),
                   "%s isn't the file that was opened (errno=%d).\n", file_name.c_str(), cause);
}

/// A new file comes to its name whole, so that neither a kill nor, whatever the durability, a power cut leaves the
/// beginning of one. Its entry is synced with that of the first redo record, or here when a strategy does without.
int Disk_DicomDir::create(Disk_StorageStrategy* strategy) {
  if (new_dicomdir() == -1 || make_prefix() == -1) return DISK_FAIL("Init: Failed initiate new DICOMDIR.\n");
  patch_prefix();
  std::string const temporary = file_name + Disk_Names::kTemporary;
  std::string_view const parts[] = {prefix};
  constexpr auto kFull = Util_Durability::Full;
  if (Util_FileSystem::WriteNewFile(temporary.c_str(), parts, true, kFull) == -1 ||
      Util_FileSystemInterface::Current().Rename(temporary.c_str(), file_name.c_str()) == -1) {
    int const cause = errno;
    if (!Util_FileSystem::MayExist(temporary.c_str())) return cant_open(cause);
    DISK_FAIL(Klb_System(cause, "write", temporary).Unset(), "Init: %s (errno=%d).\n", temporary.c_str(), cause);
    errno = cause;
    return DISK_FAIL("Init: Failed write the new dicomdir.\n");
  }
  Util_FileDescriptor file = Util_FileSystem::Open(file_name.c_str(), O_RDWR | O_NOFOLLOW);
  if (!file) return cant_open(errno);
  if (take_file(file.Release()) == -1 || take_strategy(strategy) == -1) return -1;
  if (strategy) strategy->InitFD(file_descriptor);
  holds_more = false; // nothing of a new file is pending
  if (!KeepsImage(strategy)) return 0;
  return Write(strategy) == -1 ? DISK_FAIL("Init: Failed write the new dicomdir.\n") : 0;
}

// What stands before the records

/// The elements go in with dummy offsets first: the offsets depend on the length, which doesn't depend on them.
int Disk_DicomDir::new_dicomdir() {
  if (SetFileSetID(Dicom_CS("")) == -1) return DISK_FAIL("new_dicomdir: Failed settitng the file set id.\n");
  if (SetOffsetOfTheFirstDirectoryRecord(Dicom_UL(0)) == -1)
    return DISK_FAIL("new_dicomdir: Failed settitng the dummy offset of the first directory record.\n");
  if (SetOffsetOfTheLastDirectoryRecord(Dicom_UL(0)) == -1)
    return DISK_FAIL("new_dicomdir: Failed settitng the dummy offset of the last directory record.\n");
  if (SetFileSetConsistencyFlag(Dicom_US(0)) == -1)
    return DISK_FAIL("new_dicomdir: Failed settitng the file consistency flag.\n");
  std::unique_ptr<Dicom_Msg> const meta(meta_information());
  if (!meta) return DISK_FAIL("Failed to create Meta Information\n.");
  offset_end = kPreamble + meta->GetDumpLen() + GetDumpLen(transfer_syntax, 0, SCompressionParms()) + header_length();
  if (SetOffsetOfTheFirstDirectoryRecord(Dicom_UL(offset_end)) == -1)
    return DISK_FAIL("new_dicomdir: Failed settitng the offset of the first directory record.\n");
  if (SetOffsetOfTheLastDirectoryRecord(Dicom_UL(offset_end)) == -1)
    return DISK_FAIL("new_dicomdir: Failed settitng the offset of the last directory record.\n");
  return 0;
}

/// The bytes before the records, of a message that was not read from a file.
int Disk_DicomDir::make_prefix() {
  std::unique_ptr<Dicom_Msg> const meta(meta_information());
  prefix.assign(kPreamble - 4, '\0');
  prefix += "DICM";
  auto const append = [this](Dicom_Msg const& msg, Dicom_TransferSyntax const& syntax) {
    std::string bytes(msg.GetDumpLen(syntax, 0, SCompressionParms()), '\0');
    int const written = msg.Dump(bytes.data(), unsigned(bytes.size()), syntax, 0, nullptr);
    prefix += bytes;
    return written != -1;
  };
  bool const whole = meta && append(*meta, Dicom_TransferSyntax::Native());
  data_set_begin = unsigned(prefix.size());
  if (!whole || !append(*this, transfer_syntax)) return DISK_FAIL("Write: Failed dumping the msg into buffer.\n");
  std::uint16_t const tag[] = {kRecordSequence.Group(), kRecordSequence.Element()};
  char bytes[4];
  Dicom_Copy(tag, bytes, 2, 2, transfer_syntax.GetEndianity());
  prefix.append(bytes, 4);
  if (transfer_syntax.IsExplicitVR()) prefix.append("SQ\0\0", 4);
  prefix.append(4, '\0'); // the length
  records_begin = unsigned(prefix.size());
  locate_offsets();
  return 0;
}

Dicom_Msg* Disk_DicomDir::meta_information() const {
  return Util_File::BuildMetaInformation(transfer_syntax.GetUID(), Dicom_UIDic::BASIC_DIRECTORY_STORAGE, UI_NULL);
}

unsigned Disk_DicomDir::header_length() const { return transfer_syntax.IsExplicitVR() ? 12 : 8; }

/// The value of an element in the prefix, and its length; null where the prefix lacks it.
char* Disk_DicomDir::place_of(Dicom_Tag const& tag, std::size_t* length) {
  char* found = nullptr;
  char const* const end = prefix.data() + prefix.size() - header_length();
  Dicom_RawElement element;
  Dicom_Encoding const encoding{transfer_syntax.IsExplicitVR(), transfer_syntax.IsBigEndian()};
  for (char const* p = prefix.data() + data_set_begin; p < end && Dicom_ReadElement(p, end, encoding, &element);
       p = element.next) {
    if (element.tag != tag.Number() || element.undefined_length) continue;
    found = prefix.data() + (element.value - prefix.data());
    *length = element.length;
  }
  return found;
}

void Disk_DicomDir::locate_offsets() {
  auto const at = [this](Dicom_Tag const& tag) {
    std::size_t length = 0;
    char const* const place = place_of(tag, &length);
    return place && length == 4 ? unsigned(place - prefix.data()) : 0;
  };
  first_at = at(kFirstOffset);
  last_at = at(kLastOffset);
}

void Disk_DicomDir::patch_prefix() {
  auto const put = [this](unsigned place, unsigned number) {
    if (place != 0) Dicom_Copy(&number, prefix.data() + place, 4, 1, transfer_syntax.GetEndianity());
  };
  put(first_at, GetOffsetOfTheFirstDirectoryRecord());
  put(last_at, Value<Dicom_UL>(kLastOffset));
  stated_length = offset_end - records_begin;
  put(records_begin - 4, stated_length);
}

int Disk_DicomDir::Write(Disk_StorageStrategy* strategy) {
  return Disk_WithCause([&] { return write_prefix(strategy); });
}

int Disk_DicomDir::write_prefix(Disk_StorageStrategy* strategy) {
  DISK_LOG(7, "Write:\n");
  if (is_gathering) strategy = gather.get();
  if (prefix.empty() && make_prefix() == -1) return -1;
  patch_prefix();
  if (strategy && strategy == current_strategy && !is_behind()) pending_writes->Clear();
  auto const cant_write = [&] { return Klb_System(errno, "write", file_name).Unset(); };
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  long const start = strategy ? strategy->LSeek(0, 0) : long(system.Lseek(file_descriptor, 0, SEEK_SET));
  if (start != 0) return DISK_FAIL(cant_write(), "Write: Failed setting the file pointer to zero.\n");
  auto const write = [&](char const* data, unsigned size) {
    return strategy ? strategy->Write(data, size) == int(size)
                    : Util_FileSystem::WriteAll(file_descriptor, data, size) == 0;
  };
  unsigned const before = records_begin - header_length();
  if (!write(prefix.data(), before)) return DISK_FAIL(cant_write(), "Write: Failed writing the msg.\n");
  if (!write(prefix.data() + before, header_length()))
    return DISK_FAIL(cant_write(), "Write: Can't write the buffer (errno=%d).\n", errno);
  if (strategy == current_strategy && is_behind()) pending_writes->Add(0, prefix);
  return 0;
}

int Disk_DicomDir::no_room(char const* what) {
  return DISK_FAIL(DISK_FAILURE_NO_ROOM, "The DICOMDIR has no room for %s.\n", what);
}

int Disk_DicomDir::SetFileSetID(Dicom_CS const& id) {
  if (prefix.empty()) return Set(kFileSetID, id);
  std::size_t length = 0;
  char* const place = place_of(kFileSetID, &length);
  std::string text(id.View());
  if (!place || text.size() > length) return no_room("that File-set ID");
  text.resize(length, ' ');
  text.copy(place, length);
  return Set(kFileSetID, id);
}

int Disk_DicomDir::SetFileSetConsistencyFlag(Dicom_US const& flag) {
  if (prefix.empty()) return Set(kConsistencyFlag, flag);
  std::size_t length = 0;
  char* const place = place_of(kConsistencyFlag, &length);
  std::uint16_t const number = flag;
  if (!place || length != sizeof number) return no_room("a File-set Consistency Flag");
  Dicom_Copy(&number, place, sizeof number, 1, transfer_syntax.GetEndianity());
  return Set(kConsistencyFlag, flag);
}

Dicom_UL Disk_DicomDir::GetOffsetOfTheFirstDirectoryRecord() const { return Value<Dicom_UL>(kFirstOffset); }
int Disk_DicomDir::SetOffsetOfTheFirstDirectoryRecord(Dicom_UL const& offset) { return Set(kFirstOffset, offset); }
int Disk_DicomDir::SetOffsetOfTheLastDirectoryRecord(Dicom_UL const& offset) { return Set(kLastOffset, offset); }

// Records

int Disk_DicomDir::Reserve(Dicom_Msg const& record) {
  std::uint64_t const end =
      std::uint64_t(offset_end) + kItemHeader + record.GetDumpLen(transfer_syntax, 0, SCompressionParms());
  if (end >= std::numeric_limits<std::uint32_t>::max())
    return DISK_FAIL(DISK_FAILURE_NO_ROOM, "Reserve: the DICOMDIR is full.\n");
  offset_end = unsigned(end);
  return 0;
}

int Disk_DicomDir::WriteRecords(Disk_RecordChain& records, unsigned first, Disk_StorageStrategy* strategy) {
  return is_gathering ? records.WriteUnwritten(transfer_syntax, *gather)
                      : records.WriteRecords(file_descriptor, transfer_syntax, first, strategy);
}

long Disk_DicomDir::ReadAt(void* data, unsigned size, unsigned offset) const {
  char* const bytes = static_cast<char*>(data);
  bool const behind = is_behind();
  bool const is_held = behind && pending_writes->Cover(offset, size);
  long count = is_held ? 0 : Util_FileSystem::PreadAll(file_descriptor, data, size, off_t(offset));
  if (count == -1) return -1;
  if (behind) pending_writes->LayOver(bytes, size, offset, &count);
  overlay->Extents().LayOver(bytes, size, offset, &count);
  return count;
}

bool Disk_DicomDir::Claim(unsigned offset, unsigned length, unsigned owner) const {
  return claims.Add(offset, length, owner, offset_end - records_begin);
}

// Operations

int Disk_DicomDir::Begin() {
  errno = 0;
  if (char const* const why = unfit_for_writing()) {
    if (read_only) errno = EROFS;
    int const code = errno != 0 ? DISK_ERROR_SYSTEM + errno : int(DISK_FAILURE_DAMAGED);
    return DISK_FAIL(Klb_Cause(code).At(file_name).Because(why), "Begin: %s can't be written: %s.\n", file_name.c_str(),
                     why);
  }
  gather->redo.Clear();
  is_gathering = true;
  return 0;
}

/// Why new records can't be appended; null if they can. What must not change has to be in its place.
char const* Disk_DicomDir::unfit_for_writing() {
  if (read_only) return "it is read-only";
  if (first_at == 0 || last_at == 0) return "it lacks the offset of its first or last record";
  if (is_behind()) return nullptr;
  struct stat status {};
  Util_FileSystemInterface& system = Util_FileSystemInterface::Current();
  if (system.Fstat(file_descriptor, &status) == -1) return "its size can't be told";
  if (status.st_size < off_t(offset_end)) return "it is cut short";
  if (status.st_size == off_t(offset_end)) return nullptr;
  char bytes[kItemHeader] = {};
  long const count = Util_FileSystem::PreadAll(file_descriptor, bytes, sizeof bytes, off_t(offset_end));
  std::uint32_t const tag = count < long(sizeof bytes) ? 0 : Dicom_LoadTag(bytes, transfer_syntax.IsBigEndian());
  if (tag == kSequenceDelimiter && status.st_size == off_t(offset_end) + off_t(sizeof bytes)) return nullptr;
  if (tag > kRecordSequence.Number()) return "elements stand behind its records";
  // bytes without meaning: they would stand behind the new records
  DISK_LOG(5, "Begin: %s: cutting %lld bytes behind its records.\n", file_name.c_str(),
           static_cast<long long>(status.st_size - off_t(offset_end)));
  return system.Ftruncate(file_descriptor, off_t(offset_end)) == 0 ? nullptr : "bytes behind its records can't be cut";
}

void Disk_DicomDir::MoveVersion(std::string_view directory, std::int32_t version) {
  gather->redo.MoveVersion(directory, version);
}

void Disk_DicomDir::Discard() {
  gather->redo.Clear();
  is_gathering = false;
}

int Disk_DicomDir::Commit(Disk_StorageStrategy* strategy) {
  Disk_Redo& redo = gather->redo;
  is_gathering = false;
  std::string const directory = Disk_Names::FolderOf(file_name);
  auto const fail = [&](char const* what, char const* verb) {
    int const cause = errno;
    DISK_FAIL(Klb_System(cause, verb, file_name), "Commit: %s %s (errno=%d).\n", what, file_name.c_str(), cause);
    redo.Clear();
    return -1;
  };
  bool const writes_through = !KeepsImage(strategy); // otherwise there is nothing to recover
  // what no copy can be made of, on a full disk for instance, is written durably
  bool const relaxed = writes_through && Util_FileSystem::GetDurability() == Util_Durability::Relaxed &&
                       Disk_RelaxedEpoch::Keep(file_name) == 0;
  Util_Durability const durability = relaxed ? Util_Durability::Relaxed : Util_Durability::Full;
  if (!is_behind()) pending_writes->Clear();
  if (writes_through && redo_file->Save(redo, durability) == -1)
    return fail("Can't write the redo record of", "write the redo record of");
  bool const applied = !strategy ? redo.Apply(file_descriptor, durability) == 0
                                 : redo.Apply(*strategy, *pending_writes) == 0 &&
                                       (!writes_through || Util_FileSystem::SyncFile(file_descriptor, durability) == 0);
  if (!applied) return fail("Can't write", "write");
  if (writes_through && !relaxed && Disk_RelaxedEpoch::Forget(file_name) == -1)
    return fail("Can't forget a copy of", "forget a copy of");
  if (redo.MoveVersions(directory.c_str()) == -1) return fail("Can't move the versions of", "move the versions of");
  redo.Clear();
  if (writes_through) redo_file->Clear();
  return 0;
}

// Recovery

bool Disk_DicomDir::HasRedo() const { return redo_file->MayHoldRecord(); }

void Disk_DicomDir::RemoveRedoFile() { redo_file->Remove(); }

bool Disk_DicomDir::UsesRedoFile() const { return redo_file && redo_file->IsOpen(); }

int Disk_DicomDir::Replay(char const* file_set_prefix) {
  Presence presence{};
  int lowercase = 0;
  std::string const name = NameIn(file_set_prefix, &presence, &lowercase), path = name + Disk_Names::kRedo;
  if (presence == Presence::Unknown) return -1;
  Disk_Redo redo;
  Disk_Redo::Found const found = presence == Presence::Present ? redo.Load(path) : Disk_Redo::Found::None;
  if (found == Disk_Redo::Found::None) return 0;
  int result = 0;
  if (found == Disk_Redo::Found::Unreadable) {
    result = -1;
  } else if (found == Disk_Redo::Found::Torn) {
    DISK_LOG(4, "Replay: %s isn't whole; what it belongs to had no effect.\n", path.c_str());
  } else {
    DISK_LOG(4, "Replay: completing what a process that has ended began to write to %s.\n", name.c_str());
    Util_FileDescriptor const file = Util_FileSystem::Open(name.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW);
    struct stat status {};
    if (!file || Util_FileSystemInterface::Current().Fstat(file.Get(), &status) == -1) {
      result = -1;
    } else if (!redo.Fits(status.st_size)) {
      DISK_LOG(3, "Replay: %s belongs to another DICOMDIR.\n", path.c_str());
    } else {
      // always synced: no copy may have been made of what is written to here
      result = redo.Apply(file.Get(), Util_Durability::Full) == -1 ? -1 : redo.MoveVersions(file_set_prefix);
    }
  }
  if (result == 0) result = Util_FileSystemInterface::Current().Unlink(path.c_str());
  if (result == 0) return 0;
  int const cause = errno;
  return DISK_FAIL(Klb_System(cause, "complete what was begun by", path),
                   "Replay: Can't complete what %s holds (errno=%d).\n", path.c_str(), cause);
}

int Disk_DicomDir::LayRedoOver() {
  if (!read_only) return 0;
  Disk_Redo redo;
  Disk_Redo::Found const found = redo.Load(redo_file->Path());
  if (found == Disk_Redo::Found::Unreadable)
    return DISK_FAIL(Klb_System(errno, "read", redo_file->Path()).Unset(), "LayRedoOver: Can't read %s (errno=%d).\n",
                     redo_file->Path().c_str(), errno);
  struct stat status {};
  bool const is_sized =
      file_descriptor != -1 && Util_FileSystemInterface::Current().Fstat(file_descriptor, &status) == 0;
  if (is_sized && !redo.Fits(status.st_size)) redo.Clear();
  if (redo == *overlay) return 0;
  *overlay = redo;
  return 1;
}
