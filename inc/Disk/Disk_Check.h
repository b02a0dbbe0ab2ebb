#pragma once
#include <Disk/Disk_StoreParams.h>
#include <infra/Disk_Export.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// One thing in a file-set that is not as it should be.
struct DISK_EXPORT Disk_Finding {
  /// What can have led to it, besides damage. An operation that was interrupted leaves such states, and doing it
  /// again mends them; for a moment, so does one that is under way. With NoMemory nothing is known to be wrong: memory
  /// ran out before what stands at the path could be looked at.
  enum Cause { Damage, InterruptedStore, InterruptedDelete, NoMemory };

  std::string kind; ///< one word that stays the same for programs: "object-missing" (docs/check.md has all)
  Cause cause = Damage;
  std::string patient_id, study_uid, series_uid, instance_uid; ///< as far as they are known
  std::string path;                                            ///< the file that is concerned
  std::string text;                                            ///< what is wrong, for people
};

struct DISK_EXPORT Disk_CheckResult {
  std::uint64_t patients = 0, studies = 0, series = 0, instances = 0; ///< records that count
  std::uint64_t objects_read = 0;                                     ///< with `deep`
  std::uint64_t objects_decoded = 0;                                  ///< of them, those with JPEG-LS pixels
  std::uint64_t n_findings = 0;
  std::vector<Disk_Finding> findings; ///< the first kMostFindings of them

  static constexpr std::size_t kMostFindings = 100000;
};

struct DISK_EXPORT Disk_CheckOptions {
  bool deep = false; ///< read every object too, compare its UIDs with its record, and decode its JPEG-LS pixels
  /// Called now and then while objects are read, with the number of those that were and of all; false stops the check.
  std::function<bool(std::uint64_t done, std::uint64_t all)> progress;
};

/// Compares everything that the directory files of a file-set say with each other and with what stands on the disk.
/// Nothing is written, and the locks are those of a reader: the records are compared under the file-set's shared lock,
/// objects are read with the lock released in between.
///
/// Of `params` only `standard_structure` counts. 0 when the file-set could be looked at, whatever was found: `result`
/// has no findings when it is sound. -1 when there is no file-set, it can't be locked, or `progress` stopped it.
[[nodiscard]] DISK_EXPORT int Disk_Check(char const* file_set_prefix, Disk_StoreParams params,
                                         Disk_CheckOptions const& options, Disk_CheckResult* result);
