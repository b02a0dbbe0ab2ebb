// What the private and the standard structure of a file-set do differently. A store, a query, a fetch, a delete and
// the rest ask here for what they need done, and never which of the two it is.
#pragma once
#include "Disk/files/Disk_Guard.h"
#include "Disk/structure/Disk_Counters.h"
#include "Disk/structure/Disk_LevelTexts.h"

#include <Disk/Disk_FileID.h>
#include <Disk/Disk_InstanceDirectoryRecord.h>
#include <Disk/Disk_PatientDirectoryRecord.h>
#include <Disk/Disk_Removal.h>
#include <Disk/Disk_SeriesDirectoryRecord.h>
#include <Disk/Disk_StoreParams.h>
#include <Disk/Disk_StudyDirectoryRecord.h>
#include <infra/Klb_LockFile.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

class Disk_DicomDir;
class Disk_DirectoryFile;
class Disk_Replacements;
class Disk_StorageStrategy;
class Disk_StudyLock;
struct Disk_FileState;
struct Disk_RootRecords;

class Disk_Structure {
public:
  /// That of a root, before it has opened anything; and that of the levels below, where `dicomdir` is borrowed, and
  /// null in the private structure.
  static std::shared_ptr<Disk_Structure> OfRoot(Disk_StoreParams params);
  static std::shared_ptr<Disk_Structure> Of(Disk_DicomDir* dicomdir);
  virtual ~Disk_Structure() = default;

  // The file-set

  /// Opens what holds the records, or makes it, under the file-set's lock. 0, or -1 (logged).
  virtual int Open(char const* prefix, Disk_StoreParams params, Disk_StorageStrategy* strategy, Klb_LockFile& lock) = 0;
  /// What it is called where that is written down.
  virtual char const* Name() const = 0;
  /// Null in the private structure.
  virtual Disk_DicomDir* DicomDir() const = 0;
  /// When the root goes, which has the lock.
  virtual void Close(Klb_LockFile& lock) = 0;
  /// With the lock just taken: completes what a killed process left of a write. `*stale` tells that the records in
  /// memory are to be read again. 0, or -1.
  virtual int TakeOver(char const* prefix, Disk_StoreParams params, Disk_StorageStrategy* strategy,
                       Disk_Hold<Klb_LockFile>& hold, Klb_LockFile& lock, bool shared, bool* stale) = 0;
  /// Whether a strategy may keep what is written, so that its owner decides when the file gets it; and whether it is
  /// the one that is in use.
  virtual bool KeepsImage(Disk_StorageStrategy* strategy) const = 0;
  virtual bool GoesBy(Disk_StorageStrategy* strategy) const = 0;
  virtual bool HasPending(Disk_StorageStrategy* strategy) const = 0;
  /// Whether names of files may have to be looked for in lower case.
  virtual int Lowercase() const = 0;
  /// 0; or -1 with this line where only the private structure offers the service.
  virtual int RequirePrivate(char const* text) const = 0;
  virtual void TellStore(char const* text) const = 0;

  // An operation that writes

  virtual int Begin() = 0;
  virtual int Commit(Disk_StorageStrategy* strategy) = 0;
  /// Whether the records in memory have what the file hasn't.
  virtual bool Discard() = 0;
  /// What is there and shouldn't be, or the other way round, as a killed delete leaves it, counts as missing. Whether
  /// it does: nothing is left so where an operation is all or nothing.
  virtual bool CountMissing(Disk_Tally& tally) const = 0;
  /// Whether an operation that fails or is killed leaves nothing of itself.
  virtual bool IsAtomic() const = 0;
  virtual std::unique_ptr<Disk_StudyLock> StudyLock(Disk_FileID const& folder, bool read_only) const = 0;
  /// Whether a study is worked on under a lock of its own, with that of the file-set given up.
  virtual bool LocksStudies() const = 0;
  /// The replacements that a durable write waits for, if it waits for any.
  virtual Disk_Replacements* Together(Disk_Replacements& replacements) const = 0;

  // The records of the root, and those of a level below it

