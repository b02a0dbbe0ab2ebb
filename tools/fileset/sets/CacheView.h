// A file-set as a bounded cache: what limits it, and which studies it would delete next.
#pragma once

#include "sets/FileSet.h"
#include "sets/Leftovers.h"

#include <Disk/Disk_CacheRepository.h>
#include <memory>
#include <string>
#include <vector>

class Report;

class CacheView : public Disk_CacheRepository {
public:
  struct Space {
    long size_kb = 0, quota_kb = 0, free_kb = 0;
    unsigned disk_kb = 0, disk_free_kb = 0;
    int max_studies = 0, spare_percentage = 0;
    std::string limited_by; // what sets the quota
  };

  // Null (reported) if there is no cache and the access makes none.
  static std::unique_ptr<CacheView> Open(std::string const& directory, Access access, Report& report);

  Space Measure();
  // The graded studies, in the order in which they would be deleted. 0, or -1.
  int Studies(std::vector<Disk_StudyMetaData>* studies);
  // The folders of all studies; none if the studies can't be listed.
  StudyFolders Folders();
  // Those of `before` that are gone; none if the studies can't be listed.
  std::vector<Disk_StudyMetaData> Gone(std::vector<Disk_StudyMetaData> const& before);
  // Studies below this grade are deleted when an object has no room.
  int ThresholdInNeed() const;
  using Disk_CacheRepository::EstimateMB;
  bool MayGo(Disk_StudyMetaData const& study) const { return study.GetGrade() < GetThreshold(); }
};
