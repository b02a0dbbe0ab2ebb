// Makes room in a cache: lists the studies, grades them, and deletes from the lowest grade upward until the target is
// met or the next grade reaches the threshold.
#include <Disk/Disk_CacheRepository.h>

#include "Disk/cache/Disk_CleaningMutex.h"
#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"

#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <infra/I18n.h>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_Cfg.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

namespace {

constexpr int kKbPerMb = 1024, kDefaultImageKb = 500;
constexpr char kNoRoom[] = "there is no room for it, and no study may go";
constexpr char kRule[] = "=============================\n";

char const* TextOr(Dicom_Type const& value, std::string& text) {
  text = value.GetText();
  return text.empty() ? "(null string)" : text.c_str();
}

int FillStudyQuery(SCL_QueryIdentifier& identifier) {
  if (identifier.SetSeriesInstanceUID(UI_NULL) == -1 || identifier.SetSOPInstanceUID(UI_NULL) == -1 ||
      identifier.SetStudyInstanceUID(UI_NULL) == -1 || identifier.Set(kReferencedFileID, CS_NULL) == -1 ||
      identifier.SetStudyID(SH_NULL) == -1 || identifier.SetStudyDescription(LO_NULL) == -1 ||
      identifier.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE, DT_NULL) == -1 ||
      identifier.Set(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_STORE_DATE, DT_NULL) == -1)
    return DISK_FAIL("Failed to create Query Identifier.\n");
  return 0;
}

void LogBanner() {
  DISK_LOG_TEXT(6, kRule);
  DISK_LOG(5, "Cache Repository Disk Cleanup\n");
  DISK_LOG_TEXT(6, kRule);
}

/// The configured size of an image of a modality, in KB.
int ImageSize(std::string modality) {
  std::transform(modality.begin(), modality.end(), modality.begin(), [](unsigned char c) { return std::tolower(c); });
  Util_CfgHandle const* const handle = Util_Cfg::GetHandle();
  Tree_Node const* const push = handle ? handle->GetPush() : nullptr;
  Tree_Node const* const sizes = push ? push->GetChild("modality_image_size") : nullptr;
  std::unique_ptr<int> const size(sizes ? sizes->GetInteger(modality.c_str()) : nullptr);
  if (size)
    DISK_LOG(5, "Estimated image size for modality - %dKB\n", *size);
  else
    DISK_LOG(5, "Estimated image size not found for modality, using default - %dKB\n", kDefaultImageKb);
  return size ? *size : kDefaultImageKb;
}

} // namespace

/// What a cleaning wants, told after each study that it tried to delete.
struct Disk_CacheRepository::Cleaning {
  std::function<bool()> is_done;
  std::function<void(Disk_StudyMetaData const& study, bool deleted)> tried;
  int deleted = 0;
};

int Disk_CacheRepository::GetStudiesMetaData(Disk_StudyMetaData*& studies, int& count) {
  if (!IsDicomDirValid()) return not_open();
  SCL_QueryIdentifier identifier(SCL_QueryRetrieveLevel::STUDY);
  if (FillStudyQuery(identifier) == -1) return -1;
  Dicom_Sequence answers;
  if (m_root->Query(identifier, 1, &answers) == -1) return DISK_FAIL("DICOMDIR.Query Failed\n");
  count = answers.GetNItems();
  auto made = count == 0 ? nullptr : std::make_unique<Disk_StudyMetaData[]>(std::size_t(count));
  DISK_LOG(6, "Found %d Studies in DICOMDIR:\n", count);
  for (int i = 0; i < count; ++i)
    read_study(*answers.Get(i), i + 1, &made[std::size_t(i)]);
  if (made) studies = made.release();
  return 0;
}

