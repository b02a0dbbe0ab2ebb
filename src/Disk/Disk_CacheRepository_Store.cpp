#include <Disk/Disk_CacheRepository.h>

#include "Disk/Disk_Guard.h"

#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>

#include <algorithm>

namespace {

constexpr int kKbPerMb = 1024;
constexpr int kMostDoubled = 20;  // a space factor from here on isn't doubled any more
constexpr double kOverhead = 1.1; // of an object's file beside its pixels
constexpr Dicom_Tag kPixelData{0x7FE0, std::uint16_t(0x0010)};

std::size_t LengthOf(IOD_Msg const& msg, Dicom_Tag const& tag) {
  Dicom_Type const* const value = msg.Get(tag);
  return value ? value->GetLength() : 0;
}

/// What an object needs, by its pixels alone.
int NeededMb(IOD_Msg const& msg) {
  std::size_t const bytes = LengthOf(msg, Dicom_Dictionary::KOLBA_COMPRESSED_PIXEL_DATA) + LengthOf(msg, kPixelData);
  return std::max(int(double(bytes / 1024) * kOverhead) / kKbPerMb, 1);
}

} // namespace

// Of the thread: all its repositories share them.
thread_local Dicom_UI Disk_CacheRepository::s_lastStudyUID;
thread_local int Disk_CacheRepository::s_studyCount = 0;
thread_local std::weak_ptr<Disk_RootDirectoryFile> Disk_CacheRepository::s_countedIn;

int Disk_CacheRepository::Store(IOD_Msg* msg, bool store_unmatching_images) {
  if (!IsDicomDirValid() || !msg) return -1;
  return Disk_Guarded("Store", [&] {
    if (m_deIdentifier.Process_for_Push(msg) == -1) {
      DISK_LOG(3, "Instance requested to be stored failed de-identification. Store operation blocked.\n");
      return -1;
    }
    if (make_room(*msg) == -1) return -1;
    Dicom_UI const study_uid = msg->GetStudyInstanceUID();
    if (study_uid == UI_NULL) {
      DISK_LOG(3, "Failed to get study instance UID. Store Canceled!\n");
      return -1;
    }
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
  s_studyCount = count_studies();
  return result;
}

/// Counts the studies when the study changes, and gives up as many as stand in the way of one more.
int Disk_CacheRepository::limit_studies(Dicom_UI const& study_uid) {
  if (study_uid != s_lastStudyUID || s_countedIn.lock() != m_root) {
    DISK_LOG(7, "Study <%s> has changed since last stored image <%s>.\n", s_lastStudyUID.CStr(), study_uid.CStr());
    s_studyCount = count_studies();
    m_root->ResetVersionFileStatus();
    s_lastStudyUID = study_uid.Duplicate();
    s_countedIn = m_root;
  } else {
    DISK_LOG(7, "Study <%s> is that of the last stored image.\n", study_uid.CStr());
  }
  if (m_maxStudies <= 0) {
    DISK_LOG(7, "Store: Dicom Dir \"Max Allowed Studies\" limit is disabled.\n");
    return 0;
  }
  if (s_studyCount >= m_maxStudies) s_studyCount = count_studies(); // others may have made room meanwhile
  DISK_LOG(7, "Store: Dicom Dir Contains %d of %d allowed studies.\n", s_studyCount, m_maxStudies);
  if (s_studyCount < m_maxStudies) return 0;
  if (AutoCleanNStudies(s_studyCount - m_maxStudies + 1) != 0) {
    DISK_LOG(3, "Failed to clean enough studies. The store will be canceled!\n");
    return -1;
  }
  s_studyCount = count_studies();
  return 0;
}

/// As many as a query finds; what was counted before when it can't be asked.
int Disk_CacheRepository::count_studies() {
  SCL_QueryIdentifier identifier(SCL_QueryRetrieveLevel::STUDY);
  Dicom_Sequence answers;
  if (identifier.SetStudyInstanceUID(UI_NULL) == -1 || m_root->Query(identifier, 1, &answers) == -1)
    return s_studyCount;
  return answers.GetNItems();
}
