#pragma once
#include <dicom/IOD_Msg.h>

#include <functional>

/// A correction on its way down the levels: what it sets, and its messages. A null value leaves its attribute alone.
struct Disk_Correction {
  struct Texts {
    char const *root_structure, *cant_lock, *cant_read_root, *cant_lock_study, *cant_unlock; // root
    char const* no_such_patient;                                                             // takes ID and issuer
    char const* study_structure;
    char const *cant_read_series, *cant_write_series;
    char const *read_only, *cant_write_object;
  };

  Texts const& texts;
  bool changes_records;             // those of patient and studies hold the attributes too; each study is locked
  std::function<int(IOD_Msg&)> set; // on a record or an object: 0, or -1 (logged)
  std::function<void()> const* object_done = nullptr; // null, or called after each object
  std::function<bool()> const* stop = nullptr;        // null, or asked before each object: true ends the correction

  static Disk_Correction PatientsName(Dicom_PN const& name, Dicom_LO const& id, Dicom_LO const& issuer);
  static Disk_Correction ManufacturerParms(Dicom_LO const& manufacturer, Dicom_LO const& model);
};
