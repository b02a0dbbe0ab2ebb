#pragma once
#include <Disk/Disk_Check.h>
#include <Disk/Disk_FileID.h>
#include <Disk/Disk_LockManager.h>
#include <dicom/IOD_Msg.h>

#include <memory>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

/// What a check of either structure does alike: where it is in the hierarchy, what a study's and a series' record must
/// say of what is below them, and the objects themselves. The derived classes walk over the records.
class Disk_Checker {
public:
  Disk_Checker(char const* file_set_prefix, bool standard, Disk_CheckOptions const& options, Disk_CheckResult* result);
  virtual ~Disk_Checker() = default;
  /// 0, or -1 when the file-set can't be looked at.
  int Run();
  /// Goes through the records alone, for who holds the file-set's lock.
  int RunUnderLock() {
    reset();
    return Walk();
  }

protected:
  using Cause = Disk_Finding::Cause;
  /// Goes through all records, under the lock. 0, or -1 when there is nothing to go through.
  virtual int Walk() = 0;

  std::string const& Prefix() const { return prefix_; }
  void Find(char const* kind, Cause cause, std::string path, std::string text);
  /// Tells of what can't be read, as errno has it: a shortage of memory is no damage.
  void FindUnreadable(char const* kind, std::string path, std::string text);

  // Down the hierarchy: a record begins, what is below it is gone through, it ends.
  void BeginPatient(IOD_Msg const& record);
  bool IsInPatient() const { return in_patient_; }
  void EndPatient(); // nothing without a beginning
  void BeginStudy(IOD_Msg const& record, std::string const& path);
  void EndStudy(IOD_Msg const& record, std::string const& path);
  void BeginSeries(IOD_Msg const& record, std::string const& path);
  void EndSeries(IOD_Msg const& record, std::string const& path);
  /// A series whose images can't be told: the study's count of them isn't compared.
  void LeaveSeriesOut() { images_unknown_ = true; }
  void CheckInstance(IOD_Msg const& record, std::string const& directory_file, Disk_FileID const& id,
                     std::string const& path);

  /// The path that a record's file ID leads to; empty (told) when none can be formed or another record has it.
  std::string NamedPath(Disk_FileID const& id, std::string const& directory_file);
  void CheckVersion(std::string const& folder, bool required);
  /// Entries of a folder that no record names; `own` are the names of directory files. Told at the end, as records
  /// that come later may name them. There needn't be such a folder.
  void CompareFolder(std::string const& folder, std::set<std::string> const& own, bool files_count,
                     bool (*is_ours)(std::string const& name));
  void CompareWith(std::string const& path) { named_.insert(path); }

private:
  struct Where {
    std::string patient, study, series, instance;
  };
  struct Object {
    std::shared_ptr<Where const> where;
    std::string instance, syntax, path;
  };
  struct Problem {
    char const* kind;
    std::string text;
    Cause cause = Disk_Finding::Damage;
  };
  struct Unnamed {
    Where where;
    std::string path;
    bool is_folder;
  };

  /// In the standard structure the records of an operation take effect together.
  Cause unfinished_delete() const { return standard_ ? Disk_Finding::Damage : Disk_Finding::InterruptedDelete; }
  int walk();
  void reset();
  void find_unnamed();
  bool is_named(Unnamed const& entry) const;
  void check_counter(IOD_Msg const& record, Dicom_Tag const& tag, char const* kind, char const* what, int count,
                     std::string const& path);
  void compare_count(long stated, char const* kind, char const* what, int count, std::string const& path);
  void check_modalities(IOD_Msg const& record, std::string const& path);
  void check_uid(std::string const& uid, std::unordered_set<std::string>& known, char const* level,
                 std::string const& path);
  int read_objects();
  int read_again(std::unordered_set<std::string> const& paths);
  std::vector<Problem> read_object(Object const& object, bool* decoded) const;
  void tell(Object const& object, std::vector<Problem> const& problems, bool decoded);
  bool has_moved() const;

  std::string prefix_;
  bool standard_;
  Disk_CheckOptions const& options_;
  Disk_CheckResult* result_;
  Disk_LockManager lock_;
  long version_ = -1; // of the file-set, when the records were gone through

  Where where_;
  std::unordered_set<std::string> studies_, series_, instances_; // UIDs so far, of the record above
  bool in_patient_ = false;
  int studies_of_patient_ = 0, series_of_study_ = 0, images_of_study_ = 0, images_of_series_ = 0;
  bool images_unknown_ = false;         // of the study
  std::vector<std::string> modalities_; // of the study's series
  std::shared_ptr<Where const> series_where_;
  std::set<std::string> named_; // paths that records name
  std::vector<Unnamed> unnamed_;
  std::vector<Object> objects_;
};
