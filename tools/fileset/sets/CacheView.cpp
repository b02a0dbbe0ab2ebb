#include "sets/CacheView.h"

#include "output/Report.h"
#include "sets/Cause.h"

#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <infra/I18n.h>
#include <set>

std::unique_ptr<CacheView> CacheView::Open(std::string const& directory, Access access, Report& report) {
  FoundFileSet const found = FindFileSet(directory, access, false);
  std::string problem = found.problem;
  if (problem.empty() && found.structure == Structure::Standard)
    problem = "a file-set of the standard structure can't be a cache";
  if (!problem.empty()) {
    report.Fail(directory, problem);
    return nullptr;
  }
  auto cache = std::make_unique<CacheView>();
  cache->SetPath(FromUTF8(directory.c_str()));
  cache->SetDeletesCineFiles(false); // as for other file-sets
  Disk_StudyMetaData none; // reads the grade tables now, so that what they lack isn't taken for the cause of a refusal
  Disk_CacheRepositoryCleanGradeFactory::GetInstance()->GradeStudies(&none, 1);
  if (cache->Construct() == 0) return cache;
  report.Fail(directory, LastCause());
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
  else if (m_userQuotaMB == (has_size ? configured : kDefaultQuotaMb))
    space.limited_by = has_size ? "max_repository_size_mb" : "the default size";
  else
    space.limited_by = GetCfgInteger("max_repository_hd_percentage", configured) ? "max_repository_hd_percentage"
                                                                                 : "the default share of the disk";
  return space;
}

int CacheView::ThresholdInNeed() const {
  return Disk_CacheRepositoryCleanGradeFactory::GetInstance()->CalculateThreshold(kShortageWeightLimit);
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

StudyFolders CacheView::Folders() {
  SCL_QueryIdentifier all(Level::STUDY);
  all.SetStudyInstanceUID(UI_NULL);
  all.Set(Attributes::kReferencedFileId, CS_NULL);
  Dicom_Sequence answers;
  StudyFolders folders;
  if (Query(all, 1, &answers) == -1) return folders;
  for (int i = 0; i < answers.GetNItems(); ++i)
    folders[answers.Get(i)->Text(Attributes::kStudyInstanceUid)] =
        FolderOf(*answers.Get(i), ToUTF8(m_path.data()).data());
  return folders;
}

std::vector<Disk_StudyMetaData> CacheView::Gone(std::vector<Disk_StudyMetaData> const& before) {
  std::vector<Disk_StudyMetaData> after, gone;
  if (Studies(&after) == -1) return gone;
  std::set<std::string> left;
  for (Disk_StudyMetaData const& study : after)
    left.insert(study.m_studyUID.GetText());
  std::copy_if(before.begin(), before.end(), std::back_inserter(gone),
               [&left](Disk_StudyMetaData const& study) { return left.count(study.m_studyUID.GetText()) == 0; });
  return gone;
}
