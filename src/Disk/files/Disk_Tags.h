#pragma once
#include <dicom/Dicom_Tag.h>

/// The attributes that the engine names itself. Those that are only copied stand in the tables of the records.

// A directory file, in front of its records and in each of them, and the sequence of these
constexpr Dicom_Tag kFileSetID{0x0004, std::uint16_t(0x1130)};
constexpr Dicom_Tag kFirstOffset{0x0004, std::uint16_t(0x1200)};
constexpr Dicom_Tag kLastOffset{0x0004, std::uint16_t(0x1202)};
constexpr Dicom_Tag kConsistencyFlag{0x0004, std::uint16_t(0x1212)};
constexpr Dicom_Tag kNextRecord{0x0004, std::uint16_t(0x1400)};
constexpr Dicom_Tag kRecordInUse{0x0004, std::uint16_t(0x1410)};
constexpr Dicom_Tag kLowerLevel{0x0004, std::uint16_t(0x1420)};
constexpr Dicom_Tag kRecordType{0x0004, std::uint16_t(0x1430)};
constexpr Dicom_Tag kReferencedFileID{0x0004, std::uint16_t(0x1500)};
constexpr Dicom_Tag kRecordSequence{0x0004, std::uint16_t(0x1220)};
constexpr Dicom_Tag kReferencedSopInstanceUid{0x0004, std::uint16_t(0x1511)};
constexpr Dicom_Tag kReferencedSyntax{0x0004, std::uint16_t(0x1512)};

// What a record is found by
constexpr Dicom_Tag kPatientId{0x0010, std::uint16_t(0x0020)};
constexpr Dicom_Tag kStudyInstanceUid{0x0020, std::uint16_t(0x000D)};
constexpr Dicom_Tag kSeriesInstanceUid{0x0020, std::uint16_t(0x000E)};
constexpr Dicom_Tag kSopInstanceUid{0x0008, std::uint16_t(0x0018)};

// What it counts
constexpr Dicom_Tag kStudyRelatedSeries{0x0020, std::uint16_t(0x1206)};
constexpr Dicom_Tag kStudyRelatedImages{0x0020, std::uint16_t(0x1208)};
constexpr Dicom_Tag kSeriesRelatedImages{0x0020, std::uint16_t(0x1209)};

// Identifiers and responses
constexpr Dicom_Tag kSpecificCharacterSet{0x0008, std::uint16_t(0x0005)};
constexpr Dicom_Tag kQueryRetrieveLevel{0x0008, std::uint16_t(0x0052)};
