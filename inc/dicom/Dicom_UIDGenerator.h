#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

/// Makes UIDs that nobody else has: below 2.25, from 122 random bits.
class DISK_EXPORT Dicom_UIDGenerator {
public:
  Dicom_UI Generate() const;
};
