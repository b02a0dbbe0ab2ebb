#pragma once
#include <Disk/Disk_CacheRepositoryGraderBase.h>
#include <Disk/Disk_CacheRepository_GradeTable.h>
#include <infra/Disk_Export.h>

// The three graders of the library; one object of each takes part in every cleaning.

/// The largest study of all gets 0, the smallest 100.
class DISK_EXPORT Disk_CacheRepository_SizeStudyGrader : public Disk_CacheRepositoryGraderBase {
public:
  void GradeStudies(Disk_StudyMetaData* studies, int count) override;
  int GetWeight() override { return 2; }
};

/// By the age of the last store, from the table "store_grader"; 0 where none is known.
class DISK_EXPORT Disk_CacheRepository_StoreDateStudyGrader : public Disk_CacheRepositoryGraderBase,
                                                              public Disk_CacheRepository_GradeTable {
public:
  Disk_CacheRepository_StoreDateStudyGrader();
  void GradeStudies(Disk_StudyMetaData* studies, int count) override;
  int GetWeight() override { return 4; }
};

/// By the age of the last access, from the table "access_grader"; 100 for a study that nobody has read yet.
class DISK_EXPORT Disk_CacheRepository_AccessDateStudyGrader : public Disk_CacheRepositoryGraderBase,
                                                               public Disk_CacheRepository_GradeTable {
public:
  Disk_CacheRepository_AccessDateStudyGrader();
  void GradeStudies(Disk_StudyMetaData* studies, int count) override;
  int GetWeight() override { return 5; }
};
