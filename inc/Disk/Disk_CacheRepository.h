#pragma once
#include <Disk/Disk_RootDirectoryFile.h>
#include <Disk/Disk_StudyMetaData.h>
#include <dicom/Dicom_DeIdentifier.h>
#include <infra/Disk_Export.h>
#include <infra/RWCString.h>
#include <infra/RWWString.h>
#include <infra/ThreadTools.h>

#include <functional>
#include <memory>
#include <optional>

/// A file-set as a bounded cache: it may take so much of the disk, and hold so many studies, and gives up the studies
/// with the lowest grades when an object doesn't fit.
///
///     Disk_CacheRepository cache;
///     cache.SetPath(RWWString(L"/data/cache"));
///     if (cache.Construct() == 0) cache.Store(&object, false);
///
/// The quota is the smaller one of what the configuration grants (docs/configuration.md) and of what the disk has, its
/// spare aside; it shrinks as the disk fills with other data, and grows back. One object serves one thread at a time;
/// copies share the file-set. Operations give 0 or -1, before Construct -1; after one that failed the file-set's own
/// operations fail. Deletes honour no protection.
class DISK_EXPORT Disk_CacheRepository {
public:
  static constexpr int kDefaultQuotaMb = 5000;
  /// What the factory makes thresholds of: the one that stands after Construct, and that of a store without room.
  static constexpr int kNormalWeightLimit = 5, kShortageWeightLimit = 4;

  Disk_CacheRepository();

  /// Opens the file-set in the directory that SetPath named, and works out the quotas. 0, or -1.
  [[nodiscard]] int Construct();
  RWWString const& GetPath() const { return m_path; }
  void SetPath(RWWString const& path) { m_path = path; }
  /// Studies with grades below the threshold may be cleaned. Values outside of 0 to 100 are ignored.
  int GetThreshold() const { return m_threshold; }
  void SetThreshold(int threshold);
  /// Of the file-set (Disk_RootDirectoryFile), before Construct or after it.
  void SetDurability(std::optional<Util_Durability> durability);
  void SetDeletesCineFiles(std::optional<bool> wanted);
  /// What is left of the quota, in KB of 1024 bytes; 0 also before Construct.
  long FreeSpaceKB();

  /// Makes room if need be, and stores an object. The flag is that of Disk_RootDirectoryFile::Store. 0; or -1 when the
  /// object is refused (by the de-identifier, for want of space or of studies that may go) or can't be stored. Studies
  /// may have been given up, whatever the result: also the object's own, with what was stored before. The studies are
  /// counted when the object's study isn't that of the process's last store: those that others add meanwhile, at the
  /// same time too, count from then on.
  [[nodiscard]] int Store(IOD_Msg* msg, bool store_unmatching_images);
  [[nodiscard]] int Query(SCL_QueryIdentifier const& identifier, SCL_InformationModel model, Dicom_Sequence* results);
  [[nodiscard]] int GetOne(SCL_MoveIdentifier const& identifier, SCL_InformationModel model, IOD_Msg** object);
  [[nodiscard]] int Delete(SCL_MoveIdentifier const& identifier, SCL_InformationModel model,
                           MXL_SubOperationsReport* report, SCL_ResponseStatus& status);
  [[nodiscard]] int DeleteStudyByInstanceUID(Dicom_UI study_uid);
  [[nodiscard]] int MarkStudyAsFullyLoaded(Dicom_UI const& study_uid);
  [[nodiscard]] int MarkStudyAsAccessed(Dicom_UI const& study_uid);

  // Cleaning: studies go from the lowest grade upward, as long as that is below the threshold. Two cleanings on one
  // machine never overlap, CleanAll apart. 0, or -1 when the target wasn't met; what could go has gone then.

  /// So that a tenth of the repository's size is free within the quota; that may be so already.
  [[nodiscard]] int AutoClean() { return AutoCleanPercentage(10); }
  /// The same for another part. -1, and nothing is done, outside of 0 to 100.
  [[nodiscard]] int AutoCleanPercentage(int percentage);
  /// So that `mb` MB are free within the quota.
  [[nodiscard]] int AutoCleanMB(long mb);
  [[nodiscard]] int AutoCleanNStudies(int count);
  /// For a study of so many images of a modality, which may be null.
  [[nodiscard]] int AutoCleanForStudy(int images, Dicom_CS const* modality);
  /// All studies, whatever their grade.
  [[nodiscard]] int CleanAll();

  /// Called after each study that a cleaning gave up, those of Store included; it must not call this repository.
  void SetStudyGivenUp(std::function<void(Disk_StudyMetaData const&)> given_up) {
    m_studyGivenUp = std::move(given_up);
  }

  /// Asked before each study that a cleaning would delete; true ends the cleaning, as if no other study could go. It
  /// must not call this repository.
  void SetStop(std::function<bool()> stop) { m_stop = std::move(stop); }

  /// For callers; nothing here takes it.
  static Mutex s_mtxLock;

protected:
  bool IsDicomDirValid() const { return m_root != nullptr; }
  static int not_open(); ///< notes that failure
  /// All studies, ungraded. 0 and a new array for the caller to delete[], unless there are none; or -1.
  int GetStudiesMetaData(Disk_StudyMetaData*& studies, int& count);
  void FindUserQuotaSize();
  void FindQuotaSize();
  long FindRepositorySizeKB();
  void FindDiskSizes(unsigned* total, unsigned* free);
  /// The MB of so many images of a modality, by the configured or the default size of one.
  static long EstimateMB(int images, std::string const& modality);
  /// A value of the push part of the configuration. False when there is none.
  static bool GetCfgInteger(RWCString const& key, int& value);
  static bool GetCfgString(RWCString const& key, RWCString& value);

  RWWString m_path;
  std::shared_ptr<Disk_RootDirectoryFile> m_root; ///< null before Construct
  Dicom_DeIdentifier m_deIdentifier{nullptr};
  std::int32_t m_quotaMB = 0;         ///< in force
  std::int32_t m_userQuotaMB = 0;     ///< asked for by the configuration
  std::int32_t m_sparePercentage = 0; ///< of the disk, to stay free
  std::int32_t m_sizeKB = 0;          ///< as it was measured last
  std::int32_t m_threshold = 0;
  bool m_sizeStale = false;
  std::int32_t m_maxStudies = 0; ///< no limit when not above 0
  std::int32_t m_spaceFactor = 1;

private:
  std::optional<Util_Durability> m_durability;
  std::optional<bool> m_deletesCineFiles;
  std::function<void(Disk_StudyMetaData const&)> m_studyGivenUp;
  std::function<bool()> m_stop;
  struct Cleaning;
  int clean(Cleaning& cleaning);
  int make_room(IOD_Msg const& msg);
  int limit_studies(Dicom_UI const& study_uid);
  int studies_before(Dicom_UI const& study_uid);
  void note_cleaned(Dicom_UI const& study_uid, int cleaned);
  void read_study(Dicom_Msg const& answer, int number, Disk_StudyMetaData* study) const;

  // Of the process, under a mutex of their own: the study that was stored into last, and how many there were then.
  static Dicom_UI s_lastStudyUID;
  static int s_studyCount;
  static RWWString s_countedIn; // the path of the repository that this is about
};
