// Opens a cache: reads its configuration, works out its quota from disk and settings, and forwards queries, fetches
// and deletes to its root. Storing and cleaning have sources of their own.
#include <Disk/Disk_CacheRepository.h>

#include "Disk/files/Disk_Guard.h"

#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_Cfg.h>

#include <algorithm>
#include <cstdint>
#include <tuple>

namespace {

constexpr int kMostStudies = 700, kDefaultPercentage = 10, kDefaultSpare = 1;
constexpr int kKbPerMb = 1024;

Util_CfgHandle const* Handle() { return Util_Cfg::GetHandle(); }

} // namespace

Mutex Disk_CacheRepository::s_mtxLock;

Disk_CacheRepository::Disk_CacheRepository() : m_maxStudies(kMostStudies) {
  int studies = 0;
  if (!GetCfgInteger("max_cached_studies", studies)) {
    DISK_LOG(7, "Failed to read configuration. Max studies set to <%d>\n", m_maxStudies);
  } else if (studies > kMostStudies) {
    DISK_LOG(5, "Configured number of studies is too large. Max studies set to <%d>\n", m_maxStudies);
  } else {
    m_maxStudies = studies;
    DISK_LOG(7, "Configuration set max studies to <%d>\n", m_maxStudies);
  }
}

int Disk_CacheRepository::Construct() {
  return Disk_Guarded("Construct", [&] {
    m_sizeStale = true;
    int status = 0;
    m_root = std::make_shared<Disk_RootDirectoryFile>(
        m_path.data(), Disk_StoreParams(Disk_StoreParams::DUMP_MODE_THREE), 0, &status, nullptr);
    Disk_SupportPar par;
    par.delete_supported = 1;
    m_root->SetSupportPar(par);
    m_root->SetDurability(m_durability);
    m_root->SetDeletesCineFiles(m_deletesCineFiles);
    if (status == 0) {
      FindUserQuotaSize();
      FindQuotaSize();
      DISK_LOG(5, "Repository current size is: %dMB\n", m_sizeKB / kKbPerMb);
    }
    SetThreshold(Disk_CacheRepositoryCleanGradeFactory::GetInstance()->CalculateThreshold(kNormalWeightLimit));
    return status;
  });
}

void Disk_CacheRepository::SetThreshold(int threshold) {
  if (threshold < 0 || threshold > 100) return;
  m_threshold = threshold;
  DISK_LOG(6, "Setting Cache Repository Threshold to %d\n", m_threshold);
}

void Disk_CacheRepository::SetDurability(std::optional<Util_Durability> durability) {
  m_durability = durability;
  if (m_root) m_root->SetDurability(durability);
}

void Disk_CacheRepository::SetDeletesCineFiles(std::optional<bool> wanted) {
  m_deletesCineFiles = wanted;
  if (m_root) m_root->SetDeletesCineFiles(wanted);
}

// Configuration

bool Disk_CacheRepository::GetCfgInteger(RWCString const& key, int& value) {
  Tree_Node const* const push = Handle() ? Handle()->GetPush() : nullptr;
  if (!push) return false;
  DISK_LOG(7, "Found PUSH tree in configuration\n");
  std::unique_ptr<int> const number(push->GetInteger(key.data()));
  value = number ? *number : 0;
  return number != nullptr;
}

bool Disk_CacheRepository::GetCfgString(RWCString const& key, RWCString& value) {
  Tree_Node const* const push = Handle() ? Handle()->GetPush() : nullptr;
  if (!push) return false;
  DISK_LOG(5, "Found PUSH tree in configuration\n");
  std::unique_ptr<RWCString> const text(push->GetString(key.data()));
  value = text ? *text : RWCString();
  return !value.isNull();
}

// Space

void Disk_CacheRepository::FindDiskSizes(unsigned* total, unsigned* free) {
  std::ignore = Klb_FileSystemUtils::FindDiskSizes(m_path, total, free); // which leaves both as they were if it fails
}

long Disk_CacheRepository::FindRepositorySizeKB() {
  if (m_sizeStale) {
    // more than 2 TB count as 2 TB, and what can't be read as nothing
    m_sizeKB = std::int32_t(std::clamp<long>(Klb_FileSystemUtils::GetDirSize(m_path), 0, INT32_MAX));
    m_sizeStale = false;
  }
  return m_sizeKB;
}

