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

// Finds an attribute by its keyword ("PatientName"), by the name of one of this system's own ("StudyAccessDate"), or by
// its tag ("0010,0010"). 0; or -1 if there is none, or it can't be a key.
int Find(std::string_view name, Dicom_Tag* tag);
// The keyword, or the tag as "0010,0010" if it has none.
std::string Name(Dicom_Tag const& tag);
// The uppermost level whose records hold the attribute; IMAGE if study and series records don't.
Level LevelOf(Dicom_Tag const& tag);

// Whether the records that this system writes hold the attribute.
bool IsKept(Dicom_Tag const& tag, bool standard);

// Takes "PatientName=Miller*" or "PatientName" apart. 0, or -1 and why in `*problem`.
int ParseKey(std::string const& text, Key* key, std::string* problem);
// The keys of a level's table if the user names none to show.
std::vector<Key> DefaultKeys(Level level);

} // namespace Attributes
