#include "CacheView.h"

#include "EngineLog.h"
#include "FileSet.h"
#include "Report.h"

#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <infra/I18n.h>

std::unique_ptr<CacheView> CacheView::Open(std::string const& directory, bool may_make, EngineLog& log,
                                           Report& report) {
  FoundFileSet const found = RecogniseFileSet(directory);
  std::error_code error;
  bool const is_new = found.structure == Structure::None && may_make;
  if (is_new && !std::filesystem::exists(directory)) std::filesystem::create_directory(directory, error);
  std::string problem = error ? error.message() : is_new ? "" : found.problem;
  if (problem.empty() && found.structure == Structure::Standard)
    problem = "a file-set of the standard structure can't be a cache";
  if (problem.empty() && found.structure == Structure::None && !may_make) problem = kNoFileSet;
  if (!problem.empty()) {
    report.Fail(directory, problem);
    return nullptr;
  }
  auto cache = std::make_unique<CacheView>();
  cache->SetPath(FromUTF8(directory.c_str()));
  log.Begin();
  if (cache->Construct() == 0) return cache;
  report.Fail(directory, log.Cause());
  return nullptr;
}

CacheView::Space CacheView::Measure() {
  Space space;
  space.free_kb = FreeSpaceKB();
  space.size_kb = m_sizeKB;
  space.quota_kb = long(m_quotaMB) * 1024;
  FindDiskSizes(&space.disk_kb, &space.disk_free_kb);
  space.max_studies = m_maxStudies;
  space.spare_percentage = m_sparePercentage;
  int configured = 0;
  bool const has_size = GetCfgInteger("max_repository_size_mb", configured);
  if (m_quotaMB < m_userQuotaMB)
    space.limited_by = "the free space of the disk";
  else if (m_userQuotaMB == (has_size ? configured : 5000))
    space.limited_by = has_size ? "max_repository_size_mb" : "the default size";
  else
    space.limited_by = GetCfgInteger("max_repository_hd_percentage", configured) ? "max_repository_hd_percentage"
                                                                                 : "the default share of the disk";
  return space;
}

int CacheView::Studies(std::vector<Disk_StudyMetaData>* studies) {
  Disk_StudyMetaData* array = nullptr;
  int count = 0;
  if (GetStudiesMetaData(array, count) == -1) return -1;
  std::unique_ptr<Disk_StudyMetaData[]> const owner(array);
  Disk_CacheRepositoryCleanGradeFactory::GetInstance()->GradeStudies(array, count);
  studies->assign(array, array + count);
  std::stable_sort(studies->begin(), studies->end());
  return 0;
}
