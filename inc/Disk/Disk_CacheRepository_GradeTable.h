#pragma once
#include <infra/Disk_Export.h>
#include <infra/RWCString.h>

#include <cstdint>
#include <utility>
#include <vector>

/// Grades by age: rows of days and grade, from the configuration at a path, or built-in ones. It is read when the first
/// grade is asked for, and then stays for the life of the process.
class DISK_EXPORT Disk_CacheRepository_GradeTable {
public:
  explicit Disk_CacheRepository_GradeTable(RWCString const& configPath);

  /// The grade of the first row for at least so many days, or the default.
  int GetGrade(int days);
  void Load();

private:
  using Entry = std::pair<std::int32_t, std::int32_t>; // days and grade
  void insert(int days, int grade);
  void read_entry(char const* path, char const* value);
  void set_built_in();

  std::int32_t m_defaultGrade = 0;
  bool m_loaded = false;
  RWCString m_configPath;
  std::vector<Entry> m_entries; // by days; equal ones in the order of their arrival
};
