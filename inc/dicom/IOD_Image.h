#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

/// Code strings that records and objects hold.
class DISK_EXPORT IOD_Image {
public:
  /// directory record types
  static inline Dicom_CS const PATIENT{"PATIENT"};
  static inline Dicom_CS const STUDY{"STUDY"};
  static inline Dicom_CS const SERIES{"SERIES"};
  static inline Dicom_CS const IMAGE{"IMAGE"};
  static inline Dicom_CS const PRESENTATION{"PRESENTATION"};
  static inline Dicom_CS const SR_DOCUMENT{"SR DOCUMENT"};
  static inline Dicom_CS const PRIVATE_CS{"PRIVATE"};
  /// modalities
  static inline Dicom_CS const PR{"PR"};
  static inline Dicom_CS const SR{"SR"};
  /// parts of Image Type
  static inline Dicom_CS const DERIVED{"DERIVED"};
  static inline Dicom_CS const SECONDARY{"SECONDARY"};
  static inline Dicom_CS const ITINERARY{"ITINERARY"};
  static inline Dicom_CS const CINE{"CINE"};
  /// flags
  static inline Dicom_CS const Y{"Y"};
  static inline Dicom_CS const N{"N"};
  static inline Dicom_CS const VERIFIED{"VERIFIED"};
};