void Disk_CacheRepository::read_study(Dicom_Msg const& answer, int number, Disk_StudyMetaData* study) const {
  IOD_Msg const msg(answer);
  study->m_studyUID = msg.GetStudyInstanceUID();
  study->m_accessDate = msg.Value<Dicom_DT>(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE);
  study->m_storeDate = msg.Value<Dicom_DT>(Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_STORE_DATE);
  Disk_FileID folder(ToUTF8(m_path.data()).data(), msg.Value<Dicom_CS>(kReferencedFileID), 0);
  folder.RemoveLastComponent();
  std::string const path = folder.Path();
  long const size = path.empty() ? 0 : Klb_FileSystemUtils::GetDirSize(path.c_str());
  study->m_sizeKB = std::int32_t(std::clamp<long>(size, 0, std::numeric_limits<std::int32_t>::max()));
  std::string store, access, uid;
  DISK_LOG(6, "#%3d: Store Date: %s\tAccess Date: %s\n", number, TextOr(study->m_storeDate, store),
           TextOr(study->m_accessDate, access));
  DISK_LOG(6, "      Path: %s\tDisk Size: %d\n", path.c_str(), study->m_sizeKB);
  DISK_LOG(6, "      UID: %s\n", TextOr(study->m_studyUID, uid));
}

/// Lists the studies, grades them and deletes from the lowest grade upward. -1 when they can't be listed.
int Disk_CacheRepository::clean(Cleaning& cleaning) {
  Disk_StudyMetaData* array = nullptr;
  int count = 0;
  if (GetStudiesMetaData(array, count) == -1) return -1;
  std::unique_ptr<Disk_StudyMetaData[]> const studies(array);
  DISK_LOG(6, "Now Grading the studies...\n");
  Disk_CacheRepositoryCleanGradeFactory::GetInstance()->GradeStudies(array, count);
  for (int i = 0; i < count; ++i)
    DISK_LOG(6, "#%3d: Grade: %d\n", i + 1, array[i].GetGrade());
  std::stable_sort(array, array + count);
  DISK_LOG(6, "Will try to delete all studies with grade less than %d\n", m_threshold);
  for (int i = 0; i < count && !cleaning.is_done() && array[i].GetGrade() < m_threshold; ++i) {
    if (Disk_IsStopped(m_stop)) break;
    Klb_Attempt const attempt;
    bool const deleted = DeleteStudyByInstanceUID(array[i].m_studyUID) == 0;
    if (!deleted) attempt.PassOver();
    cleaning.deleted += deleted;
    if (!deleted)
      DISK_LOG(3, "Auto-Clean: Tried to delete study with instance uid <%s>, but failed\n", array[i].m_studyUID.CStr());
    cleaning.tried(array[i], deleted);
    if (deleted && m_studyGivenUp) m_studyGivenUp(array[i]);
  }
  return 0;
}

int Disk_CacheRepository::AutoCleanMB(long mb) {
  if (!IsDicomDirValid()) return not_open();
  mb = std::clamp<long>(mb, INT32_MIN, INT32_MAX); // as wide as quotas are
  return Disk_Guarded("AutoCleanMB", [&] {
    Disk_CleaningMutex const mutex;
    LogBanner();
    DISK_LOG(5, "Space needed is %dMB\n", int(mb));
    FindQuotaSize();
    int const current = m_sizeKB >> 10;
    long free = long(m_quotaMB) - current, missing = mb - free;
    if (missing <= 0) {
      DISK_LOG(5, "DICOMDIR already has %dMB free. No cleanning will be done\n", int(free));
      return 0;
    }
    DISK_LOG(6, "Quota Size: %d\n", m_quotaMB);
    DISK_LOG(6, "Current Size: %d\n", current);
    DISK_LOG(6, "Free Space: %d\n", int(free));
    Cleaning cleaning{[&] { return missing <= 0; },
                      [&](Disk_StudyMetaData const& study, bool deleted) {
                        free = FreeSpaceKB() / kKbPerMb;
                        missing = mb - free;
                        if (deleted)
                          DISK_LOG(6, "Deleted Study with instance uid <%s>. freed %dMB, misssing %dMB\n",
                                   study.m_studyUID.CStr(), study.m_sizeKB >> 10, int(std::max(missing, 0L)));
                      }};
    if (clean(cleaning) == -1) return -1;
    DISK_LOG(5, "Total Studies Deleted: %d\n", cleaning.deleted);
    if (missing > 0) {
      DISK_LOG(5, "Could not free enough space. Free space is %dMB. still missing %dMB\n", int(free), int(missing));
      return Klb_Note(Klb_Cause(DISK_FAILURE_NO_ROOM).Because(kNoRoom));
    }
    DISK_LOG(5, "Free space after deletion is %dMB\n", int(free));
    return 0;
  });
}

