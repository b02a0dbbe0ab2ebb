#include "Disk/check/Disk_CheckStandard.h"

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Names.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/standard/Disk_Redo.h"
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <Disk/Disk_DirectoryFile.h>
#include <infra/Util_FileSystem.h>

#include <cerrno>
#include <cstring>
#include <tuple>
#include <unistd.h>

namespace {

constexpr std::uint32_t kItemHeader = 8;
constexpr std::uint64_t kMostRedoBytes = 16 << 20;
constexpr std::size_t kHashName = 8; // length of the name of a study's or series' folder
constexpr char const* kTypes[] = {"PATIENT", "STUDY", "SERIES"};
constexpr int kInstance = 3;

bool LooksLikeOurs(std::string const& name) {
  return name.size() == kHashName && name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789") == name.npos;
}

/// Whether the standard has no such type, and never had. PRIVATE is that of other systems' records.
bool IsOfNoKind(std::string const& type) {
  static std::set<std::string> const s_kinds = {"PATIENT",
                                                "STUDY",
                                                "SERIES",
                                                "IMAGE",
                                                "PRESENTATION",
                                                "SR DOCUMENT",
                                                "PRIVATE",
                                                "RT DOSE",
                                                "RT STRUCTURE SET",
                                                "RT PLAN",
                                                "RT TREAT RECORD",
                                                "WAVEFORM",
                                                "KEY OBJECT DOC",
                                                "SPECTROSCOPY",
                                                "RAW DATA",
                                                "REGISTRATION",
                                                "FIDUCIAL",
                                                "HANGING PROTOCOL",
                                                "ENCAP DOC",
                                                "VALUE MAP",
                                                "STEREOMETRIC",
                                                "PALETTE",
                                                "IMPLANT",
                                                "IMPLANT ASSY",
                                                "IMPLANT GROUP",
                                                "PLAN",
                                                "MEASUREMENT",
                                                "SURFACE",
                                                "SURFACE SCAN",
                                                "TRACT",
                                                "ASSESSMENT",
                                                "RADIOTHERAPY",
                                                "ANNOTATION",
                                                "INVENTORY",
                                                "HL7 STRUC DOC",
                                                "OVERLAY",
                                                "MODALITY LUT",
                                                "VOI LUT",
                                                "CURVE",
                                                "TOPIC",
                                                "VISIT",
                                                "RESULTS",
                                                "INTERPRETATION",
                                                "STUDY COMPONENT",
                                                "STORED PRINT",
                                                "FILM SESSION",
                                                "FILM BOX",
                                                "IMAGE BOX",
                                                "MRDR",
                                                "PRINT QUEUE"};
  return s_kinds.count(type) == 0;
}

bool NoFolder(std::string const&) { return false; }

std::string At(std::uint32_t offset) { return "offset " + std::to_string(offset); }

} // namespace

struct Disk_CheckStandard::Record {
  IOD_Msg msg;
  std::uint32_t offset = 0;
  std::string type;
  bool in_use = true;
};

/// What the directory files of this structure make of IDs and UIDs.
class Disk_CheckStandard::Names : public Disk_DirectoryFile {
public:
  Names(Disk_FileID const& folder, Disk_DicomDir* dicomdir)
      : Disk_DirectoryFile(folder, Disk_StoreParams::READ_ONLY, dicomdir) {}
  /// For the folders below a study's.
  Names Below(Dicom_UI const& uid) const {
    Disk_FileID id = GenerateFileID(uid);
    std::ignore = id.AddComponent(Disk_Names::kDirectoryFile); // two short names always make a file ID
    return {id, standard_dicomdir};
  }
  Disk_FileID Folder() const { return directory(); }
  /// The file of an object: other media have names in lower case, or with a dot.
  std::string ObjectPath(Dicom_CS const& id) const {
    std::string const path = object_id(id).Path();
    return path.empty() ? path : get_filename_to_use(path.c_str()).str();
  }
};

Disk_CheckStandard::Disk_CheckStandard(char const* file_set_prefix, Disk_CheckOptions const& options,
                                       Disk_CheckResult* result)
    : Disk_Checker(file_set_prefix, true, options, result) {}

