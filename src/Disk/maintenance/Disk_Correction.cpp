#include "Disk/maintenance/Disk_Correction.h"

#include "Disk/hierarchy/Disk_Operation.h"
#include "Disk/structure/Disk_RootRecords.h"

#include <Disk/Disk_ObjectFile.h>
#include <Disk/Disk_RootDirectoryFile.h>

#include <memory>

struct Disk_RootDirectoryFile::CorrectionRoad {
  Disk_RootDirectoryFile& root;

  int correct(Dicom_LO const& patient_id, Dicom_LO const& issuer, Disk_Correction correction);
  int correct_study(Disk_StudyDirectoryRecord* study, Disk_Correction const& correction);
};

// Down the hierarchy, depth first: the objects of a series, its directory file, the next series, then the study's
// directory file, and the root's last. So the old patient stays in the records until all is done, and what was
// interrupted is completed by being done again.

namespace {

constexpr Disk_Correction::Texts kPatientsName{
    "ChangePatientsName: service is supported only for zentara DICOMDIR structure.\n",
    "ChangePatientsName(): Can't lock file-set.\n",
    "ChangePatientsName(): Can't read root directory file.\n",
    "ChangePatientsName: Can't lock study .\n",
    "ChangePatientsName(): Can't unlock file-set.\n",
    "ChangePatientsName(): Patient ID '%s', issuer '%s' does not exist.\n",
    "ChangePatientsName: service is supported only for zentara DICOMDIR structure.\n",
    "ChangePatientsName(): Can't read series directory file.\n",
    "ChangePatientsName(): Can't update the series directory file.\n",
    "Disk_ObjectFile::ChangePatientsName() - operation cannot be performed on a read-only access object.\n",
    "ChangePatientsName: Can't write object file.\n"};

constexpr Disk_Correction::Texts kManufacturerParms{
    "ChangeManufacturerParms: service is supported only for zentara DICOMDIR structure.\n",
    "ChangeManufacturerParms: Can't lock file-set.\n",
    "ChangeManufacturerParms: Can't read root directory file.\n",
    "ChangeManufacturerParms: Can't lock study .\n",
    "ChangeManufacturerName(): Can't unlock file-set.\n",
    "ChangeManufacturerParms: Patient ID '%s', Issuer '%s' does not exist.\n",
    "ChangeManufacturerParms: service is supported only for zentara Dicomdir structure.\n",
    "ChangeManufacturerParms: Can't read series directory file.\n",
    "ChangeManufacturerParms: Can't update the series directory file.\n",
    "Disk_ObjectFile::ChangeManufacturerParms() - operation cannot be performed on a read-only access object.\n",
    "ChangeManufacturerParms: Can't write object file.\n"};

/// At the root already, so that nothing is locked or read.
int RefuseReadOnly(Disk_Correction const& correction) {
  return DISK_FAIL_TEXT(Klb_Cause(DISK_ERROR_SYSTEM + EROFS), correction.texts.read_only);
}

} // namespace

Disk_Correction Disk_Correction::PatientsName(Dicom_PN const& name, Dicom_LO const& id, Dicom_LO const& issuer) {
  auto const set = [name, id, issuer](IOD_Msg& msg) {
    if (name != PN_NULL && msg.SetPatientsName(name) == -1)
      return DISK_FAIL("ChangePatientsName: Can't set new name.\n");
    if (id != LO_NULL && msg.SetPatientID(id) == -1) return DISK_FAIL("ChangePatientsName: Can't set new ID.\n");
    if (issuer != LO_NULL && msg.SetIssuerOfPatientID(issuer) == -1)
      return DISK_FAIL("ChangePatientsName: Can't set new Issuer.\n");
    return 0;
  };
  return {kPatientsName, true, set};
}