void Disk_CacheRepository::FindUserQuotaSize() {
  DISK_LOG(5, "Searching quota size definition in configuration to calculate user quota for push\n");
  int number = 0, constant_mb = kDefaultQuotaMb, percentage = kDefaultPercentage;
  if (GetCfgInteger("max_repository_size_mb", number)) {
    constant_mb = number;
    DISK_LOG(7, "Found Configuration for Max MB: %d\n", constant_mb);
  }
  if (GetCfgInteger("max_repository_hd_percentage", number)) {
    percentage = number;
    DISK_LOG(7, "Found Configuration for Max Percentage of MB: %d\n", percentage);
  }
  unsigned total = 0, free = 0;
  FindDiskSizes(&total, &free);
  unsigned const disk_mb = total >> 10, percent_mb = disk_mb * unsigned(percentage) / 100;
  if (percent_mb < unsigned(constant_mb)) {
    m_userQuotaMB = std::int32_t(percent_mb);
    DISK_LOG(5, "Repository User Quota set by percentage from disk. percentage=%2d, disk size=%dMB\n", percentage,
             int(disk_mb));
  } else {
    m_userQuotaMB = constant_mb;
    DISK_LOG(5, "Repository User Quota set by constant value\n");
  }
  DISK_LOG(5, "Repository quota size is: %dMB\n", m_userQuotaMB);
  m_sparePercentage = kDefaultSpare;
  if (GetCfgInteger("repository_hd_percentage_spare", number)) {
    m_sparePercentage = number;
    DISK_LOG(5, "HD Spare space percentage will be set according to configuration: %2d%%\n", m_sparePercentage);
  } else {
    DISK_LOG(5, "HD Spare space percentage will be set according to default: %2d%%\n", m_sparePercentage);
  }
}

void Disk_CacheRepository::FindQuotaSize() {
  unsigned total = 0, free = 0;
  FindDiskSizes(&total, &free);
  unsigned const total_mb = total >> 10, free_mb = free >> 10;
  int const repository_mb = int(FindRepositorySizeKB() / kKbPerMb);
  unsigned const spare_mb = unsigned(m_sparePercentage) * total_mb / 100;
  int const available_mb = int(free_mb - spare_mb);
  int allowed_mb = available_mb + repository_mb;
  if (allowed_mb <= 0) {
    DISK_LOG(4,
             "Cannot allocate any space for DICOMDIR, Disk is full. please clean unnecessary files and try again "
             "(Needed: %dMB, Available: %dMB, Current Repository Size: %dMB).\n",
             int(spare_mb), int(free_mb), repository_mb);
    allowed_mb = 0;
  } else if (available_mb <= 0) {
    DISK_LOG(4, "Not enough spare size on disk for DICOMDIR to grow. needed at least %dMB, and only %dMB is free\n",
             int(spare_mb), int(free_mb));
  }
  if (m_userQuotaMB < allowed_mb) {
    m_quotaMB = m_userQuotaMB;
    return;
  }
  m_quotaMB = allowed_mb;
  DISK_LOG(5,
           "Not enough spare size on disk for original quota. quota is set to %dMB so that at least %dMB will be left "
           "free\n",
           m_quotaMB, int(spare_mb));
}

long Disk_CacheRepository::FreeSpaceKB() {
  if (!IsDicomDirValid()) return 0;
  long free = 0;
  Disk_Guarded("FreeSpaceKB", [&] {
    FindQuotaSize();
    free = std::max(long(m_quotaMB) * kKbPerMb - m_sizeKB, 0L);
    return 0;
  });
  return free;
}

// What the root does

int Disk_CacheRepository::not_open() {
  return Klb_Note(Klb_Cause(DISK_FAILURE_ARGUMENT).Because("the cache isn't open"));
}

int Disk_CacheRepository::Query(SCL_QueryIdentifier const& identifier, SCL_InformationModel model,
                                Dicom_Sequence* results) {
  return IsDicomDirValid() ? m_root->Query(identifier, model, results) : not_open();
}

int Disk_CacheRepository::GetOne(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object) {
  return IsDicomDirValid() ? m_root->GetOne(identifier, model, object, nullptr) : not_open();
}

int Disk_CacheRepository::Delete(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                                 MXL_SubOperationsReport* report, SCL_ResponseStatus& status) {
  if (!IsDicomDirValid()) return not_open();
  m_sizeStale = true;
  return m_root->Delete(identifier, model, report, status);
}

int Disk_CacheRepository::DeleteStudyByInstanceUID(Dicom_UI study_uid) {
  if (!IsDicomDirValid()) return not_open();
  return Disk_Guarded("DeleteStudyByInstanceUID", [&] {
    int error = 0;
    SCL_MoveIdentifier identifier(SCL_QueryRetrieveLevel::STUDY, &error);
    if (error == -1 || identifier.SetStudyInstanceUID(study_uid) == -1)
      return DISK_FAIL("Failed to create Move Identifier.\n");
    MXL_SubOperationsReport report;
    SCL_ResponseStatus status = SCL_ResponseStatus::Failed;
    std::ignore = Delete(identifier, 1, &report, status); // the status tells whether the study has gone
    return status == SCL_ResponseStatus::Success ? 0 : -1;
  });
}

int Disk_CacheRepository::MarkStudyAsFullyLoaded(Dicom_UI const& study_uid) {
  if (!IsDicomDirValid()) return not_open();
  Klb_Operation const scope;
  if (m_root->SetStudyCompleted(study_uid) == 0) return 0;
  return DISK_FAIL("Disk_CacheRepository::MarkStudyAsFullyLoaded() - Study status cannot be updated.\n");
}

int Disk_CacheRepository::MarkStudyAsAccessed(Dicom_UI const& study_uid) {
  if (!IsDicomDirValid()) return not_open();
  Klb_Operation const scope;
  if (m_root->SetStudyAccessed(study_uid) == 0) return 0;
  return DISK_FAIL("Disk_CacheRepository::MarkStudyAsAccessed() - Study status cannot be updated.\n");
}
