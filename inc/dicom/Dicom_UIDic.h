#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

/// UIDs that the system writes or compares with.
class DISK_EXPORT Dicom_UIDic {
public:
  static Dicom_UI const IMPLICIT_VR_LITTLE_ENDIAN;
  static Dicom_UI const EXPLICIT_VR_LITTLE_ENDIAN;
  static Dicom_UI const EXPLICIT_VR_BIG_ENDIAN;
  static Dicom_UI const DEFLATED_EXPLICIT_VR_LITTLE_ENDIAN;
  static Dicom_UI const JPEG_LS_LOSSLESS;
  /// What directory files and uncompressed objects are written in: Explicit VR Little Endian.
  static Dicom_UI const NATIVE_TRANSFER_SYNTAX;
  static Dicom_UI const BASIC_DIRECTORY_STORAGE;
};
