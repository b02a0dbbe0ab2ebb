#pragma once

/// The codes of failures. Those below 212000 stand in KlbGError as well, where they have a meaning for the caller. A
/// failed system call gives DISK_ERROR_SYSTEM plus its errno. Disk_LastFailure (Disk_Failure.h) tells the code of every
/// failure and its cause in words.
enum Disk_Error {
  DISK_ERROR_SYSTEM = 210000,
  DISK_ERROR_MEMORY = 211001,
  DISK_ERROR_LEVEL = 211002,             ///< unknown Query/Retrieve Level
  DISK_ERROR_FILE_NAME = 211004,         ///< illegal file name
  DISK_ERROR_OUT_OF_NAMES = 211005,      ///< FindUniqueFileName has run out of names
  DISK_ERROR_INFORMATION_MODEL = 211007, ///< unsupported information model
  DISK_ERROR_STUDY_RECORD = 211008,      ///< a study record can't be made while reading the root
  DISK_ERROR_RECORD_TYPE = 211009,       ///< illegal record type in the root file
  DISK_ERROR_NULL_RECORD = 211015,       ///< a null entry in a record list while writing
  DISK_ERROR_PATIENT_MISMATCH = 211017,  ///< the object's patient doesn't match its study
  DISK_ERROR_STUDY_ID_MISMATCH = 211018, ///< the object's Study ID doesn't match its study
  DISK_ERROR_SERIES_NUMBER_MISMATCH = 211019,
  DISK_ERROR_RENAME = 211020,     ///< a temporary file can't be brought to its name
  DISK_ERROR_NEW_RECORD = 211023, ///< a new record can't be allocated on the store road

  // Only in Disk_LastFailure: failures that set no code in KlbGError.
  DISK_FAILURE_UNTOLD = 212000, ///< nothing is known but the text
  DISK_FAILURE_NOT_FOUND,       ///< a study, series, image or patient isn't in the file-set
  DISK_FAILURE_DAMAGED,         ///< a file of the file-set can't be understood
  DISK_FAILURE_ARGUMENT,        ///< the identifier or the object lacks something, or can't be encoded
  DISK_FAILURE_UNSUPPORTED,     ///< not in this structure, or not at this level
  DISK_FAILURE_PROTECTED,       ///< a delete of a protected study
  DISK_FAILURE_NO_ROOM,         ///< a cache can't make room, or a DICOMDIR is full
};
