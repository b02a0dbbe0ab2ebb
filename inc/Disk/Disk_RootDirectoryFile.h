#pragma once
#include <Disk/Disk_PatientDirectoryRecord.h>
#include <Disk/Disk_StoreRequest.h>
#include <Disk/Disk_StudyDirectoryFile.h>
#include <infra/Disk_Export.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class CToolParseDICOMReport;
struct Disk_RootRecords;
class Disk_RelaxedEpoch;
struct Disk_FileSetHold;

/// A study that AutoDelete may delete.
struct DISK_EXPORT Disk_AutoDeleteCandidate {
  Dicom_UI study_uid;
  std::string folder;       ///< full path
  std::int64_t update_time; ///< seconds of calendar time
};

/// A file-set: the object through which every caller stores, queries and fetches.
///
/// It is bound to one directory, the prefix. One object serves one thread at a time; processes, and objects in other
/// threads, are held apart by lock files. Records stay in memory between calls and are read again when another
/// process has written them.
///
/// With READ_ONLY, operations that change the file-set fail before they take a lock: -1, error 210000 + EROFS. A null
/// pointer gives -1 and error 210000 + EINVAL, unless it is said that it may be one.
/// After a -1 Disk_LastFailure (Disk_Failure.h) tells the cause in words; docs/errors.md has what each failure gives.
///
///     int status = 0;
///     Disk_RootDirectoryFile root("/data/set", Disk_StoreParams(), 0, &status, nullptr);
///     if (status == 0 && root.Store({.msg = &object}) == 0) ...
class DISK_EXPORT Disk_RootDirectoryFile : public Disk_DirectoryFile {
public:
  /// Opens the file-set in a directory that exists. An empty one gets a LOCKFILE, and becomes a file-set with the first
  /// store, with STANDARD_STRUCTURE at once, as the DICOMDIR is made; with READ_ONLY nothing is made.
  /// `reserved_kb` is taken off the free space of the disk by FreeSpace. `strategy`, which may be null, stays the
  /// caller's. `*status` is 0, or -1 and then the object must not be used.
  Disk_RootDirectoryFile(char const* file_set_prefix, Disk_StoreParams params, long reserved_kb, int* status,
                         Disk_StorageStrategy* strategy);
  Disk_RootDirectoryFile(wchar_t const* file_set_prefix, Disk_StoreParams params, long reserved_kb, int* status,
                         Disk_StorageStrategy* strategy);
  ~Disk_RootDirectoryFile() override;

  void SetAutoDeletePar(Disk_AutoDeletePar const& par) { auto_delete_par = par; }
  void SetSupportPar(Disk_SupportPar const& par) { support_par = par; }
  /// How durable what this root's operations write is, from the next one on; the file-set's other roots have their own.
  /// Without a value, as at first, the operations go by Util_FileSystem::SetDurability, and so does each constructor.
  void SetDurability(std::optional<Util_Durability> durability) { own_durability = durability; }
  /// Whether the delete of an image of type DERIVED, SECONDARY, ITINERARY, CINE also removes the cine file that the
  /// object names, wherever that stands. Who stores what strangers send turns it off. Without a value, as at first,
  /// this goes by Disk_SetDeletesCineFiles.
  void SetDeletesCineFiles(std::optional<bool> wanted) { deletes_cine_files = wanted; }

  /// Makes an object part of the file-set.
  ///
  /// The object needs Study, Series and SOP Instance UID, Patient ID and, unless it is in place or moved, SOP Class
  /// UID. Disk_StoreRequest says what else can be asked for. In the standard structure the issuer is a part of the
  /// Patient ID when an object is compared with its study. In the private structure an object in place that is the
  /// first of its study makes the folder two levels above it the study's: that must be below the prefix, and in no
  /// other study's folder.
  ///
  /// 0: stored; with full durability it survives a power cut. -1: not acknowledged: when a late step failed, such as
  /// the unlock after the write or the end of a standard commit, it may be found afterwards. Storing it again is right.
  /// Errors 211004 (a value can't be part of a file name), 211005, 211017, 211018, 211019, 211020, 211001, 211023 and
  /// 210000 + errno tell causes; some refusals, that of an object without an identifier for one, set none. What was
  /// stored before is unharmed; files that no record names may be left.
  [[nodiscard]] int Store(Disk_StoreRequest const& request);
  /// The same, with the members of a request in their order.
  [[nodiscard]] int Store(IOD_Msg* msg, bool add_icon, int store_unmatching_images, int in_place, char* existing_file,
                          int move_store, char* file_to_move, char* stored_file_name, Dicom_UI const* syntax_in_file);