int Disk_CacheRepository::AutoCleanNStudies(int count) {
  if (!IsDicomDirValid()) return not_open();
  return Disk_Guarded("AutoCleanNStudies", [&] {
    Disk_CleaningMutex const mutex;
    LogBanner();
    DISK_LOG(5, "About to delete %d Studies.\n", count);
    Cleaning cleaning;
    cleaning.is_done = [&] { return cleaning.deleted >= count; };
    cleaning.tried = [](Disk_StudyMetaData const& study, bool deleted) {
      if (deleted) DISK_LOG(6, "Deleted Study with instance uid <%s>.\n", study.m_studyUID.CStr());
    };
    if (clean(cleaning) == -1) return -1;
    DISK_LOG(5, "Total Studies Required: %d\n", count);
    DISK_LOG(5, "Total Studies Deleted: %d\n", cleaning.deleted);
    if (cleaning.deleted >= count) return 0;
    DISK_LOG(5, "Could not free enough studies.\n");
    return Klb_Note(Klb_Cause(DISK_FAILURE_NO_ROOM).Because(kNoRoom));
  });
}

int Disk_CacheRepository::AutoCleanPercentage(int percentage) {
  if (!IsDicomDirValid()) return not_open();
  if (percentage < 0 || percentage > 100) {
    DISK_LOG(4, "Auto-Clean: Invalid Percentage to clean - <%d>\n", percentage);
    return Klb_Note(Klb_Cause(DISK_FAILURE_ARGUMENT).Because("the percentage isn't one from 0 to 100"));
  }
  return Disk_Guarded("AutoCleanPercentage",
                      [&] { return AutoCleanMB(FindRepositorySizeKB() / kKbPerMb * percentage / 100); });
}

int Disk_CacheRepository::AutoCleanForStudy(int images, Dicom_CS const* modality) {
  if (!IsDicomDirValid()) return not_open();
  return Disk_Guarded("AutoCleanForStudy", [&] {
    std::string text;
    std::string const name = modality ? TextOr(*modality, text) : "(null string)";
    DISK_LOG(5, "Auto-clean, preparing for study. modality - <%s>, %d images\n", name.c_str(), images);
    return AutoCleanMB(EstimateMB(images, name));
  });
}

long Disk_CacheRepository::EstimateMB(int images, std::string const& modality) {
  return long(ImageSize(modality)) * images / kKbPerMb;
}

int Disk_CacheRepository::CleanAll() {
  if (!IsDicomDirValid()) return not_open();
  return Disk_Guarded("CleanAll", [&] {
    DISK_LOG(5, "IMPORTANT NOTICE: Cleaning all the repository. all studies will be deleted\n");
    Disk_StudyMetaData* array = nullptr;
    int count = 0, deleted = 0;
    if (GetStudiesMetaData(array, count) == -1) count = 0;
    std::unique_ptr<Disk_StudyMetaData[]> const studies(array);
    for (int i = 0; i < count && !Disk_IsStopped(m_stop); ++i) {
      DISK_LOG(6, "Deleting study with instance UID <%s>\n", array[i].m_studyUID.CStr());
      deleted += DeleteStudyByInstanceUID(array[i].m_studyUID) == 0;
    }
    DISK_LOG(5, "Clean has finished. %d Studies deleted successfuly, %d studies deletion failed\n", deleted,
             count - deleted);
    return deleted == count ? 0 : -1;
  });
}
