#pragma once
#include "Disk/check/Disk_Checker.h"

#include <Disk/Disk_DicomDir.h>

#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>

/// The standard structure: all records in one DICOMDIR, in chains linked by offsets.
class Disk_CheckStandard : public Disk_Checker {
public:
  Disk_CheckStandard(char const* file_set_prefix, Disk_CheckOptions const& options, Disk_CheckResult* result);
  ~Disk_CheckStandard() override;
  /// Records from this offset on were written here, so they have the length that they would be written with; those that
  /// a power cut tore haven't.
  void ExpectOwnFrom(std::uint32_t offset) { own_from_ = offset; }

private:
  struct Record;
  class Names;
  struct Item {
    std::uint32_t length; // of the body
    char const* body;
    std::uint32_t chain = 0; // the number of the chain that leads here
  };

  int Walk() override;
  void check_redo();
  bool read_items();
  void check_end(std::uint32_t end);
  void check_lone_numbers();
  void check_unreached();
  void damaged(char const* kind, std::string text);
  void walk_chain(std::uint32_t offset, int level, Record const* above);
  void walk_below(Record const& record, int level);
  bool load(std::uint32_t offset, std::uint32_t chain, Record* record);
  void explain_link(std::uint32_t offset, std::uint32_t chain);
  void check_record(Record const& record, int level, Record const* above);
  void check_deleted(Record& record, int level);
  void check_instance(IOD_Msg const& record);
  void compare_folders(IOD_Msg const& study, IOD_Msg const* series);

  std::string path_; // of the DICOMDIR
  std::unique_ptr<Disk_DicomDir> dicomdir_;
  std::unique_ptr<Names> names_;
  std::shared_ptr<Util_Buffer> bytes_;
  std::map<std::uint32_t, Item> items_; // by their place
  std::uint32_t n_chains_ = 0;          // so far
  std::uint32_t last_of_root_ = 0, own_from_ = UINT32_MAX;
  std::set<std::string> study_folders_, series_folders_; // names, of the studies and of the series of one study
};
