#include <Disk/Disk_CacheRepository.h>

#include "Disk/files/Disk_Guard.h"

#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>

#include <algorithm>

namespace {

constexpr int kKbPerMb = 1024;
constexpr int kMostDoubled = 20;  // a space factor from here on isn't doubled any more
constexpr double kOverhead = 1.1; // of an object's file beside its pixels

Mutex s_count_mutex;

/// What an object needs, by its pixels alone.
int NeededMb(IOD_Msg const& msg) {
  Dicom_Type const* const compressed = msg.Get(Dicom_Dictionary::KOLBA_COMPRESSED_PIXEL_DATA);
  std::size_t const bytes = (compressed ? compressed->GetLength() : 0) + msg.GetPixelData().GetLength();
  std::size_t const whole_kb = bytes / 1024;
  return std::max(int(double(whole_kb) * kOverhead) / kKbPerMb, 1);
}

} // namespace

Dicom_UI Disk_CacheRepository::s_lastStudyUID;
int Disk_CacheRepository::s_studyCount = 0;
RWWString Disk_CacheRepository::s_countedIn;

int Disk_CacheRepository::Store(IOD_Msg* msg, bool store_unmatching_images) {
  if (!IsDicomDirValid()) return not_open();
  if (!msg) return Klb_Note(Klb_Cause(DISK_FAILURE_ARGUMENT).Because("an argument is NULL"));
  return Disk_Guarded("Store", [&] {
    if (m_deIdentifier.Process_for_Push(msg) == -1)
      return DISK_FAIL(DISK_FAILURE_ARGUMENT,
                       "Instance requested to be stored failed de-identification. Store operation blocked.\n");
    if (make_room(*msg) == -1) return -1;
    Dicom_UI const study_uid = msg->GetStudyInstanceUID();
    if (study_uid == UI_NULL)
      return DISK_FAIL(DISK_FAILURE_ARGUMENT, "Failed to get study instance UID. Store Canceled!\n");
    if (limit_studies(study_uid) == -1) return -1;
    m_sizeStale = true;
    return m_root->Store(msg, false, store_unmatching_images, 0, nullptr, 0, nullptr, nullptr, nullptr);
  });
}

int Disk_CacheRepository::make_room(IOD_Msg const& msg) {
  int const needed = NeededMb(msg);
  int const free = int(FreeSpaceKB() / kKbPerMb);
  DISK_LOG(7, "Store: needed space %dMB, Free Space %dMB\n", needed, free);
  if (free >= needed) {
    if (m_spaceFactor > 1) --m_spaceFactor;
    return 0;
  }
  if (m_spaceFactor < kMostDoubled) m_spaceFactor *= 2;
  int const threshold = m_threshold;
  SetThreshold(Disk_CacheRepositoryCleanGradeFactory::GetInstance()->CalculateThreshold(kShortageWeightLimit));
  DISK_LOG(5, "Store: Not enough free space to store image. will try to clean\n");
  int const result = AutoCleanMB(long(m_spaceFactor) * needed);
  if (result == -1) DISK_LOG(5, "Store will fail due to insufficient space\n");
  SetThreshold(threshold);
  return result;
}

/// Gives up as many studies as stand in the way of one more.
int Disk_CacheRepository::limit_studies(Dicom_UI const& study_uid) {
  int const count = studies_before(study_uid);
  if (m_maxStudies <= 0) {
    DISK_LOG(7, "Store: Dicom Dir \"Max Allowed Studies\" limit is disabled.\n");
    return 0;
  }
  DISK_LOG(7, "Store: Dicom Dir Contains %d of %d allowed studies.\n", count, m_maxStudies);
  if (count < m_maxStudies) return 0;
  int const excess = count - m_maxStudies + 1, result = AutoCleanNStudies(excess);
  note_cleaned(study_uid, result == 0 ? excess : 0);
  if (result == 0) return 0;
  return DISK_FAIL(DISK_FAILURE_NO_ROOM, "Failed to clean enough studies. The store will be canceled!\n");
}

/// How many studies there were when the study to store into changed last, which may be now.
int Disk_CacheRepository::studies_before(Dicom_UI const& study_uid) {
  {
    ThreadAPI_LockGuard const guard(s_count_mutex, false);
    if (study_uid == s_lastStudyUID && s_countedIn == m_path) {
      DISK_LOG(7, "Study <%s> is that of the last stored image.\n", study_uid.CStr());
      return s_studyCount;
    }
    DISK_LOG(7, "Study <%s> has changed since last stored image <%s>.\n", s_lastStudyUID.CStr(), study_uid.CStr());
  }
  Disk_StudyMetaData* studies = nullptr; // which takes the file-set's lock: not under the mutex
  int count = 0;
  bool const is_counted = GetStudiesMetaData(studies, count) == 0;
  delete[] studies;
  m_root->ResetVersionFileStatus();
  ThreadAPI_LockGuard const guard(s_count_mutex, true);
  if (is_counted) s_studyCount = count;
  s_lastStudyUID = study_uid.Duplicate();
  s_countedIn = m_path;
  return s_studyCount;
}

/// The count follows a cleaning; one that went wrong lets the next store count anew, as its cause may pass.
void Disk_CacheRepository::note_cleaned(Dicom_UI const& study_uid, int cleaned) {
  ThreadAPI_LockGuard const guard(s_count_mutex, true);
  if (study_uid != s_lastStudyUID || s_countedIn != m_path) return; // another store has counted since
  if (cleaned == 0)
    s_lastStudyUID = UI_NULL;
  else
    s_studyCount -= cleaned;
}
