#pragma once
#include <infra/Disk_Export.h>

#include <cstdint>

/// How a file-set is opened and written: one word of flags, passed by value.
struct DISK_EXPORT Disk_StoreParams {
  enum Flag : std::uint32_t {
    READ_ONLY = 1,
    STORE_NATIVE = 2,
    STANDARD_STRUCTURE = 4,
    DUMP_MODE_THREE = 8,
    PASS_OVER_DAMAGE = 16,
    REFUSE_LOST = 32
  };

  constexpr Disk_StoreParams(std::uint32_t flags = 0)
      : read_only(flags & READ_ONLY ? 1 : 0), store_native(flags & STORE_NATIVE ? 1 : 0),
        standard_structure(flags & STANDARD_STRUCTURE ? 1 : 0), dump_mode_three(flags & DUMP_MODE_THREE ? 1 : 0),
        pass_over_damage(flags & PASS_OVER_DAMAGE ? 1 : 0), refuse_lost(flags & REFUSE_LOST ? 1 : 0) {}

  std::uint32_t read_only : 1;          ///< what changes the file-set is refused; without VERSION it is read once
  std::uint32_t store_native : 1;       ///< objects are written uncompressed
  std::uint32_t standard_structure : 1; ///< one DICOMDIR holds all records
  std::uint32_t dump_mode_three : 1;    ///< without effect, kept for callers
  /// With `read_only`: a query or a fetch gives what can be read of a damaged file-set. What can't be (records, the end
  /// of a chain, whole directory files) is told in the log and counts as not there. Without `read_only` no effect, as
  /// writing would lose it for good.
  std::uint32_t pass_over_damage : 1;
  /// A directory file that is gone, from a folder that still holds something of it, fails the operation (-1, error
  /// 210002). Without the flag it counts as empty, with a line at level 4, and the next store writes a new one.
  std::uint32_t refuse_lost : 1;
};

/// What AutoDelete is to reach.
struct DISK_EXPORT Disk_AutoDeletePar {
  std::int32_t wanted_free_mb;     ///< free space to reach; 1 MB counts as 1000 KB here
  std::int32_t min_study_age_days; ///< a study not older than this stays
};

/// What a root is allowed to do; all 0 after its construction.
struct DISK_EXPORT Disk_SupportPar {
  std::int32_t auto_delete_supported = 0;
  std::int32_t delete_supported = 0;
  std::int32_t honour_protection = 0; ///< Delete refuses protected studies
};