Disk_Correction Disk_Correction::ManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model) {
  auto const set = [manufacturer, model](IOD_Msg& msg) {
    if (manufacturer != LO_NULL && msg.SetManufacturer(manufacturer) == -1)
      return DISK_FAIL("ChangeManufacturerParms: Can't set manufacturer.\n");
    if (model != LO_NULL && msg.SetManufacturersModelName(model) == -1)
      return DISK_FAIL("ChangeManufacturerParms: Can't set manufacturers_model_name.\n");
    return 0;
  };
  return {kManufacturerParms, false, set};
}

// Root

int Disk_RootDirectoryFile::ChangePatientsName(Dicom_LO const& patient_id, Dicom_LO const& issuer,
                                               Dicom_PN const& new_name, Dicom_LO const& new_id,
                                               Dicom_LO const& new_issuer) {
  return Disk_Guarded("ChangePatientsName", [&] {
    return CorrectionRoad{*this}.correct(patient_id, issuer,
                                         Disk_Correction::PatientsName(new_name, new_id, new_issuer));
  });
}

int Disk_RootDirectoryFile::ChangeManufacturerParms(Dicom_LO const& patient_id, Dicom_LO const& issuer,
                                                    Dicom_LO const& manufacturer, Dicom_LO const& model) {
  return Disk_Guarded("ChangeManufacturerParms", [&] {
    return CorrectionRoad{*this}.correct(patient_id, issuer, Disk_Correction::ManufacturerParms(manufacturer, model));
  });
}

int Disk_RootDirectoryFile::CorrectionRoad::correct(Dicom_LO const& patient_id, Dicom_LO const& issuer,
                                                    Disk_Correction correction) {
  correction.object_done = &root.object_done;
  correction.stop = &root.stop_wanted;
  if (root.structure->RequirePrivate(correction.texts.root_structure) == -1) return -1;
  if (root.params.read_only) return RefuseReadOnly(correction);
  Disk_FileSetHold file_set;
  if (root.lock(file_set, false) == -1) return DISK_FAIL_TEXT(correction.texts.cant_lock);
  if (root.Read() == -1) return DISK_FAIL_TEXT(correction.texts.cant_read_root);
  Disk_PatientDirectoryRecord* const patient = root.GetPatientRecord(patient_id, issuer);
  if (!patient)
    return DISK_FAIL(DISK_FAILURE_NOT_FOUND, correction.texts.no_such_patient, patient_id.CStr(), issuer.CStr());
  root.MarkDirty(); // after a failure the records in memory are ahead of the file
  int result = correction.changes_records ? correction.set(*patient->GetRecordMsg()) : 0;
  for (auto study = patient->GetStudyRecords().begin(); study != patient->GetStudyRecords().end() && result == 0;
       ++study)
    result = correct_study(*study, correction);
  root.ResetStudyFile();
  if (result == -1) return -1;
  if (root.Write() == -1) return DISK_FAIL("Write(): Can't update the file.\n");
  if (correction.changes_records) root.MarkDirty(); // patients are found by the IDs that they were read with
  return file_set.Release() == 0 ? 0 : DISK_FAIL_TEXT(correction.texts.cant_unlock);
}

int Disk_RootDirectoryFile::CorrectionRoad::correct_study(Disk_StudyDirectoryRecord* study,
                                                          Disk_Correction const& correction) {
  if (correction.changes_records && correction.set(*study->GetRecordMsg()) == -1) return -1;
  root.ResetStudyFile();
  Klb_Attempt const attempt;
  root.GetStudyFile(study);
  if (!root.study_file) return -1;
  Disk_Hold<Disk_StudyDirectoryFile> held;
  if (held.Exclusive(*root.study_file) == -1) { // a store may be in it
    if (!root.has_lost_folder(*study)) return DISK_FAIL_TEXT(correction.texts.cant_lock_study);
    attempt.Forget();
    return 0;
  }
  if (root.study_file->correct(correction) == -1) return -1;
  return held.Release(); // logs
}

// Study