  /// Answers an identifier at study, series or image level from the records alone. `results` is the caller's; new
  /// responses, owned by it, are appended, and any response in it that lacks a queried attribute with a real value
  /// is removed. 0, also without a match. -1 with error 211007 for an information model other than 1, 211002 for an
  /// unknown level, 211001; responses found so far stay in `results`.
  [[nodiscard]] int Query(SCL_QueryIdentifier const& identifier, SCL_InformationModel model, Dicom_Sequence* results);

  /// Reads one object, by the identifier's Referenced File ID or, without one, by its three UIDs. `async` may be null;
  /// nothing looks at it. 0 and a new message for the caller to own; or -1, with error 211007 for an information model
  /// other than 1. In the private structure, if it may be written, the access is noted in the study's record, when the
  /// identifier names another study than the last fetch did; a fetch by file ID without a Study Instance UID
  /// notes nothing. A note that can't be written fails nothing.
  [[nodiscard]] int GetOne(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object,
                           Disk_AsyncFile* async);

  /// Deletes one or more studies, a series, or one or more images of a series, by the level of the identifier. It must
  /// hold the UIDs of that level and of those above; a request that lacks one is refused and deletes nothing. Off until
  /// SetSupportPar allows it: -1, and `status` and `report` are untouched. `status` becomes 0 when the root was written
  /// after the last study handled, 3 for a protected study, 4 otherwise; `report` counts images. 0; or -1, with error
  /// 211007, 211002: what went before the failure is gone, and what is left can be deleted again. A file that can't be
  /// removed is logged: in a series that goes as a whole it is left without a record and counts as deleted; an image
  /// that was named keeps its record and counts as failed, which alone gives no -1. A delete that was killed is
  /// completed by the same call: what it removed has no record any more, so images count as failed and a series gives
  /// -1, but the counters and modalities of the study follow what is left.
  [[nodiscard]] int Delete(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                           MXL_SubOperationsReport* report, SCL_ResponseStatus& status);

  /// Protects a study from being deleted, or no longer; private structure only. The identifier is at study level; the
  /// third argument has no effect. 0, or -1, with error 211007 or 211002.
  [[nodiscard]] int ProtectImages(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                  Dicom_UI* ignored_uid);
  [[nodiscard]] int UnprotectImages(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                    Dicom_UI* ignored_uid);
  /// Marks a study as completely loaded; private structure only. 0, or -1.
  [[nodiscard]] int SetStudyCompleted(Dicom_UI const& study_uid);
  /// Sets the study's access date to now; private structure only. 0, or -1.
  [[nodiscard]] int SetStudyAccessed(Dicom_UI const& study_uid);

  /// The free space of the file-set's disk in KB of 1024 bytes, less what is reserved; -1 on failure.
  long FreeSpace();
  /// Deletes studies, the least recently updated first, until the wanted space is free; protected and young ones stay.
  /// Private structure only; off until SetSupportPar allows it. 0, also when the space can't be reached; -1 when the
  /// records can't be read, sorted or written.
  [[nodiscard]] int AutoDelete();

  /// What AutoDelete may delete, in its order, whether or not it is switched on. 0; or -1, and `*candidates` is empty.
  [[nodiscard]] int ListAutoDelete(std::vector<Disk_AutoDeleteCandidate>* candidates);

  /// Corrects the attributes of a patient, told by ID and issuer, in the records and in every object file. A null
  /// value leaves its attribute alone. Private structure only. 0; or -1, and then part of the objects may have the new
  /// values; the records have the old ones, so a new root can do it again, which completes it.
  [[nodiscard]] int ChangePatientsName(Dicom_LO const& patient_id, Dicom_LO const& issuer, Dicom_PN const& new_name,
                                       Dicom_LO const& new_id, Dicom_LO const& new_issuer);
  /// The same for the maker of the equipment, which only the objects name.
  [[nodiscard]] int ChangeManufacturerParms(Dicom_LO const& patient_id, Dicom_LO const& issuer,
                                            Dicom_LO const& manufacturer, Dicom_LO const& model);
  /// Called after each object that a correction has written; it must not call this root.
  void SetObjectDone(std::function<void()> done) { object_done = std::move(done); }

  /// Asked before each object of a correction, each study of AutoDelete and each study of ProcessZombieFiles; true ends
  /// the operation there. A correction gives -1 then, and is completed by the same call. AutoDelete writes the records
  /// without the studies that went, and gives 0. ProcessZombieFiles gives -1. The error is 210000 + EINTR. The function
  /// must not call this root.
  void SetStop(std::function<bool()> stop) { stop_wanted = std::move(stop); }

