#pragma once
#include <Disk/Disk_DirectoryFile.h>
#include <Disk/Disk_InstanceDirectoryRecord.h>
#include <Disk/Disk_RecordList.h>
#include <Disk/Disk_Removal.h>
#include <Disk/Disk_SeriesDirectoryRecord.h>
#include <Disk/Disk_StoreRequest.h>
#include <dicom/SCL_Identifier.h>
#include <infra/Disk_Export.h>

class CToolParseDICOMReport;
class Disk_RecordWalk;
struct Disk_Correction;

/// One series: the records of its objects, and their files beside the directory file. It has no lock of its own; the
/// caller holds that of the study or, in the standard structure, of the file-set.
class DISK_EXPORT Disk_SeriesDirectoryFile : public Disk_DirectoryFile {
public:
  /// `first_image_offset`: in the standard structure the place of the first instance record, 0 for none.
  Disk_SeriesDirectoryFile(Disk_FileID const& id, Disk_StoreParams params, Disk_DicomDir* dicomdir,
                           unsigned first_image_offset);

  unsigned GetOffset() const { return first_image_offset; }
  /// Brings the records up to date. 0, or -1.
  [[nodiscard]] int Read();
  /// Writes the records. 0, or -1.
  [[nodiscard]] int Write(Disk_Replacements* together = nullptr);
  /// Finds or makes the object's record, writes the object, then the records. On 0 `*new_image` is 1 when a record
  /// was added. After -1 the records on disk are as before; an object file that no record names may be left. With
  /// `together` the files of a durable store are in their places when those replacements finish.
  [[nodiscard]] int Store(IOD_Msg* msg, Disk_SeriesDirectoryRecord* series, int* new_image, bool add_icon, int in_place,
                          char* existing_file, int move_store, char* file_to_move, char* stored_file_name,
                          Dicom_UI const* syntax_in_file);
  /// Private structure: kFolderIsGone, and nothing is done, when the folder that the series' record names isn't there.
  [[nodiscard]] int Store(Disk_StoreRequest const& request, Disk_SeriesDirectoryRecord* series, int* new_image,
                          Disk_Replacements* together = nullptr);
  static constexpr int kFolderIsGone = 1;
  /// Appends a response to `results` for each record that matches. 0, or -1.
  [[nodiscard]] int Query(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results);
  [[nodiscard]] int Query(Disk_RecordWalk const& walk, Dicom_Sequence* results);
  /// Deletes images, or all for a null UID. `*records` is how many there were. 0, also when some couldn't be removed;
  /// -1 when the records can't be read or written.
  [[nodiscard]] int Delete(Dicom_UI const& image_uids, Disk_Tally* tally, int* records);
  /// The same; the counts are added to those that `report` holds.
  [[nodiscard]] int Delete(Dicom_UI image_uids, MXL_SubOperationsReport* report);
  /// Reads one object. 0 and a new message for the caller to own, or -1.
  [[nodiscard]] int GetOne(Dicom_UI const& sop_instance_uid, IOD_Msg** object);
  /// The same by the records in memory: 1 when these may be old, or don't have the object.
  [[nodiscard]] int GetKnown(Dicom_UI const& sop_instance_uid, IOD_Msg** object) const;
  /// Corrects every object, as the root does, whose lock the caller holds. 0, or -1: what went before the failure is
  /// written.
  [[nodiscard]] int ChangePatientsName(Dicom_PN const& new_name, Dicom_LO const& new_id, Dicom_LO const& new_issuer);
  [[nodiscard]] int ChangeManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model);
  [[nodiscard]] int correct(Disk_Correction const& correction);
  /// Hands over the files in the series' folder that no record names. The caller holds the study lock. 0, or -1.
  [[nodiscard]] int ProcessZombieFiles(CToolParseDICOMReport& report);

private:
  int process_zombies(CToolParseDICOMReport& report);
  int query(Disk_RecordWalk const& walk, Dicom_Sequence* results);
  Disk_InstanceDirectoryRecord* GetImageRecord(Dicom_UI const& image_uid) const;
  int NewImage(Disk_SeriesDirectoryRecord* series, Disk_InstanceDirectoryRecord* image,
               Disk_StoreRequest const& request);
  bool is_named(std::string const& id) const override;
  Disk_FileID GenerateReferencedFileID(Dicom_IS const& image_number, Dicom_SH const& image_label, int* status) const;
  int add_image(Disk_StoreRequest const& request, Disk_SeriesDirectoryRecord* series,
                Disk_InstanceDirectoryRecord** image);
  int DeleteImage(Disk_InstanceDirectoryRecord const& image) const;
  void DeleteCineFile(Disk_FileID const& id, Dicom_CS const& referenced) const;
  int set_syntax(Disk_InstanceDirectoryRecord* image, Disk_StoreRequest const& request) const;
  int update_key_image(IOD_Msg const& msg, Disk_InstanceDirectoryRecord* image) const;
  int place_object(Disk_StoreRequest const& request, Disk_InstanceDirectoryRecord const& image,
                   Disk_Replacements* together);
  /// Whether the entry of an object is synced when the records are written, which stand in the same folder.
  bool is_synced_with(Disk_FileID const& object) const;
  int sync_in_place(std::string const& path);
  int move_object(Disk_StoreRequest const& request, Disk_FileID const& id);

  Disk_RecordList<Disk_InstanceDirectoryRecord> image_records;
  unsigned first_image_offset;
};
