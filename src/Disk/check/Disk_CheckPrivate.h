#pragma once
#include "Disk/check/Disk_Checker.h"

/// The private structure: a directory file for each level, in the folder of what it describes.
class Disk_CheckPrivate : public Disk_Checker {
public:
  Disk_CheckPrivate(char const* file_set_prefix, Disk_CheckOptions const& options, Disk_CheckResult* result)
      : Disk_Checker(file_set_prefix, false, options, result) {}

private:
  struct Records;
  int Walk() override;
  bool load(std::string const& path, Records* records);
  void check_root(IOD_Msg const& record);
  void check_study(IOD_Msg const& record);
  void check_series(IOD_Msg const& record, std::string const& study_file);
  std::string find_folder(IOD_Msg const& record, std::string const& directory_file, char const* level);
};