Disk_CheckStandard::~Disk_CheckStandard() = default;

int Disk_CheckStandard::Walk() {
  items_.clear();
  study_folders_.clear();
  last_of_root_ = n_chains_ = 0;
  dicomdir_ = std::make_unique<Disk_DicomDir>();
  auto const exists = [](std::string const& path) {
    return Util_FileSystemInterface::Current().Access(path.c_str(), F_OK) == 0;
  };
  path_ = Disk_Names::In(Prefix(), Disk_Names::kDicomdir);
  if (!exists(path_)) path_ = Disk_Names::In(Prefix(), Disk_Names::kDicomdirOfMedia);
  if (!exists(path_))
    return DISK_FAIL(Klb_System(errno, "look at", path_).Unset(), "Check: %s: %s\n", path_.c_str(),
                     std::strerror(errno));
  names_ = std::make_unique<Names>(Disk_FileID(Prefix().c_str(), Dicom_CS(Disk_Names::kDicomdir), 0), dicomdir_.get());
  check_redo();
  CheckVersion(Prefix(), false);
  errno = 0;
  if (dicomdir_->Init(Prefix().c_str(), true, nullptr) == -1) {
    FindUnreadable("directory-file-unreadable", path_, "what stands before the records can't be read");
    return 0;
  }
  if (!read_items()) return 0;
  check_lone_numbers();
  std::uint32_t const first = dicomdir_->GetOffsetOfTheFirstDirectoryRecord();
  if (first != 0 && !(items_.empty() && first == dicomdir_->RecordsEnd())) walk_chain(first, 0, nullptr);
  check_unreached();
  bool const made_here = exists(Disk_Names::In(Prefix(), Disk_Names::kVersion));
  CompareFolder(Prefix(), study_folders_, false, made_here ? LooksLikeOurs : NoFolder);
  return 0;
}

void Disk_CheckStandard::damaged(char const* kind, std::string text) {
  Find(kind, Disk_Finding::Damage, path_, std::move(text));
}

/// What a killed process had begun to commit counts: whoever comes next completes it.
void Disk_CheckStandard::check_redo() {
  Disk_Redo redo;
  std::string const path = path_ + Disk_Names::kRedo;
  switch (redo.Load(path)) {
  case Disk_Redo::Found::None:
    break;
  case Disk_Redo::Found::Whole:
    Find("redo-pending", Disk_Finding::InterruptedStore, path, "the next operation completes a write that was killed");
    break;
  case Disk_Redo::Found::Torn:
    Find("redo-torn", Disk_Finding::InterruptedStore, path, "a write was killed before it took effect");
    break;
  case Disk_Redo::Found::Unreadable:
    Find("redo-unreadable", Disk_Finding::Damage, path, std::strerror(errno));
  }
}

/// Finds the items one after the other, whatever links say.
bool Disk_CheckStandard::read_items() {
  struct stat status {};
  std::uint32_t const begin = dicomdir_->RecordsBegin();
  std::uint32_t end = dicomdir_->RecordsEnd();
  if (Util_FileSystemInterface::Current().Fstat(dicomdir_->GetFd(), &status) == -1) return false;
  check_end(end);
  // a pending redo record adds bytes behind the end of the file, as many as one operation writes
  std::uint64_t const most = std::uint64_t(status.st_size) + (dicomdir_->HasRedo() ? kMostRedoBytes : 0);
  bytes_ = Util_Buffer::Make(std::size_t(std::min<std::uint64_t>(end, std::max<std::uint64_t>(most, begin)) - begin));
  if (!bytes_) errno = ENOMEM;
  long const count = bytes_ ? dicomdir_->ReadAt(bytes_->data(), unsigned(bytes_->size()), begin) : -1;
  if (count == -1) {
    FindUnreadable("directory-file-unreadable", path_, std::strerror(errno));
    return false;
  }
  if (count < long(end - begin)) end = begin + std::uint32_t(count);
  Dicom_TransferSyntax const& syntax = dicomdir_->Syntax();
  Dicom_Encoding const encoding{syntax.IsExplicitVR(), syntax.IsBigEndian()};
  char const *const first = bytes_->data(), *const stop = first + (end - begin);
  for (char const* p = first; p < stop;) {
    std::uint32_t const offset = begin + std::uint32_t(p - first);
    Dicom_RawItem item;
    if (stop - p < long(kItemHeader) || Dicom_LoadTag(p, syntax.IsBigEndian()) != kItemTag) {
      damaged("hole", "no record stands at " + At(offset));
      break;
    }
    if (!Dicom_ReadItem(p, stop, encoding, &item)) {
      damaged("record-cut", "the record at " + At(offset) + " runs past the end");
      break;
    }
    items_[offset] = {std::uint32_t(item.length), item.value};
    p = item.next;
    if (!Disk_RecordClaims::AreMeaningful(items_.size(), std::uint64_t(p - first))) {
      damaged("record-unreadable", "there are very many records that hold next to nothing");
      return false;
    }
  }
  return true;
}

