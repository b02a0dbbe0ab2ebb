#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <dicom/MXL_SubOperationsReport.h>
#include <infra/Disk_Export.h>

#include <functional>
#include <set>
#include <string>

/// How many images a delete removed, and how many it was asked for and couldn't. Wider than the report's counts.
struct DISK_EXPORT Disk_Tally {
  unsigned completed = 0, failed = 0;
  /// Images that failed because they have no record, series whose folder is gone, and series with fewer images than
  /// they count. A delete that was interrupted leaves such, and counters above them that are too high.
  unsigned missing = 0;

  Disk_Tally& operator+=(Disk_Tally const& other) {
    completed += other.completed;
    failed += other.failed;
    missing += other.missing;
    return *this;
  }
  /// Writes the counts into a report, in its 16 bits. 0.
  int Tell(MXL_SubOperationsReport* report) const {
    *report = MXL_SubOperationsReport();
    report->Set(MXL_SubOperationsReport::Completed, Dicom_US(std::uint16_t(completed)));
    report->Set(MXL_SubOperationsReport::Failed, Dicom_US(std::uint16_t(failed)));
    return 0;
  }
};

/// Whether cine files go with their images from the file-sets whose roots don't say so themselves
/// (Disk_RootDirectoryFile::SetDeletesCineFiles); true at first, for the whole process.
DISK_EXPORT void Disk_SetDeletesCineFiles(bool wanted);
DISK_EXPORT bool Disk_DeletesCineFiles();

/// What is to go from one study, and what became of it.
struct DISK_EXPORT Disk_Removal {
  Dicom_UI series_uid; ///< null: all series
  Dicom_UI image_uids; ///< one or more, or null for all images

  Disk_Tally tally;
  int series_before = 0;                              ///< records in use before
  int series_removed = 0;                             ///< that ceased to exist
  int series_left = 0;                                ///< records in use after
  int images_left = 0;                                ///< in the series that remain, by their counters
  Dicom_CS modality;                                  ///< of the one series that was named and removed
  std::set<std::string, std::less<>> modalities_left; ///< of the series that remain
  /// The series that was named has no record, and others have. What is left of the study is counted above all the same.
  bool series_missing = false;
};