  virtual int LoadRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) = 0;
  virtual int SaveRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) = 0;
  virtual int Load(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned first,
                   Disk_ReadTexts const& texts) = 0;
  virtual int Save(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned first, Disk_WriteTexts const& texts,
                   Disk_Replacements* together) = 0;
  /// Moves VERSION, or has the commit move it. 0, or -1 (logged).
  virtual int CountVersion(Disk_DirectoryFile& level, long* version) = 0;
  /// What tells one content of a level's file from another, besides VERSION.
  virtual Disk_FileState StateOf(std::string const& path) const = 0;

  // Which records count

  virtual bool IsLive(Disk_DirectoryRecord const& record, int level) const = 0;
  virtual bool IsInUse(Disk_DirectoryRecord const& record) const = 0;
  /// The attribute by which the record of an instance is found.
  virtual Dicom_Tag const& InstanceUidTag() const = 0;
  /// Whether the patient's attributes stand in the patient's record alone.
  virtual bool AsksPatients() const = 0;
  /// Whether a study's record tells when the study was last fetched from.
  virtual bool NotesAccess() const = 0;
  /// 0, or -1 (logged) when there is nothing that a patient could be added to.
  virtual int CheckPatients(Disk_RootRecords const& records) const = 0;

  // New records

  virtual int Fill(Disk_PatientDirectoryRecord& record, IOD_Msg const& msg) const = 0;
  virtual int Fill(Disk_StudyDirectoryRecord& record, IOD_Msg const& msg) const = 0;
  virtual int Fill(Disk_SeriesDirectoryRecord& record, IOD_Msg const& msg) const = 0;
  virtual int Fill(Disk_InstanceDirectoryRecord& record, IOD_Msg const& msg, bool add_icon) const = 0;
  /// Adds a filled record to those of its parent. 0, and it is owned there; or -1 (logged). `first` is the place of
  /// the first record of a level.
  virtual int Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient) = 0;
  virtual int Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient,
                  Disk_StudyDirectoryRecord* study) = 0;
  virtual int Add(Disk_RecordList<Disk_SeriesDirectoryRecord>& records, Disk_StudyDirectoryRecord* study,
                  Disk_SeriesDirectoryRecord* series, unsigned* first) = 0;
  virtual int Add(Disk_RecordList<Disk_InstanceDirectoryRecord>& records, Disk_SeriesDirectoryRecord* series,
                  Disk_InstanceDirectoryRecord* image, unsigned* first) = 0;
  /// A pointer to a parent that is to be linked: 0, or -1 (logged) where it is null and can't be.
  virtual int RefuseNoParent(void const* parent) const = 0;
  /// What a record has that isn't made from the object. 0, or -1.
  virtual int MarkNew(Disk_StudyDirectoryRecord& study) const = 0;
  virtual int MarkUpdated(IOD_Msg& series) const = 0;
  /// Whether a record tells the transfer syntax of its file, and whether it keeps the length that it was made with.
  virtual bool RecordsSyntax() const = 0;
  virtual bool KeepsLength() const = 0;

  // Folders

  /// Whether records name the folders of studies and series.
  virtual bool NamesFolders() const = 0;
  /// Takes this step where they do, before the record is added. 0, or its result.
  virtual int InNamedFolder(std::function<int()> const& step) const = 0;
  /// Where no record names it: sees that the folder of a study or series, below that of `level`, is there. 0, or -1.
  virtual int PrepareFolder(Disk_DirectoryFile& level, Dicom_UI const& uid, bool is_known) = 0;
  /// The directory file below a record of `level`, and the place of the first record in it.
  virtual Disk_FileID FileBelow(Disk_DirectoryFile const& level, Disk_DirectoryRecord const& record,
                                Dicom_Tag const& uid_tag, unsigned* first) const = 0;
  /// Whether a study's file that is kept from the operation before may be used again.
  virtual bool MayReuse(Disk_DirectoryFile const& kept) const = 0;
  /// Whether the entry of an object is synced with the records of its series.
  virtual bool SyncsWithRecords(std::string const& object, std::string const& directory_file) const = 0;
  virtual void RemoveStudyFolder(Disk_DirectoryFile& root, Disk_FileID const& file, Dicom_UI const& uid) = 0;
  virtual void RemoveSeriesFolder(Disk_DirectoryFile& study, Disk_SeriesDirectoryRecord const& series) = 0;
  /// Before the records of series go whose folders went. 0, or -1.
  virtual int SyncRemoved(Disk_DirectoryFile& study, Disk_Removal const& removal) = 0;

  // What goes and what changes

  virtual int TakeOut(Disk_RecordChain& records, Disk_DirectoryRecord* record) const = 0;
  virtual int TakeOut(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient,
                      Disk_StudyDirectoryRecord* study) const = 0;
  /// Sets a counter of a record. 0, or -1.
  virtual int SetCounter(Disk_DirectoryRecord& record, Disk_Counter const& counter, int value) const = 0;
  /// Whether an operation fails on a record that doesn't count what it should.
  virtual bool MustCount(Disk_Counter const& counter, Disk_Road road) const = 0;
  /// Brings the record of a study up to date after a store. 0, or -1 (logged).
  virtual int UpdateStudy(Disk_StudyDirectoryRecord& study, IOD_Msg const& msg, int new_series,
                          int new_image) const = 0;
  /// Takes the modalities out of a study's record that went with a delete. 0, or -1.
  virtual int DropModalities(IOD_Msg& study, Disk_Removal const& removal, bool mends) const = 0;
};

/// Whether a record counts. In the standard structure deleted records stay in their chain, and others may stand in it
/// that don't belong to the level.
template <class T>
bool Disk_IsLive(Disk_Structure const& structure, T const& record) {
  return structure.IsLive(record, T::kLevel);
}

/// The first live record whose attribute has this text, or null.
template <class T>
T* Disk_FindRecord(Disk_Structure const& structure, Disk_RecordList<T> const& records, Dicom_Tag const& tag,
                   std::string_view text) {
  return records.Find(tag, text, [&](T const& record) { return Disk_IsLive(structure, record); });
}

/// The records of a list that are in use, so that the list may change while they are walked.
template <class T>
std::vector<T*> Disk_InUse(Disk_Structure const& structure, Disk_RecordList<T> const& records) {
  std::vector<T*> found;
  for (T* record : records)
    if (structure.IsInUse(*record)) found.push_back(record);
  return found;
}
