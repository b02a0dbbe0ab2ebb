#include "commands/Commands.h"

#include "output/Json.h"
#include "output/Report.h"
#include "output/Text.h"
#include "sets/CacheView.h"
#include "sets/Cause.h"
#include "sets/Search.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

namespace {

struct Options {
  std::string directory;
  bool json = false;
};

// In the order of the graders.
constexpr std::array<char const*, 3> kGraders = {"access", "store", "size"};

struct Person {
  std::string id, name;
};

// The patients of the studies, by Study Instance UID; what can't be read is left out.
std::map<std::string, Person> Patients(std::string const& directory, Report& report) {
  constexpr Dicom_Tag kPatientName(0x0010, std::uint16_t(0x0010));
  std::map<std::string, Person> patients;
  FileSet set = OpenFileSet(directory, Access::Read, {}, report);
  Search::Rows rows;
  if (!set.root ||
      Search(set, report).Run(Level::STUDY, {{kPatientName, ""}, {Attributes::kPatientId, ""}}, &rows) == -1)
    return patients;
  for (auto const& row : rows)
    patients[row->Text(Attributes::kStudyInstanceUid)] = {row->Text(Attributes::kPatientId), row->Text(kPatientName)};
  return patients;
}

// "2026-01-31 17:30" of 20260131173000.
std::string Readable(Dicom_DT const& when) {
  std::string const t = when.GetText();
  if (t.size() < 12) return t.empty() ? "never" : t;
  return t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2) + " " + t.substr(8, 2) + ":" + t.substr(10, 2);
}

std::string Megabytes(long kb) {
  char text[32];
  std::snprintf(text, sizeof text, kb < 100 * 1024 ? "%.1f MB" : "%.0f MB", double(kb) / 1024);
  return text;
}

void PrintBar(char const* what, double part, std::string const& text) {
  constexpr int kWidth = 30;
  int const filled = int(std::lround(std::clamp(part, 0.0, 1.0) * kWidth));
  std::printf("%-10s[%s%s] %3.0f %%  %s\n", what, std::string(std::size_t(filled), '#').c_str(),
              std::string(std::size_t(kWidth - filled), '.').c_str(), part * 100, Printable(text).c_str());
}

void PrintSpace(CacheView::Space const& space, std::size_t studies) {
  double const used = space.quota_kb > 0 ? double(space.size_kb) / double(space.quota_kb) : 1;
  PrintBar("Quota", used,
           Megabytes(space.size_kb) + " of " + Megabytes(space.quota_kb) + ", limited by " + space.limited_by);
  if (space.max_studies > 0)
    PrintBar("Studies", double(studies) / space.max_studies,
             std::to_string(studies) + " of " + std::to_string(space.max_studies));
  else
    std::printf("%-10s%zu, not limited\n", "Studies", studies);
  std::printf("%-10s%s in the cache; on the disk %s of %s, of which %d %% are spared\n", "Free",
              Megabytes(space.free_kb).c_str(), Megabytes(long(space.disk_free_kb)).c_str(),
              Megabytes(long(space.disk_kb)).c_str(), space.spare_percentage);
}

void PrintStudies(CacheView const& cache, std::vector<Disk_StudyMetaData> const& studies,
                  std::map<std::string, Person> const& patients) {
  if (studies.empty()) return;
  std::printf("\nIn the order in which they would go; below grade %d at any time, below %d when space is short:\n",
              cache.GetThreshold(), cache.ThresholdInNeed());
  Table table({"Grade", "may go", "Size", "Stored", "Read", "by access", "by store", "by size", "Patient", "Name",
               "Study Instance UID"});
  for (Disk_StudyMetaData const& study : studies) {
    auto const found = patients.find(study.m_studyUID.GetText());
    Person const person = found == patients.end() ? Person() : found->second;
    std::vector<std::string> row = {std::to_string(study.GetGrade()), cache.MayGo(study) ? "yes" : "",
                                    Megabytes(study.m_sizeKB), Readable(study.m_storeDate),
                                    Readable(study.m_accessDate)};
    for (std::size_t i = 0; i < kGraders.size(); ++i)
      row.push_back(int(i) < study.m_gradeCount ? std::to_string(study.m_grades[i]) : "");
    row.insert(row.end(), {person.id, person.name, study.m_studyUID.GetText()});
    table.AddRow(std::move(row));
  }
  table.Print(stdout, 64);
}

void PrintJson(CacheView& cache, CacheView::Space const& space, std::vector<Disk_StudyMetaData> const& studies) {
  nlohmann::json list = nlohmann::json::array();
  for (Disk_StudyMetaData const& study : studies) {
    nlohmann::json grades;
    for (std::size_t i = 0; i < kGraders.size() && int(i) < study.m_gradeCount; ++i)
      grades[kGraders[i]] = study.m_grades[i];
    list.push_back({{"study", study.m_studyUID.GetText()},
                    {"grade", study.GetGrade()},
                    {"grades", grades},
                    {"may_go", cache.MayGo(study)},
                    {"size_kb", study.m_sizeKB},
                    {"stored", study.m_storeDate.GetText()},
                    {"read", study.m_accessDate.GetText()}});
  }
  std::printf("%s\n", JsonText({{"size_kb", space.size_kb},
                                {"quota_kb", space.quota_kb},
                                {"free_kb", space.free_kb},
                                {"limited_by", space.limited_by},
                                {"disk_kb", space.disk_kb},
                                {"disk_free_kb", space.disk_free_kb},
                                {"spare_percentage", space.spare_percentage},
                                {"threshold", cache.GetThreshold()},
                                {"max_studies", space.max_studies},
                                {"studies", list}})
                          .c_str());
}

int Run(Options const& options) {
  Report report;
  auto const cache = CacheView::Open(options.directory, Access::Change, report);
  if (!cache) return kNotOpened;
  std::vector<Disk_StudyMetaData> studies;
  if (cache->Studies(&studies) == -1) {
    report.Fail(options.directory, LastCause());
    return kNotOpened;
  }
  CacheView::Space const space = cache->Measure();
  if (options.json) {
    PrintJson(*cache, space, studies);
  } else {
    PrintSpace(space, studies.size());
    PrintStudies(*cache, studies, Patients(options.directory, report));
  }
  return report.Result();
}

} // namespace

Command AddCacheStatus(CLI::App& app) {
  auto const options = std::make_shared<Options>();
  CLI::App* line = app.add_subcommand(
      "status", "Shows how full the cache is, and its studies in the order in which they would be deleted");
  line->add_option("DIR", options->directory, "The cache")->required();
  line->add_flag("--json", options->json, "Print JSON");
  return {line, [options] { return Run(*options); }};
}
