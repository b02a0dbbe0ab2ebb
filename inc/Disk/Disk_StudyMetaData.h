#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

#include <cstdint>

/// What a cleaning knows of one study, and the grades that it got.
struct DISK_EXPORT Disk_StudyMetaData {
  static constexpr int kMostGrades = 15;

  std::int32_t m_sizeKB = 0; ///< of the study's directory
  Dicom_DT m_storeDate;      ///< null: none is known
  Dicom_DT m_accessDate;     ///< null: not read yet
  Dicom_UI m_studyUID;
  std::int32_t m_gradeCount = 0;
  std::int32_t m_grades[kMostGrades] = {}; ///< in the order of grading
  std::int32_t m_weights[kMostGrades] = {};

  /// The weighted mean of the grades; 100, which nothing is cleaned at, without any.
  int GetGrade() const;
  bool operator<(Disk_StudyMetaData const& other) const { return GetGrade() < other.GetGrade(); }
};
