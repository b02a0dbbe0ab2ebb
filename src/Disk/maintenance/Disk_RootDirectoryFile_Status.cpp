#include <Disk/Disk_RootDirectoryFile.h>

#include "Disk/hierarchy/Disk_Operation.h"

#include <dicom/IOD_Image.h>

// What changes one attribute of one study record. Nothing below the root is touched, so no study is locked.

namespace {

struct StudyChangeTexts {
  char const *name, *cant_lock, *cant_read, *no_study, *cant_write, *cant_unlock;
};

struct ProtectionTexts {
  char const *model, *structure;
  StudyChangeTexts change;
  char const *image_level, *series_level, *other_level, *cant_set;
};

} // namespace

struct Disk_RootDirectoryFile::StatusRoad {
  Disk_RootDirectoryFile& root;

  template <class Change>
  int change_study(Dicom_UI const& study_uid, StudyChangeTexts const& texts, Change change);
  int set_protection(SCL_MoveIdentifier const& identifier, Dicom_CS const& flag, ProtectionTexts const& texts);
};

/// `change` sets the attribute: 0, or -1 after a log line of its own.
template <class Change>
int Disk_RootDirectoryFile::StatusRoad::change_study(Dicom_UI const& study_uid, StudyChangeTexts const& texts,
                                                     Change change) {
  if (root.refuse_read_only(texts.name) == -1) return -1;
  Disk_FileSetHold file_set;
  if (root.lock(file_set, false) == -1) return DISK_FAIL_TEXT(texts.cant_lock);
  if (root.Read() == -1) return DISK_FAIL_TEXT(texts.cant_read);
  root.MarkDirty();
  Disk_StudyDirectoryRecord* const study = root.GetStudyRecord(study_uid);
  if (!study) return DISK_FAIL_TEXT(DISK_FAILURE_NOT_FOUND, texts.no_study);
  if (change(*study->GetRecordMsg()) == -1) return -1;
  if (root.Write() == -1) return DISK_FAIL_TEXT(texts.cant_write);
  root.ResetStudyFile();
  return file_set.Release() == 0 ? 0 : DISK_FAIL_TEXT(texts.cant_unlock);
}

// Protection

namespace {

#define PROTECTION_TEXTS(NAME)                                                                                         \
  {                                                                                                                    \
    NAME "(): Unsupported information model.\n", NAME ": service is supported only for zentara Dicomdir structure.\n", \
        {NAME,                                                                                                         \
         NAME "(): Can't lock file-set.\n",                                                                            \
         NAME "(): Can't read root directory file.\n",                                                                 \
         NAME "(): Can't find study.\n",                                                                               \
         NAME "(): Can't update the file.\n",                                                                          \
         NAME "(): Can't unlock file-set.\n"},                                                                         \
        NAME "(): unknown Query/Retrieve Level (IMAGE).\n", NAME "(): unknown Query/Retrieve Level (SERIES).\n",       \
        NAME "(): unknown Query/Retrieve Level.\n", NAME "(): Can't set protection flag.\n"                            \
  }

int CheckModel(SCL_InformationModel model, ProtectionTexts const& texts) {
  if (model == 1) return 0;
  return DISK_FAIL_TEXT(DISK_ERROR_INFORMATION_MODEL, texts.model);
}

} // namespace

int Disk_RootDirectoryFile::ProtectImages(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                          Dicom_UI* /*ignored_uid*/) {
  static constexpr ProtectionTexts kTexts = PROTECTION_TEXTS("ProtectImages");
  return Disk_Guarded("ProtectImages", [&] {
    if (CheckModel(model, kTexts) == -1 || structure->RequirePrivate(kTexts.structure) == -1) return -1;
    return StatusRoad{*this}.set_protection(identifier, IOD_Image::Y, kTexts);
  });
}

int Disk_RootDirectoryFile::UnprotectImages(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                            Dicom_UI* /*ignored_uid*/) {
  static constexpr ProtectionTexts kTexts = PROTECTION_TEXTS("UnprotectImages");
  return Disk_Guarded("UnprotectImages", [&] {
    if (structure->RequirePrivate(kTexts.structure) == -1 || CheckModel(model, kTexts) == -1) return -1;
    return StatusRoad{*this}.set_protection(identifier, IOD_Image::N, kTexts);
  });
}

int Disk_RootDirectoryFile::StatusRoad::set_protection(SCL_MoveIdentifier const& identifier, Dicom_CS const& flag,
                                                       ProtectionTexts const& texts) {
  return change_study(identifier.GetStudyInstanceUID(), texts.change, [&](IOD_Msg& record) {
    auto const level = identifier.GetQueryRetrieveLevel();
    if (level == SCL_QueryRetrieveLevel::STUDY) {
      if (record.SetProtectionFlag(flag) == 0) return 0;
      DISK_FAIL_TEXT(texts.cant_set);
    } else if (level == SCL_QueryRetrieveLevel::IMAGE) {
      DISK_FAIL_TEXT(DISK_FAILURE_ARGUMENT, texts.image_level);
    } else if (level == SCL_QueryRetrieveLevel::SERIES) {
      DISK_FAIL_TEXT(DISK_FAILURE_ARGUMENT, texts.series_level);
    } else {
      DISK_FAIL_TEXT(DISK_ERROR_LEVEL, texts.other_level);
    }
    return -1;
  });
}

// Load status and access date

#define STATUS_PREFIX(NAME) "Disk_RootDirectoryFile::" NAME "() - "
#define STATUS_CHANGE_TEXTS(NAME)                                                                                      \
  {                                                                                                                    \
    NAME, STATUS_PREFIX(NAME) "Can't lock file-set.\n", STATUS_PREFIX(NAME) "Can't read root directory file.\n",       \
        STATUS_PREFIX(NAME) "study does not exists in DICOMDIR.\n",                                                    \
        STATUS_PREFIX(NAME) "Can't update the root directory file.\n", STATUS_PREFIX(NAME) "Can't unlock file-set.\n"  \
  }
#define STATUS_PRIVATE_ONLY(NAME) STATUS_PREFIX(NAME) "service is supported only for private DICOMDIR structure.\n"

int Disk_RootDirectoryFile::SetStudyCompleted(Dicom_UI const& study_uid) {
  static constexpr StudyChangeTexts kTexts = STATUS_CHANGE_TEXTS("SetStudyCompleted");
  return Disk_Guarded("SetStudyCompleted", [&] {
    if (structure->RequirePrivate(STATUS_PRIVATE_ONLY("SetStudyCompleted")) == -1) return -1;
    return StatusRoad{*this}.change_study(study_uid, kTexts, [](IOD_Msg& record) {
      if (record.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED, IOD_Image::Y) == 0) return 0;
      return DISK_FAIL(STATUS_PREFIX("SetStudyCompleted") "Cannot update load status.\n");
    });
  });
}

int Disk_RootDirectoryFile::SetStudyAccessed(Dicom_UI const& study_uid) {
  static constexpr StudyChangeTexts kTexts = STATUS_CHANGE_TEXTS("SetStudyAccessed");
  return Disk_Guarded("SetStudyAccessed", [&] {
    if (structure->RequirePrivate(STATUS_PRIVATE_ONLY("SetStudyAccessed")) == -1) return -1;
    return StatusRoad{*this}.change_study(study_uid, kTexts, [](IOD_Msg& record) {
      Dicom_DT const now(GetCurrentDate(), GetTickCount(), nullptr);
      if (record.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE, now) == 0) return 0;
      return DISK_FAIL(STATUS_PREFIX("SetStudyAccessed") "Cannot update access date.\n");
    });
  });
}
