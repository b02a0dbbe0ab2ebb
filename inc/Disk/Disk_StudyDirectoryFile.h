#pragma once
#include <Disk/Disk_LockManager.h>
#include <Disk/Disk_SeriesDirectoryFile.h>
#include <Disk/Disk_StudyDirectoryRecord.h>
#include <infra/Disk_Export.h>

#include <memory>

class CToolParseDICOMReport;
class Disk_RecordWalk;
class Disk_StudyLock;
struct Disk_Correction;

/// One study: the records of its series, the study lock, and the directory file of the series that was asked for
/// last. In the standard structure the lock operations do nothing: the file-set lock is held throughout.
class DISK_EXPORT Disk_StudyDirectoryFile : public Disk_DirectoryFile {
public:
  /// `first_series_offset`: in the standard structure the place of the first series record, 0 for none.
  Disk_StudyDirectoryFile(Disk_FileID const& id, Disk_StoreParams params, Disk_DicomDir* dicomdir,
                          unsigned first_series_offset);
  ~Disk_StudyDirectoryFile() override;

  unsigned GetOffset() const { return first_series_offset; }
  [[nodiscard]] int Read();
  [[nodiscard]] int Write(Disk_Replacements* together = nullptr);
  [[nodiscard]] int LockExclusive();
  /// The same in two steps, for a store: under the file-set's lock the study is pinned, and when that is given up,
  /// locked. -1 with ESTALE when the study has gone from its folder in between.
  [[nodiscard]] int Pin();
  [[nodiscard]] int LockPinned();
  /// Whether the study that was locked last still is where it was.
  bool IsInPlace() const;
  [[nodiscard]] int LockShared();
  /// The same for a study that was locked before, with GetKnown, which sees whether it is still there. -1 with ESTALE,
  /// and nothing is logged, when the lock file isn't open any more.
  [[nodiscard]] int RelockShared();
  int UnlockExclusive();
  int UnlockShared();

  /// Finds or makes the object's series and stores the object there, then writes the records. On 0 `*new_series` and
  /// `*new_image` tell whether a record was added. -1 with error 211019 when the Series Number doesn't match.
  [[nodiscard]] int Store(IOD_Msg* msg, Disk_StudyDirectoryRecord* study, int* new_series, int* new_image,
                          bool add_icon, int store_unmatching_images, int in_place, char* existing_file, int move_store,
                          char* file_to_move, char* stored_file_name, Dicom_UI const* syntax_in_file);
  [[nodiscard]] int Store(Disk_StoreRequest const& request, Disk_StudyDirectoryRecord* study, int* new_series,
                          int* new_image);
  /// Whether that dropped a series whose folder was gone, so that the counts of the root are too high.
  bool HasDropped() const { return !dropped_id.empty(); }
  /// Appends the responses of a query at series or image level to `results`. The caller holds the study lock.
  [[nodiscard]] int Query(SCL_QueryRetrieveLevel::Value level, SCL_QueryIdentifier const& identifier,
                          Dicom_Sequence* results);
  /// The same for an identifier that the root has prepared, with which stands what the responses get from above.
  [[nodiscard]] int Query(Disk_RecordWalk& walk, Dicom_Sequence* results);
  /// How many series there are, and by their records how many images, in the private structure. Who holds neither the
  /// study lock nor the file-set's exclusively gets numbers of some moment. 0, or -1.
  [[nodiscard]] int Count(int* series, int* images);
  /// Deletes a series, some images of it, or all series. 0, or -1: what went before the failure is gone.
  [[nodiscard]] int Delete(Disk_Removal* removal);
  /// The same. A null `series_uid` means all series, a null `image_uids` all images; `report` counts images,
  /// `*removed_series` is the number of series that ceased to exist, and `modality` that of the one that was named and
  /// has gone.
  [[nodiscard]] int Delete(Dicom_UI series_uid, Dicom_UI image_uids, MXL_SubOperationsReport* report,
                           int* removed_series, Dicom_CS& modality);
  [[nodiscard]] int GetOne(Dicom_UI const& series_uid, Dicom_UI const& sop_instance_uid, IOD_Msg** object);
  /// The same by the records in memory alone: 1 when these may be old, or don't have the object. Private structure
  /// only.
  [[nodiscard]] int GetKnown(Dicom_UI const& series_uid, Dicom_UI const& sop_instance_uid, IOD_Msg** object) const;
  /// Corrects every object, as the root does, whose lock the caller holds. 0, or -1: what went before the failure is
  /// written.
  [[nodiscard]] int ChangePatientsName(Dicom_PN const& new_name, Dicom_LO const& new_id, Dicom_LO const& new_issuer);
  [[nodiscard]] int ChangeManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model);
  [[nodiscard]] int correct(Disk_Correction const& correction);
  /// Hands over the folders in the study's own that no record names, and what its series do. The caller holds the study
  /// lock. 0, or -1.
  [[nodiscard]] int ProcessZombieFiles(CToolParseDICOMReport& report);

private:
  Disk_SeriesDirectoryRecord* GetSeriesRecord(Dicom_UI const& series_uid) const;
  int NewSeries(Disk_StudyDirectoryRecord* study, Disk_SeriesDirectoryRecord* series, Disk_StoreRequest const& request);
  int new_series_directory(Disk_SeriesDirectoryRecord* series, Disk_StoreRequest const& request);
  bool is_named(std::string const& id) const override;
  Disk_FileID GenerateReferencedFileID(Dicom_IS const& series_number, int* status) const;
  void GetSeriesFile(Disk_SeriesDirectoryRecord* series);
  int add_series(Disk_StoreRequest const& request, Disk_StudyDirectoryRecord* study,
                 Disk_SeriesDirectoryRecord** series);
  int drop_lost_series(Dicom_UI const& uid);
  int check_series_number(Disk_StoreRequest const& request, Disk_SeriesDirectoryRecord const& series) const;
  int DeleteImagesOfSeries(Disk_SeriesDirectoryRecord* series, Dicom_UI const& image_uids, Disk_Tally* tally,
                           bool* removed);
  void count_left(Disk_Removal* removal) const;
  bool FindCorruptedEntry(Disk_SeriesDirectoryRecord const* series) const;
  int process_zombies(CToolParseDICOMReport& report);
  int query(Disk_RecordWalk& walk, Dicom_Sequence* results);
  int query_images(Disk_RecordWalk& walk, Disk_SeriesDirectoryRecord* series, Dicom_Sequence* results);

  Disk_RecordList<Disk_SeriesDirectoryRecord> series_records;
  std::unique_ptr<Disk_StudyLock> lock;
  std::unique_ptr<Disk_SeriesDirectoryFile> series_file;
  unsigned first_series_offset;
};
