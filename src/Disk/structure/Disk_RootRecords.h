// The patient and study records of a root in memory.
#pragma once
#include "Disk/structure/Disk_Structure.h"

#include "Disk/structure/Disk_StudyIndex.h"

#include <set>

struct Disk_RootRecords {
  Disk_RecordList<Disk_PatientDirectoryRecord> patients;
  bool reaches_patients = false;                           // a damaged DICOMDIR may lead to other records only
  std::set<Disk_PatientDirectoryRecord*> touched_patients; // whose study records are to be written

  void Clear();
  void ForgetIndex() { index_.Clear(); }
  Disk_StudyIndex const& Index() const;
  void AddToIndex(Disk_PatientDirectoryRecord* patient, Disk_StudyDirectoryRecord* study) {
    index_.Add(patient, study);
  }
  /// The live patient with this ID and issuer, or null.
  Disk_PatientDirectoryRecord* FindPatient(Disk_Structure const& structure, Dicom_LO const& id,
                                           Dicom_LO const& issuer) const;
  /// The live study with this UID, over all live patients, and its patient; empty otherwise.
  Disk_StudyIndex::Entry FindStudy(Disk_Structure const& structure, Dicom_UI const& uid) const;

private:
  mutable Disk_StudyIndex index_;
};
