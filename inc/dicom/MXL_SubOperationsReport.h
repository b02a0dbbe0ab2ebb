#pragma once
#include <dicom/Dicom_NumberTypes.h>
#include <infra/Disk_Export.h>

/// The counts of sub-operations of a request: four pairs of a presence flag and a count. Counts are 16 bits wide.
class DISK_EXPORT MXL_SubOperationsReport {
public:
  enum Pair { Remaining = 0, Completed = 1, Failed = 2, Warning = 3 };
  bool IsPresent(Pair pair) const { return present_[pair]; }
  Dicom_US Get(Pair pair) const { return counts_[pair]; }
  void Set(Pair pair, Dicom_US const& count) {
    present_[pair] = true;
    counts_[pair] = count;
  }

private:
  bool present_[4] = {};
  Dicom_US counts_[4];
};

/// The status of a response.
class DISK_EXPORT SCL_ResponseStatus {
public:
  enum Value { Success = 0, RefusedProtected = 3, Failed = 4 };
  constexpr SCL_ResponseStatus(int value = Success) : value_(value) {}
  constexpr operator int() const { return value_; }

private:
  int value_;
};
