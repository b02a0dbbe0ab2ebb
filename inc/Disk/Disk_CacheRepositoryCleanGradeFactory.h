#pragma once
#include <Disk/Disk_CacheRepositoryGraderBase.h>
#include <infra/Disk_Export.h>

/// The graders of the process, in the order in which they were made.
class DISK_EXPORT Disk_CacheRepositoryCleanGradeFactory {
public:
  static constexpr int kMostGraders = Disk_StudyMetaData::kMostGrades;

  /// The one instance, which is never deleted.
  static Disk_CacheRepositoryCleanGradeFactory* GetInstance();

  /// One too many is logged and left out.
  void RegisterGrader(Disk_CacheRepositoryGraderBase* grader);
  void UnregisterGrader(Disk_CacheRepositoryGraderBase* grader);
  /// Every grader grades the whole array.
  void GradeStudies(Disk_StudyMetaData* studies, int count);
  /// The grade of a study to which graders of a weight below the limit give 20 and the others 100: what grades lower
  /// may be cleaned. 0 without graders.
  int CalculateThreshold(int weightLimit);

private:
  Disk_CacheRepositoryGraderBase* m_graders[kMostGraders] = {};
  int m_graderCount = 0;
};
