#pragma once
#include <dicom/Dicom_Tag.h>

/// The elements of a directory file in front of its records and in each of them, and the sequence of these.
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
