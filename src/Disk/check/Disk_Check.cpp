// The public entry of the checker. It chooses the walk for the structure of the file-set.
#include "Disk/check/Disk_CheckPrivate.h"
#include "Disk/check/Disk_CheckStandard.h"
#include "Disk/files/Disk_Guard.h"

int Disk_Check(char const* file_set_prefix, Disk_StoreParams params, Disk_CheckOptions const& options,
               Disk_CheckResult* result) {
  if (Disk_RefuseNull("Check", file_set_prefix, result) == -1) return -1;
  *result = {};
  return Disk_Guarded("Check", [&] {
    if (params.standard_structure) return Disk_CheckStandard(file_set_prefix, options, result).Run();
    return Disk_CheckPrivate(file_set_prefix, options, result).Run();
  });
}
