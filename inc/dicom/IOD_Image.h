#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

/// Code strings that records and objects hold.
class DISK_EXPORT IOD_Image {
public:
  /// directory record types
  static Dicom_CS const PATIENT;
  static Dicom_CS const STUDY;
  static Dicom_CS const SERIES;
  static Dicom_CS const IMAGE;
  static Dicom_CS const PRESENTATION;
  static Dicom_CS const SR_DOCUMENT;
  static Dicom_CS const PRIVATE_CS;
  /// modalities
  static Dicom_CS const PR;
  static Dicom_CS const SR;
  /// parts of Image Type
  static Dicom_CS const DERIVED;
  static Dicom_CS const SECONDARY;
  static Dicom_CS const ITINERARY;
  static Dicom_CS const CINE;
  /// flags
  static Dicom_CS const Y;
  static Dicom_CS const N;
  static Dicom_CS const VERIFIED;
};
