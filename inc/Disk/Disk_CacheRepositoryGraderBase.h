#pragma once
#include <Disk/Disk_StudyMetaData.h>
#include <infra/Disk_Export.h>

/// One reason to keep a study or to give it up. A grader takes part in every cleaning of the process for as long as it
/// lives; it is made and destroyed on one thread, when nothing is cleaned.
class DISK_EXPORT Disk_CacheRepositoryGraderBase {
public:
  Disk_CacheRepositoryGraderBase();
  Disk_CacheRepositoryGraderBase(Disk_CacheRepositoryGraderBase const&) = delete;
  Disk_CacheRepositoryGraderBase& operator=(Disk_CacheRepositoryGraderBase const&) = delete;

  /// Gives each study one grade with AddGrade; from 0, to go first, to 100, to stay.
  virtual void GradeStudies(Disk_StudyMetaData* studies, int count) = 0;
  /// How much the grades count; always the same.
  virtual int GetWeight() = 0;

  void AddGrade(Disk_StudyMetaData* study, int grade);

protected:
  ~Disk_CacheRepositoryGraderBase();
};