  /// Hands what no record names to `report`, which must not call the file-set: locks are held. That is the folders in
  /// the file-set and in its studies, each after what stands in it, one level deep, and the files in folders of series.
  /// Files of the upper two levels stay unseen, and folders in the folder of a series. Private structure only. A study
  /// whose folder is gone is dropped from memory, and from the file with the next write. 0, also when a study or a
  /// series can't be scanned (logged), or -1, with the cause in the log.
  [[nodiscard]] int ProcessZombieFiles(CToolParseDICOMReport& report);

  /// Brings everything that was acknowledged to the disk, of relaxed operations too, whoever made them. The whole file
  /// system is synced. It waits for relaxed operations that are under way. 0, or -1, and then it may not be there.
  [[nodiscard]] int Sync();
  /// After a power cut, brings what relaxed operations had not synced in order, as opening the file-set for writing
  /// does. 0, also when there is nothing to do, or -1.
  [[nodiscard]] static int Recover(char const* file_set_prefix);

private:
  // The records in memory, and how they come and go

  int Read();
  int Write();
  Disk_PatientDirectoryRecord* GetPatientRecord(Dicom_LO const& patient_id, Dicom_LO const& issuer) const;
  Disk_PatientDirectoryRecord* GetPatientRecord(Dicom_UI const& study_uid) const;
  Disk_StudyDirectoryRecord* GetStudyRecord(Dicom_UI const& study_uid) const;
  Disk_StudyDirectoryRecord* GetStudyRecord(Disk_PatientDirectoryRecord const& patient,
                                            Dicom_UI const& study_uid) const;
  void GetStudyFile(Disk_StudyDirectoryRecord* study);
  void ResetStudyFile();
  int NewPatient(Disk_PatientDirectoryRecord* patient);
  int NewStudy(Disk_PatientDirectoryRecord* patient, Disk_StudyDirectoryRecord* study, int in_place,
               char const* existing_file);
  Disk_FileID GenerateReferencedFileID(Dicom_SH const& study_id, Dicom_UI const& study_uid, int* status) const;
  int DeleteStudy(Disk_StudyDirectoryRecord* study);
  int DeleteStudyFromList(Disk_StudyDirectoryRecord* study);
  int DeleteCorruptedEntry(Disk_StudyDirectoryRecord* study);
  static int CompareDates(void const* a, void const* b);
  bool is_named(std::string const& id) const override;

  // What the operations share; each of them stands in a source of its own

  struct DISK_LOCAL StoreRoad;
  struct DISK_LOCAL QueryRoad;
  struct DISK_LOCAL FetchRoad;
  struct DISK_LOCAL DeleteRoad;
  struct DISK_LOCAL StatusRoad;
  struct DISK_LOCAL AutoDeleteRoad;
  struct DISK_LOCAL CorrectionRoad;
  struct DISK_LOCAL ScanRoad;
  struct DISK_LOCAL Operation;

  DISK_LOCAL void Construct(char const* file_set_prefix, int* status);
  DISK_LOCAL int construct(char const* file_set_prefix);
  /// Takes the file-set's lock, and completes what a killed process left of a write. 0, or -1.
  DISK_LOCAL int lock(Disk_FileSetHold& hold, bool shared, bool writes);
  DISK_LOCAL int lock(Disk_FileSetHold& hold, bool shared) { return lock(hold, shared, !shared); }
  DISK_LOCAL void begin_durability(Disk_FileSetHold& hold);
  DISK_LOCAL int leave_epoch();
  DISK_LOCAL void forget_records();
  DISK_LOCAL void KeepStudyFile();
  DISK_LOCAL std::string folder_of(Disk_StudyDirectoryRecord const& study) const;
  DISK_LOCAL bool has_lost_folder(Disk_StudyDirectoryRecord const& study) const;

  Disk_LockManager lock_manager;
  std::unique_ptr<Disk_RelaxedEpoch> epoch;
  std::unique_ptr<Disk_RootRecords> records;
  std::unique_ptr<Disk_StudyDirectoryFile> study_file;
  std::unique_ptr<Disk_StudyDirectoryFile> kept_study_file; // of the operation before; its lock is not held
  long reserved_kb;
  Disk_AutoDeletePar auto_delete_par{};
  Disk_SupportPar support_par;
  std::optional<Util_Durability> own_durability;
  std::function<void()> object_done;
  std::function<bool()> stop_wanted;
  Dicom_UI current_study_uid; // that the last GetOne touched
};
