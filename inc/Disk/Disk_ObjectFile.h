#pragma once
#include <Disk/Disk_File.h>
#include <Disk/Disk_StoreParams.h>
#include <infra/Disk_Export.h>

struct Disk_Correction;

/// The file of one stored object. It decides in which transfer syntax the object goes to disk and whether it is
/// compressed first.
class DISK_EXPORT Disk_ObjectFile : public Disk_File {
public:
  /// For storing.
  Disk_ObjectFile(Disk_FileID const& id, Disk_StoreParams store_params) : Disk_File(id), params(store_params) {}
  /// For reading only.
  explicit Disk_ObjectFile(Disk_FileID const& id) : Disk_File(id), params(Disk_StoreParams::READ_ONLY) {}

  /// Reads the object. 0 and a new message for the caller to own, or -1, also when there is no such file.
  [[nodiscard]] int Get(IOD_Msg** msg, Disk_AsyncFile* async);
  /// Writes the object: natively, or compressed, and then `msg` holds the compressed form afterwards. With
  /// `sync_directory` false the caller syncs the directory before it acknowledges anything. A durable store waits for
  /// its name in `together`, if there is one. 0, or -1.
  [[nodiscard]] int Store(IOD_Msg* msg, bool sync_directory = true, Disk_Replacements* together = nullptr);
  /// Reads the object, sets what isn't null and writes it again, like a newly stored one. 0, or -1: the file is the old
  /// or the new one.
  [[nodiscard]] int ChangePatientsName(Dicom_PN const& new_name, Dicom_LO const& new_id, Dicom_LO const& new_issuer);
  [[nodiscard]] int ChangeManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model);
  /// Without `sync_directory` the caller syncs the object's entry.
  [[nodiscard]] int correct(Disk_Correction const& correction, bool sync_directory);

private:
  int Read(IOD_Msg** msg, Disk_AsyncFile* async);
  int Write(IOD_Msg* msg, bool sync_directory = true, Disk_Replacements* together = nullptr);

  Disk_StoreParams params;
};
