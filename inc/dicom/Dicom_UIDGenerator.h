#pragma once
#include <dicom/Dicom_StringTypes.h>

/// Makes UIDs that nobody else has: below 2.25, from 122 random bits.
class Dicom_UIDGenerator {
public:
  Dicom_UI Generate() const;
};
