// One DICOMDIR with the records of all levels, which are chained by their places in it.
#pragma once
#include "Disk/structure/Disk_Structure.h"

class Disk_StandardStructure : public Disk_Structure {
public:
  /// That of a root, whose DICOMDIR Open makes; that of a level below, which borrows it.
  Disk_StandardStructure();
  explicit Disk_StandardStructure(Disk_DicomDir* dicomdir);
  ~Disk_StandardStructure() override;

  int Open(char const* prefix, Disk_StoreParams params, Disk_StorageStrategy* strategy, Klb_LockFile& lock) override;
  char const* Name() const override;
  Disk_DicomDir* DicomDir() const override;
  void Close(Klb_LockFile& lock) override;
  int TakeOver(char const* prefix, Disk_StoreParams params, Disk_StorageStrategy* strategy,
               Disk_Hold<Klb_LockFile>& hold, Klb_LockFile& lock, bool shared, bool* stale) override;
  bool KeepsImage(Disk_StorageStrategy* strategy) const override;
  bool GoesBy(Disk_StorageStrategy* strategy) const override;
  bool HasPending(Disk_StorageStrategy* strategy) const override;
  int Lowercase() const override;
  int RequirePrivate(char const* text) const override;
  void TellStore(char const* text) const override;
  int Begin() override;
  int Commit(Disk_StorageStrategy* strategy) override;
  bool Discard() override;
  bool CountMissing(Disk_Tally& tally) const override;
  bool IsAtomic() const override;
  std::unique_ptr<Disk_StudyLock> StudyLock(Disk_FileID const& folder, bool read_only) const override;
  bool LocksStudies() const override;
  Disk_Replacements* Together(Disk_Replacements& replacements) const override;
  int LoadRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) override;
  int SaveRoot(Disk_DirectoryFile& root, Disk_RootRecords& records) override;
  int Load(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned first, Disk_ReadTexts const& texts) override;
  int Save(Disk_DirectoryFile& level, Disk_RecordChain& records, unsigned first, Disk_WriteTexts const& texts,
           Disk_Replacements* together) override;
  int CountVersion(Disk_DirectoryFile& level, long* version) override;
  Disk_FileState StateOf(std::string const& path) const override;
  bool IsLive(Disk_DirectoryRecord const& record, int level) const override;
  bool IsInUse(Disk_DirectoryRecord const& record) const override;
  Dicom_Tag const& InstanceUidTag() const override;
  bool AsksPatients() const override;
  bool NotesAccess() const override;
  int CheckPatients(Disk_RootRecords const& records) const override;
  int Fill(Disk_PatientDirectoryRecord& record, IOD_Msg const& msg) const override;
  int Fill(Disk_StudyDirectoryRecord& record, IOD_Msg const& msg) const override;
  int Fill(Disk_SeriesDirectoryRecord& record, IOD_Msg const& msg) const override;
  int Fill(Disk_InstanceDirectoryRecord& record, IOD_Msg const& msg, bool add_icon) const override;
  int Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient) override;
  int Add(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient, Disk_StudyDirectoryRecord* study) override;
  int Add(Disk_RecordList<Disk_SeriesDirectoryRecord>& records, Disk_StudyDirectoryRecord* study,
          Disk_SeriesDirectoryRecord* series, unsigned* first) override;
  int Add(Disk_RecordList<Disk_InstanceDirectoryRecord>& records, Disk_SeriesDirectoryRecord* series,
          Disk_InstanceDirectoryRecord* image, unsigned* first) override;
  int RefuseNoParent(void const* parent) const override;
  int MarkNew(Disk_StudyDirectoryRecord& study) const override;
  int MarkUpdated(IOD_Msg& series) const override;
  bool RecordsSyntax() const override;
  bool KeepsLength() const override;
  bool NamesFolders() const override;
  int InNamedFolder(std::function<int()> const& step) const override;
  int PrepareFolder(Disk_DirectoryFile& level, Dicom_UI const& uid, bool is_known) override;
  Disk_FileID FileBelow(Disk_DirectoryFile const& level, Disk_DirectoryRecord const& record, Dicom_Tag const& uid_tag,
                        unsigned* first) const override;
  bool MayReuse(Disk_DirectoryFile const& kept) const override;
  bool SyncsWithRecords(std::string const& object, std::string const& directory_file) const override;
  void RemoveStudyFolder(Disk_DirectoryFile& root, Disk_FileID const& file, Dicom_UI const& uid) override;
  void RemoveSeriesFolder(Disk_DirectoryFile& study, Disk_SeriesDirectoryRecord const& series) override;
  int SyncRemoved(Disk_DirectoryFile& study, Disk_Removal const& removal) override;
  int TakeOut(Disk_RecordChain& records, Disk_DirectoryRecord* record) const override;
  int TakeOut(Disk_RootRecords& records, Disk_PatientDirectoryRecord* patient,
              Disk_StudyDirectoryRecord* study) const override;
  int SetCounter(Disk_DirectoryRecord& record, Disk_Counter const& counter, int value) const override;
  bool MustCount(Disk_Counter const& counter, Disk_Road road) const override;
  int UpdateStudy(Disk_StudyDirectoryRecord& study, IOD_Msg const& msg, int new_series, int new_image) const override;
  int DropModalities(IOD_Msg& study, Disk_Removal const& removal, bool mends) const override;

private:
  int complete_redo(char const* prefix, Disk_Hold<Klb_LockFile>& hold, Klb_LockFile& lock, bool shared, bool* stale);
  int write_root(Disk_DirectoryFile& root, Disk_RootRecords& records);

  std::unique_ptr<Disk_DicomDir> own_;
  Disk_DicomDir* dicomdir_;
};
