#pragma once
#include <dicom/Dicom_StringTypes.h>

#include <cstddef>
#include <string>

/// What the beginning of a DICOM file tells.
struct Util_FileStart {
  std::size_t data_set = 0; // offset of the data set
  Dicom_UI syntax;
  std::string error; // not empty: this is no DICOM file, and why
};

/// Reads preamble and meta information, either of which may be missing where the start of the data set is
/// recognisable by itself. `complete` is false when `bytes` are only the beginning of the file.
Util_FileStart Util_ReadFileStart(std::string_view bytes, bool complete);