void Disk_CheckStandard::check_end(std::uint32_t end) {
  struct stat status {};
  if (Util_FileSystemInterface::Current().Fstat(dicomdir_->GetFd(), &status) == -1 || dicomdir_->HasRedo()) return;
  if (status.st_size < off_t(end))
    damaged("length-beyond-file",
            "the records are to end at " + At(end) + ", the file ends at " + std::to_string(status.st_size));
  char delimiter[kItemHeader] = {};
  bool const delimited = status.st_size == off_t(end) + off_t(kItemHeader) &&
                         dicomdir_->ReadAt(delimiter, kItemHeader, end) == long(kItemHeader) &&
                         Dicom_LoadTag(delimiter, dicomdir_->Syntax().IsBigEndian()) == kSequenceDelimiter;
  if (status.st_size > off_t(end) && !delimited)
    damaged("bytes-behind-records", "bytes stand behind the records, from " + At(end));
}

void Disk_CheckStandard::check_lone_numbers() {
  if (dicomdir_->Value<Dicom_US>(kConsistencyFlag) != Dicom_US(0) && dicomdir_->Has(kConsistencyFlag))
    damaged("consistency-flag", "the file-set is flagged as inconsistent");
  std::uint32_t const first = dicomdir_->GetOffsetOfTheFirstDirectoryRecord();
  if (first == 0 && !items_.empty()) damaged("first-record-offset", "there are records, but none is the first one");
}

void Disk_CheckStandard::check_unreached() {
  std::uint32_t const last = dicomdir_->Value<Dicom_UL>(kLastOffset);
  if (last_of_root_ != 0 && last != last_of_root_)
    damaged("last-record-offset",
            "the last patient stands at " + At(last_of_root_) + ", the file-set says " + At(last));
  for (auto const& [offset, item] : items_) {
    if (item.chain != 0) continue;
    Record record;
    if (load(offset, 0, &record) && record.in_use)
      damaged("record-unreached", "no link leads to the " + record.type + " record at " + At(offset));
  }
}

bool Disk_CheckStandard::load(std::uint32_t offset, std::uint32_t chain, Record* record) {
  Item& item = items_[offset];
  std::shared_ptr<Util_Buffer> const body = Util_Buffer::Make(item.length);
  int error = -1;
  errno = body ? 0 : ENOMEM;
  if (body) {
    std::memcpy(body->data(), item.body, item.length);
    record->msg = IOD_Msg(Dicom_Msg(body, dicomdir_->Syntax(), &error));
  }
  item.chain = chain;
  if (error == -1) {
    FindUnreadable("record-unreadable", path_, "the record at " + At(offset) + " can't be read");
    return false;
  }
  if (offset >= own_from_ && record->msg.GetDumpLen(dicomdir_->Syntax(), 0, SCompressionParms()) != item.length)
    damaged("record-torn", "the record at " + At(offset) + " holds less than was written");
  record->offset = offset;
  record->type = record->msg.Text(kRecordType);
  Dicom_US const flag = record->msg.Value<Dicom_US>(kRecordInUse);
  record->in_use = flag != Dicom_US(0);
  if (record->in_use && flag != Dicom_US(std::uint16_t(0xFFFF)))
    damaged("in-use-flag", "the record at " + At(offset) + " has no Record In-use Flag of 0 or FFFF");
  return true;
}

