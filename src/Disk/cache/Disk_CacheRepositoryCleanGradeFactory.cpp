// Holds the registered graders. A study's grade is what all of them give it together.
#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <infra/Klb_LogFile.h>
#include <infra/ThreadTools.h>

#include <algorithm>

namespace {

constexpr int kLow = 20, kFull = 100; // what a threshold reckons with

constinit Mutex s_instance_mutex; // the graders of other files register while the library loads

} // namespace

Disk_CacheRepositoryCleanGradeFactory* Disk_CacheRepositoryCleanGradeFactory::GetInstance() {
  static Disk_CacheRepositoryCleanGradeFactory* s_instance = nullptr;
  ThreadAPI_LockGuard const guard(s_instance_mutex, true);
  if (!s_instance) s_instance = new Disk_CacheRepositoryCleanGradeFactory(); // outlives the graders
  return s_instance;
}

void Disk_CacheRepositoryCleanGradeFactory::RegisterGrader(Disk_CacheRepositoryGraderBase* grader) {
  if (m_graderCount < kMostGraders) {
    m_graders[m_graderCount++] = grader;
    return;
  }
  DISK_LOG(4, "Cache Repoisotry has tried to register too many cleanup graders. maximum available graders are: %d\n",
           kMostGraders);
}

void Disk_CacheRepositoryCleanGradeFactory::UnregisterGrader(Disk_CacheRepositoryGraderBase* grader) {
  auto const end = m_graders + m_graderCount, found = std::find(m_graders, end, grader);
  if (found == end) return;
  std::move(found + 1, end, found);
  --m_graderCount;
}

void Disk_CacheRepositoryCleanGradeFactory::GradeStudies(Disk_StudyMetaData* studies, int count) {
  for (int i = 0; i < m_graderCount; ++i)
    m_graders[i]->GradeStudies(studies, count);
}

int Disk_CacheRepositoryCleanGradeFactory::CalculateThreshold(int weightLimit) {
  int weights = 0, sum = 0;
  for (int i = 0; i < m_graderCount; ++i) {
    int const weight = m_graders[i]->GetWeight();
    weights += weight;
    sum += weight * (weight < weightLimit ? kLow : kFull);
  }
  return weights == 0 ? 0 : sum / weights;
}