int Disk_StudyDirectoryFile::ChangePatientsName(Dicom_PN const& new_name, Dicom_LO const& new_id,
                                                Dicom_LO const& new_issuer) {
  return Disk_Guarded("ChangePatientsName",
                      [&] { return correct(Disk_Correction::PatientsName(new_name, new_id, new_issuer)); });
}

int Disk_StudyDirectoryFile::ChangeManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model) {
  return Disk_Guarded("ChangeManufacturerParms",
                      [&] { return correct(Disk_Correction::ManufacturerParms(manufacturer, model)); });
}

int Disk_StudyDirectoryFile::correct(Disk_Correction const& correction) {
  if (structure->RequirePrivate(correction.texts.study_structure) == -1) return -1;
  if (params.read_only) return RefuseReadOnly(correction);
  if (RefuseLink() == -1 || Read() == -1) return DISK_FAIL("Can't read study directory file.\n");
  for (Disk_SeriesDirectoryRecord* series : series_records) {
    Disk_FileID const id(GetFileSetPrefix(), series->GetReferencedFileID(), 0);
    if (Disk_SeriesDirectoryFile(id, params, nullptr, 0).correct(correction) == -1) return -1;
  }
  return Write() == 0 ? 0 : DISK_FAIL("Write(): Can't update the file.\n");
}

// Series

int Disk_SeriesDirectoryFile::ChangePatientsName(Dicom_PN const& new_name, Dicom_LO const& new_id,
                                                 Dicom_LO const& new_issuer) {
  return Disk_Guarded("ChangePatientsName",
                      [&] { return correct(Disk_Correction::PatientsName(new_name, new_id, new_issuer)); });
}

int Disk_SeriesDirectoryFile::ChangeManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model) {
  return Disk_Guarded("ChangeManufacturerParms",
                      [&] { return correct(Disk_Correction::ManufacturerParms(manufacturer, model)); });
}

int Disk_SeriesDirectoryFile::correct(Disk_Correction const& correction) {
  if (params.read_only) return RefuseReadOnly(correction);
  if (RefuseLink() == -1 || Read() == -1) return DISK_FAIL_TEXT(correction.texts.cant_read_series);
  if (is_folder_gone) return 0;
  for (Disk_InstanceDirectoryRecord* image : image_records) {
    if (correction.stop && Disk_IsStopped(*correction.stop)) return -1;
    Disk_FileID const id = object_id(image->GetReferencedFileID());
    if (Disk_ObjectFile(id, params).correct(correction, !is_synced_with(id)) == -1) return -1;
  }
  return Write() == 0 ? 0 : DISK_FAIL_TEXT(correction.texts.cant_write_series);
}

// Object

int Disk_ObjectFile::ChangePatientsName(Dicom_PN const& new_name, Dicom_LO const& new_id, Dicom_LO const& new_issuer) {
  return Disk_Guarded("ChangePatientsName",
                      [&] { return correct(Disk_Correction::PatientsName(new_name, new_id, new_issuer), true); });
}

int Disk_ObjectFile::ChangeManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model) {
  return Disk_Guarded("ChangeManufacturerParms",
                      [&] { return correct(Disk_Correction::ManufacturerParms(manufacturer, model), true); });
}

int Disk_ObjectFile::correct(Disk_Correction const& correction, bool sync_directory) {
  if (params.read_only) return RefuseReadOnly(correction);
  IOD_Msg* read = nullptr;
  if (Read(&read, nullptr) == -1)
    return DISK_FAIL("%s: the object can't be read, so it isn't corrected.\n", file_id.Path().c_str());
  std::unique_ptr<IOD_Msg> const msg(read);
  if (correction.set(*msg) == -1) return -1;
  if (Write(msg.get(), sync_directory) == -1) return DISK_FAIL_TEXT(correction.texts.cant_write_object);
  if (correction.object_done && *correction.object_done) (*correction.object_done)();
  return 0;
}
