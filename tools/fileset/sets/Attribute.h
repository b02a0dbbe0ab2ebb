// The names by which people call attributes, and the level of a file-set that keeps each.
#pragma once

#include <dicom/SCL_Identifier.h>
#include <string>
#include <string_view>
#include <vector>

using Level = SCL_QueryRetrieveLevel::Value;

// An attribute that a query compares or, with an empty value, asks for.
struct Key {
  Dicom_Tag tag;
  std::string value;
};

namespace Attributes {

inline constexpr Dicom_Tag kSpecificCharacterSet{0x0008, std::uint16_t(0x0005)};
inline constexpr Dicom_Tag kSopInstanceUid{0x0008, std::uint16_t(0x0018)};
inline constexpr Dicom_Tag kPatientId{0x0010, std::uint16_t(0x0020)};
inline constexpr Dicom_Tag kIssuerOfPatientId{0x0010, std::uint16_t(0x0021)};
inline constexpr Dicom_Tag kStudyInstanceUid{0x0020, std::uint16_t(0x000D)};
inline constexpr Dicom_Tag kSeriesInstanceUid{0x0020, std::uint16_t(0x000E)};
inline constexpr Dicom_Tag kReferencedFileId{0x0004, std::uint16_t(0x1500)};

// "PatientName", the name of an attribute of this system ("StudyAccessDate"), or "0010,0010". 0, or -1 for
// what is none or can't be a key.
int Find(std::string_view name, Dicom_Tag* tag);
// The keyword; a tag without one as "0010,0010".
std::string Name(Dicom_Tag const& tag);
// The uppermost level whose records hold the attribute; IMAGE for all that the upper ones don't know.
Level LevelOf(Dicom_Tag const& tag);

// Whether the records that this system writes hold the attribute.
bool IsKept(Dicom_Tag const& tag, bool standard);

// Takes "PatientName=Miller*" or "PatientName" apart. 0, or -1 and why in `*problem`.
int ParseKey(std::string const& text, Key* key, std::string* problem);
// The keys of a level's table when nobody asks for others.
std::vector<Key> DefaultKeys(Level level);

} // namespace Attributes
