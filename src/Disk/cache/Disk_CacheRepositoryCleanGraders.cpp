#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <Disk/Disk_CacheRepositoryCleanGraders.h>
#include <infra/Klb_LogFile.h>

#include <algorithm>
#include <cstdint>
#include <ctime>

#define GRADER_PATH "velquant\\system\\applications\\loader\\pull_client\\"

namespace {

constexpr int kFull = 100;

// The order of these is that of the grades of a study.
Disk_CacheRepository_AccessDateStudyGrader s_access_grader;
Disk_CacheRepository_StoreDateStudyGrader s_store_grader;
Disk_CacheRepository_SizeStudyGrader s_size_grader;

/// Local calendar time, as if daylight saving were never in force.
double Seconds(Dicom_DT const& when) {
  Dicom_DA const date = when.Date();
  Dicom_TM const time = when.Time();
  std::tm parts{};
  parts.tm_year = date.Year() - 1900;
  parts.tm_mon = date.Month() - 1;
  parts.tm_mday = date.Day();
  parts.tm_hour = time.Hours();
  parts.tm_min = time.Minutes();
  parts.tm_sec = time.Seconds();
  return double(std::mktime(&parts));
}

Dicom_DT Now() { return {Dicom_DA::GetCurrentDate(), Dicom_TM::GetTickCount(), nullptr}; }

/// What the two graders by date differ in.
struct DateTexts {
  char const *opening, *without_date, *with_date;
  int grade_without_date;
};

template <class Grader>
void GradeByDate(Grader& grader, Disk_StudyMetaData* studies, int count, Dicom_DT Disk_StudyMetaData::*date,
                 DateTexts const& texts) {
  DISK_LOG_TEXT(7, texts.opening);
  for (int i = 0; i < count; ++i) {
    DISK_LOG(7, "Grading Study #%d: ", i + 1);
    Dicom_DT const& when = studies[i].*date;
    int grade = texts.grade_without_date;
    if (when == DT_NULL) {
      DISK_LOG_MORE(7, "%s", texts.without_date);
    } else {
      double const days = (Seconds(Now()) - Seconds(when)) / 60 / 60 / 24;
      grade = grader.GetGrade(int(std::clamp(days, double(INT32_MIN), double(INT32_MAX))));
      DISK_LOG_MORE(7, texts.with_date, int(days), grade);
    }
    DISK_LOG_MORE(7, "Graded %d\n", grade);
    grader.AddGrade(&studies[i], grade);
  }
}

} // namespace

// Grades

int Disk_StudyMetaData::GetGrade() const {
  std::int64_t sum = 0, weights = 0; // a configured grade may be any number
  for (int i = 0; i < m_gradeCount; ++i) {
    sum += std::int64_t(m_grades[i]) * m_weights[i];
    weights += m_weights[i];
  }
  return weights == 0 ? kFull : int(sum / weights);
}

void Disk_CacheRepositoryGraderBase::AddGrade(Disk_StudyMetaData* study, int grade) {
  if (study->m_gradeCount == Disk_StudyMetaData::kMostGrades) return;
  study->m_grades[study->m_gradeCount] = grade;
  study->m_weights[study->m_gradeCount] = GetWeight();
  ++study->m_gradeCount;
}

Disk_CacheRepositoryGraderBase::Disk_CacheRepositoryGraderBase() {
  Disk_CacheRepositoryCleanGradeFactory::GetInstance()->RegisterGrader(this);
}

Disk_CacheRepositoryGraderBase::~Disk_CacheRepositoryGraderBase() {
  Disk_CacheRepositoryCleanGradeFactory::GetInstance()->UnregisterGrader(this);
}

// The graders

void Disk_CacheRepository_SizeStudyGrader::GradeStudies(Disk_StudyMetaData* studies, int count) {
  DISK_LOG(7, "SizeStudyGrader: Grading studies\n");
  if (count == 0) return;
  auto const [smallest, largest] = std::minmax_element(
      studies, studies + count, [](auto const& a, auto const& b) { return a.m_sizeKB < b.m_sizeKB; });
  int const min = smallest->m_sizeKB, max = largest->m_sizeKB;
  std::int64_t sum = 0;
  for (int i = 0; i < count; ++i)
    sum += studies[i].m_sizeKB;
  double const range = max == min ? 1 : double(max) - min;
  DISK_LOG(7, "Average size: %d\tMax Size: %d\tMin Size: %d\n", int(sum / count), max, min);
  for (int i = 0; i < count; ++i) {
    DISK_LOG(7, "Grading Study #%d: ", i + 1);
    int const grade = kFull - int((double(studies[i].m_sizeKB) - min) / range * 100.0);
    AddGrade(&studies[i], grade);
    DISK_LOG_MORE(7, "Graded %d\n", grade);
  }
}

Disk_CacheRepository_StoreDateStudyGrader::Disk_CacheRepository_StoreDateStudyGrader()
    : Disk_CacheRepository_GradeTable(GRADER_PATH "store_grader") {}

void Disk_CacheRepository_StoreDateStudyGrader::GradeStudies(Disk_StudyMetaData* studies, int count) {
  static constexpr DateTexts kTexts{"StoreDateStudyGrader: Grading studies\n",
                                    "No store date found. giving a very low grade. ",
                                    "Study was stored in the last %d days, giving it a grade of %d. ", 0};
  GradeByDate(*this, studies, count, &Disk_StudyMetaData::m_storeDate, kTexts);
}

Disk_CacheRepository_AccessDateStudyGrader::Disk_CacheRepository_AccessDateStudyGrader()
    : Disk_CacheRepository_GradeTable(GRADER_PATH "access_grader") {}

void Disk_CacheRepository_AccessDateStudyGrader::GradeStudies(Disk_StudyMetaData* studies, int count) {
  static constexpr DateTexts kTexts{"AccessDateStudyGrader: Grading studies\n",
                                    "Study was not read yet. giving a full grade. ",
                                    "Study was accessed in the last %d days, giving it a grade of %d. ", kFull};
  GradeByDate(*this, studies, count, &Disk_StudyMetaData::m_accessDate, kTexts);
}
