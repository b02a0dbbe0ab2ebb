#include <Disk/Disk_CacheRepository_GradeTable.h>
#include <infra/CFG_Factory.h>
#include <infra/Klb_LogFile.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kUsualRows = 64;
constexpr int kNoTableDefault = 100, kBuiltInDefault = 20;

bool IsZero(char const* text) { return std::strcmp(text, "0") == 0; }

/// The number that a text begins with, as far as it can be told; 0 for none.
int Number(char const* text) {
  return int(std::clamp(std::strtol(text, nullptr, 10), long(INT32_MIN), long(INT32_MAX)));
}

} // namespace

Disk_CacheRepository_GradeTable::Disk_CacheRepository_GradeTable(RWCString const& configPath)
    : m_configPath(configPath) {
  m_entries.reserve(kUsualRows);
}

int Disk_CacheRepository_GradeTable::GetGrade(int days) {
  if (!m_loaded) Load();
  auto const row =
      std::find_if(m_entries.begin(), m_entries.end(), [days](Entry const& entry) { return entry.first >= days; });
  return row == m_entries.end() ? m_defaultGrade : row->second;
}

void Disk_CacheRepository_GradeTable::Load() {
  m_loaded = true; // tried once, whatever comes of it
  m_defaultGrade = kNoTableDefault;
  DISK_LOG(7, "Geting grade table from <%s>.\n", m_configPath.data());
  CFG_RepositoryServices const* const services = CFG_Factory::GetRepositoryServices();
  if (!services) {
    DISK_LOG(3, "Can't connect to CFG.\n");
    return;
  }
  Tree_Node const* const node = services->GetNode(m_configPath.data());
  std::unique_ptr<Tree_PathAndValueArray> const rows(node ? node->GetPathAndValues("") : nullptr);
  if (!rows) return set_built_in();
  for (int i = 0; i < rows->GetCount(); ++i)
    read_entry(rows->GetPV(i)->GetPath().data(), rows->GetPV(i)->GetValue().data());
}

void Disk_CacheRepository_GradeTable::read_entry(char const* path, char const* value) {
  int const days = Number(path), grade = Number(value);
  if (grade == 0 && !IsZero(value)) {
    DISK_LOG(3, "Table has an invalid value <%s,%s>", path, value);
    DISK_LOG_MORE(3, "\n");
  } else if (std::strcmp(path, "default") == 0) {
    m_defaultGrade = grade;
    DISK_LOG(7, "Default value is: %d.\n", grade);
  } else if (days == 0 && !IsZero(path)) {
    DISK_LOG(3, "Table has an invalid entry <%s,%s>", path, value);
    DISK_LOG_MORE(3, "\n");
  } else {
    insert(days, grade);
    DISK_LOG(7, "Found grade table entry <%s,%s>", path, value);
    DISK_LOG_MORE(7, "\n");
  }
}

void Disk_CacheRepository_GradeTable::set_built_in() {
  DISK_LOG(3, "Couldn't find the table! Setting default values.\n");
  for (auto const& [days, grade] : {Entry{0, 95}, Entry{1, 85}, Entry{7, 65}, Entry{14, 50}})
    insert(days, grade);
  m_defaultGrade = kBuiltInDefault;
}

void Disk_CacheRepository_GradeTable::insert(int days, int grade) {
  auto const behind = std::upper_bound(m_entries.begin(), m_entries.end(), days,
                                       [](int value, Entry const& entry) { return value < entry.first; });
  m_entries.insert(behind, {days, grade});
}
