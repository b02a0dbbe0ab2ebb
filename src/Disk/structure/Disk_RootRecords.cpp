// Finds patients and studies among the records of a root; studies through an index that is made when it is needed.
#include "Disk/structure/Disk_RootRecords.h"
#include "Disk/files/Disk_Tags.h"

void Disk_RootRecords::Clear() {
  touched_patients.clear();
  index_.Clear();
  patients.clearAndDestroy();
}

Disk_StudyIndex const& Disk_RootRecords::Index() const {
  if (index_.IsEmpty()) {
    Disk_StudyIndex index; // one that memory doesn't suffice for mustn't pass for the whole
    for (Disk_PatientDirectoryRecord* patient : patients)
      for (Disk_StudyDirectoryRecord* study : patient->GetStudyRecords())
        index.Add(patient, study);
    index_ = std::move(index);
  }
  return index_;
}

Disk_PatientDirectoryRecord* Disk_RootRecords::FindPatient(Disk_Structure const& structure, Dicom_LO const& id,
                                                           Dicom_LO const& issuer) const {
  return patients.Find(kPatientId, id.View(), [&](Disk_PatientDirectoryRecord const& patient) {
    return Disk_IsLive(structure, patient) && patient.GetRecordMsg()->GetIssuerOfPatientID() == issuer;
  });
}

Disk_StudyIndex::Entry Disk_RootRecords::FindStudy(Disk_Structure const& structure, Dicom_UI const& uid) const {
  return Index().Find(uid.View(), [&](Disk_StudyIndex::Entry const& entry) {
    return Disk_IsLive(structure, *entry.patient) && Disk_IsLive(structure, *entry.study);
  });
}