void Disk_CheckStandard::explain_link(std::uint32_t offset, std::uint32_t chain) {
  auto const found = items_.find(offset);
  if (found != items_.end()) {
    bool const loop = found->second.chain == chain;
    return damaged(loop ? "link-loop" : "link-shared", "the record at " + At(offset) + " is reached twice");
  }
  bool const outside = offset < dicomdir_->RecordsBegin() || offset >= dicomdir_->RecordsEnd();
  damaged(outside ? "link-outside" : "link-into-record",
          "a link leads to " + At(offset) + (outside ? ", outside of the records" : ", where no record begins"));
}

/// `above` is the record above, which is null for the root and was deleted, or not; what is below it is deleted too
/// then.
void Disk_CheckStandard::walk_chain(std::uint32_t offset, int level, Record const* above) {
  std::uint32_t const chain = ++n_chains_;
  while (offset != 0) {
    auto const item = items_.find(offset);
    if (item == items_.end() || item->second.chain != 0) return explain_link(offset, chain);
    Record record;
    if (!load(offset, chain, &record)) return;
    if (level == 0) last_of_root_ = offset;
    if (above && !above->in_use)
      check_deleted(record, level);
    else
      check_record(record, level, above);
    offset = record.msg.Value<Dicom_UL>(kNextRecord);
  }
}

void Disk_CheckStandard::check_deleted(Record& record, int level) {
  if (record.in_use)
    damaged("live-below-deleted",
            "the " + record.type + " record at " + At(record.offset) + " is in use, the one above isn't");
  record.in_use = false; // nor is what is below it
  walk_below(record, level);
}

void Disk_CheckStandard::walk_below(Record const& record, int level) {
  if (level < kInstance) walk_chain(record.msg.Value<Dicom_UL>(kLowerLevel), level + 1, &record);
}

void Disk_CheckStandard::check_record(Record const& record, int level, Record const* above) {
  for (int other = 0; other < kInstance; ++other)
    if (record.type == kTypes[other] && other != level)
      return damaged("record-type",
                     "a " + record.type + " record in a chain of another level, at " + At(record.offset));
  if (IsOfNoKind(record.type))
    damaged("record-type", "a record of the unknown type '" + record.type + "' at " + At(record.offset));
  if (!record.in_use) return walk_below(record, level);
  if (level == kInstance) return check_instance(record.msg);
  if (record.type != kTypes[level]) return; // of no level that is kept here
  if (level == 0) {
    BeginPatient(record.msg);
    walk_below(record, level);
    EndPatient();
  } else if (level == 1) {
    BeginStudy(record.msg, path_);
    walk_below(record, level);
    EndStudy(record.msg, path_);
    compare_folders(record.msg, nullptr);
  } else {
    BeginSeries(record.msg, path_);
    walk_below(record, level);
    EndSeries(record.msg, path_);
    compare_folders(above->msg, &record.msg);
  }
}

void Disk_CheckStandard::check_instance(IOD_Msg const& record) {
  Dicom_CS const id = record.Value<Dicom_CS>(kReferencedFileID);
  CheckInstance(record, path_, Disk_FileID(Prefix().c_str(), id, 0), names_->ObjectPath(id));
}

/// The folder of a series or, without one, of a study. On other media there is none.
void Disk_CheckStandard::compare_folders(IOD_Msg const& study, IOD_Msg const* series) {
  Names const below = names_->Below(study.GetStudyInstanceUID());
  if (!series) {
    study_folders_.insert(below.Folder().GetID().GetText());
    CheckVersion(below.Folder().FolderPath(), false);
    CompareFolder(below.Folder().FolderPath(), series_folders_, false, LooksLikeOurs);
    return series_folders_.clear();
  }
  Disk_FileID const folder = below.Below(series->GetSeriesInstanceUID()).Folder();
  std::string const path = folder.Path();
  series_folders_.insert(Disk_Names::NameOf(path));
  CheckVersion(path, false);
  CompareFolder(path, {Disk_Names::kVersion}, true, NoFolder);
}
