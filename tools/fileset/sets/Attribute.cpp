#include "sets/Attribute.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <dicom/Dicom_DataDictionary.h>
#include <iterator>

namespace {

using D = Dicom_Dictionary;

constexpr Dicom_Tag kOfStudies[] = {
    {0x0008, std::uint16_t(0x0020)}, // Study Date
    {0x0008, std::uint16_t(0x0030)}, // Study Time
    {0x0008, std::uint16_t(0x0050)}, // Accession Number
    {0x0008, std::uint16_t(0x0061)}, // Modalities in Study
    {0x0008, std::uint16_t(0x0090)}, // Referring Physician's Name
    {0x0008, std::uint16_t(0x1030)}, // Study Description
    Attributes::kStudyInstanceUid,
    {0x0020, std::uint16_t(0x0010)}, // Study ID
    {0x0020, std::uint16_t(0x1206)}, // Number of Study Related Series
    {0x0020, std::uint16_t(0x1208)}, // Number of Study Related Instances
    D::KOLBA_STUDY_BODY_PART,
    D::KOLBA_NUMBER_OF_SERIES,
    D::KOLBA_FAKED_STUDY_DATE,
    D::KOLBA_FAKED_STUDY_TIME,
    D::KOLBA_MULTI_MODALITY,
    D::KOLBA_PROTECTION_FLAG,
    D::KOLBA_DICOMDIR_STUDY_STORE_DATE,
    D::KOLBA_DICOMDIR_STUDY_ACCESS_DATE,
    D::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED,
    D::KOLBA_FOLDER,
    D::KOLBA_SOURCE_AE,
    D::KOLBA_DICOMDIR_PATH,
};
constexpr Dicom_Tag kOfSeries[] = {
    {0x0008, std::uint16_t(0x0021)},                                  // Series Date
    {0x0008, std::uint16_t(0x0031)},                                  // Series Time
    {0x0008, std::uint16_t(0x0060)},                                  // Modality
    {0x0008, std::uint16_t(0x103E)},                                  // Series Description
    {0x0018, std::uint16_t(0x0015)},                                  // Body Part Examined
    {0x0018, std::uint16_t(0x1030)},                                  // Protocol Name
    Attributes::kSeriesInstanceUid,  {0x0020, std::uint16_t(0x0011)}, // Series Number
    {0x0020, std::uint16_t(0x1209)},                                  // Number of Series Related Instances
    D::KOLBA_SERIES_LABEL,           D::KOLBA_NUMBER_OF_IMAGES,
};

constexpr Dicom_Tag kOfImages[] = {
    {0x0008, std::uint16_t(0x0008)}, // Image Type
    {0x0008, std::uint16_t(0x0012)}, // Instance Creation Date
    {0x0008, std::uint16_t(0x0013)}, // Instance Creation Time
    {0x0008, std::uint16_t(0x0016)}, // SOP Class UID
    {0x0008, std::uint16_t(0x0018)}, // SOP Instance UID
    {0x0008, std::uint16_t(0x0023)}, // Content Date
    {0x0008, std::uint16_t(0x0033)}, // Content Time
    {0x0008, std::uint16_t(0x1115)}, // Referenced Series Sequence
    {0x0018, std::uint16_t(0x0010)}, // Contrast/Bolus Agent
    {0x0018, std::uint16_t(0x0024)}, // Sequence Name
    {0x0018, std::uint16_t(0x0086)}, // Echo Number(s)
    {0x0018, std::uint16_t(0x1060)}, // Trigger Time
    {0x0020, std::uint16_t(0x0013)}, // Instance Number
    {0x0020, std::uint16_t(0x0052)}, // Frame of Reference UID
    {0x0020, std::uint16_t(0x1041)}, // Slice Location
    {0x0028, std::uint16_t(0x0002)}, // Samples per Pixel
    {0x0028, std::uint16_t(0x0004)}, // Photometric Interpretation
    {0x0028, std::uint16_t(0x0008)}, // Number of Frames
    {0x0028, std::uint16_t(0x0010)}, // Rows
    {0x0028, std::uint16_t(0x0011)}, // Columns
    {0x0028, std::uint16_t(0x0100)}, // Bits Allocated
    {0x0040, std::uint16_t(0xA043)}, // Concept Name Code Sequence
    {0x0040, std::uint16_t(0xA073)}, // Verifying Observer Sequence
    {0x0040, std::uint16_t(0xA491)}, // Completion Flag
    {0x0040, std::uint16_t(0xA493)}, // Verification Flag
    {0x0040, std::uint16_t(0xA730)}, // Content Sequence
    {0x0070, std::uint16_t(0x0080)}, // Content Label
    {0x0070, std::uint16_t(0x0081)}, // Content Description
    {0x0070, std::uint16_t(0x0082)}, // Presentation Creation Date
    {0x0070, std::uint16_t(0x0083)}, // Presentation Creation Time
    {0x0070, std::uint16_t(0x0084)}, // Content Creator's Name
    {0x0088, std::uint16_t(0x0200)}, // Icon Image Sequence
    D::KOLBA_KEY_IMAGE,
    D::KOLBA_IMAGE_LABEL,
    D::KOLBA_SLICE_NUMBER,
    D::KOLBA_SLICE_DIRECTION,
};
constexpr Dicom_Tag kOfPatients[] = {
    {0x0010, std::uint16_t(0x0010)}, // Patient's Name
    Attributes::kPatientId,
    Attributes::kIssuerOfPatientId,
    {0x0010, std::uint16_t(0x0030)}, // Patient's Birth Date
};
constexpr Dicom_Tag kOfStandardStructure[] = {
    {0x0008, std::uint16_t(0x0090)}, // Referring Physician's Name
    {0x0010, std::uint16_t(0x0040)}, // Patient's Sex
};

char const* const kStudyColumns[] = {"PatientName",
                                     "PatientID",
                                     "StudyDate",
                                     "StudyDescription",
                                     "ModalitiesInStudy",
                                     "NumberOfStudyRelatedSeries",
                                     "NumberOfStudyRelatedInstances",
                                     "StudyInstanceUID"};
char const* const kSeriesColumns[] = {"Modality", "SeriesNumber", "SeriesDescription", "NumberOfSeriesRelatedInstances",
                                      "SeriesInstanceUID"};
char const* const kImageColumns[] = {"InstanceNumber", "Rows", "Columns", "ReferencedFileID", "SOPInstanceUID"};

bool Contains(auto const& table, Dicom_Tag const& tag) {
  return std::find(std::begin(table), std::end(table), tag) != std::end(table);
}

bool ParseTag(std::string_view text, Dicom_Tag* tag) {
  std::uint16_t group = 0, element = 0;
  if (text.size() != 9 || text[4] != ',') return false;
  auto const parse = [](char const* first, std::uint16_t* number) {
    auto const [end, error] = std::from_chars(first, first + 4, *number, 16);
    return error == std::errc() && end == first + 4;
  };
  if (!parse(text.data(), &group) || !parse(text.data() + 5, &element)) return false;
  *tag = Dicom_Tag(group, element);
  return true;
}

Dicom_VR VROf(Dicom_Tag const& tag) {
  if (tag == D::KOLBA_DICOMDIR_STUDY_STORE_DATE || tag == D::KOLBA_DICOMDIR_STUDY_ACCESS_DATE) return Dicom_VR::DT;
  if (tag == D::KOLBA_FAKED_STUDY_DATE) return Dicom_VR::DA;
  if (tag == D::KOLBA_FAKED_STUDY_TIME) return Dicom_VR::TM;
  return Dicom_DataDictionary::VROf(tag.Group(), tag.Element());
}

// A date or time to any precision: the year in four digits, all else in two.
bool IsPoint(Dicom_VR vr, std::string_view text) {
  constexpr std::array<int, 6> kLeast = {0, 1, 1, 0, 0, 0}, kMost = {9999, 12, 31, 23, 59, 60};
  std::array<int, 6> parts = {4, 1, 1, 0, 0, 0}; // of a leap year, if there is none
  std::size_t const first = vr == Dicom_VR::TM ? 3 : 0, end = vr == Dicom_VR::DA ? 3 : parts.size();
  std::size_t part = first;
  while (part < end && !text.empty()) {
    std::size_t const length = part == 0 ? 4 : 2;
    auto const [stop, error] = std::from_chars(text.data(), text.data() + std::min(length, text.size()), parts[part]);
    if (error != std::errc() || stop != text.data() + length || parts[part] < kLeast[part] || parts[part] > kMost[part])
      return false;
    text.remove_prefix(length);
    char const separator = part < 2 && vr == Dicom_VR::DA ? '.' : part >= 3 ? ':' : '\0';
    if (!text.empty() && text[0] == separator && text.size() > 1) text.remove_prefix(1);
    ++part;
  }
  bool const has_fraction = part == parts.size() && text.size() > 1 && text[0] == '.';
  if (has_fraction) text.remove_prefix(text.find_first_not_of("0123456789", 1) == text.npos ? text.size() : 0);
  std::chrono::year_month_day const date{std::chrono::year(parts[0]), std::chrono::month(unsigned(parts[1])),
                                         std::chrono::day(unsigned(parts[2]))};
  return part > first && text.empty() && date.ok();
}

std::string Digits(std::string_view text) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits), [](char c) { return c >= '0' && c <= '9'; });
  return digits;
}

// Whether the value of a key is a date or time, or a range of them in which something can lie.
bool IsTimeKey(Dicom_VR vr, std::string_view value) {
  // an offset from UTC has no effect on the comparison
  if (vr == Dicom_VR::DT) value = value.substr(0, value.find('+'));
  std::size_t const hyphen = value.find('-');
  if (hyphen == value.npos) return IsPoint(vr, value);
  std::string_view const from = value.substr(0, hyphen), to = value.substr(hyphen + 1);
  bool const west = vr == Dicom_VR::DT && from.size() >= 8 && to.size() >= 4 && to.substr(0, 4) < "1500";
  if (west) return IsPoint(vr, from);
  if ((!from.empty() && !IsPoint(vr, from)) || (!to.empty() && !IsPoint(vr, to))) return false;
  std::string const first = Digits(from), last = Digits(to);
  std::size_t const n = std::min(first.size(), last.size());
  return n > 0 ? first.compare(0, n, last, 0, n) <= 0 : !(first.empty() && last.empty());
}

// Why a value can't be compared; empty if it can.
std::string ValueProblem(Dicom_Tag const& tag, std::string_view value) {
  Dicom_VR const vr = VROf(tag);
  if (vr == Dicom_VR::SQ && !value.empty()) return "a sequence can be asked for, but not compared";
  if (vr != Dicom_VR::DA && vr != Dicom_VR::TM && vr != Dicom_VR::DT) return {};
  while (!value.empty()) {
    std::string_view const part = value.substr(0, value.find('\\'));
    value.remove_prefix(std::min(part.size() + 1, value.size()));
    bool const is_any = !part.empty() && part.find_first_not_of('*') == part.npos;
    if (!is_any && !IsTimeKey(vr, part))
      return std::string(part) + (vr == Dicom_VR::TM ? " is no time" : " is no date") +
             " and no range that can hold one";
  }
  return {};
}

} // namespace

int Attributes::Find(std::string_view name, Dicom_Tag* tag) {
  constexpr Dicom_Tag kQueryRetrieveLevel(0x0008, std::uint16_t(0x0052));
  if (Dicom_DataDictionary::Entry const* entry = Dicom_DataDictionary::FindKeyword(name))
    *tag = Dicom_Tag(entry->tag);
  else if (Dicom_Tag const* own = Dicom_Dictionary::FindKeyword(name))
    *tag = *own;
  else if (!ParseTag(name, tag))
    return -1;
  bool const in_data_set = tag->Group() > 0x0002 && tag->Group() != 0xFFFF && tag->Element() != 0;
  return in_data_set && *tag != kSpecificCharacterSet && *tag != kQueryRetrieveLevel ? 0 : -1;
}

std::string Attributes::Name(Dicom_Tag const& tag) {
  Dicom_DataDictionary::Entry const* const entry = Dicom_DataDictionary::Find(tag.Group(), tag.Element());
  if (entry && entry->tag == tag.Number()) return entry->keyword; // one of several groups has that of the first
  if (std::string_view const own = Dicom_Dictionary::KeywordOf(tag); !own.empty()) return std::string(own);
  char text[10];
  std::snprintf(text, sizeof text, "%04X,%04X", tag.Group(), tag.Element());
  return text;
}

Level Attributes::LevelOf(Dicom_Tag const& tag) {
  if (tag.Group() == 0x0010 || Contains(kOfStudies, tag)) return Level::STUDY;
  return Contains(kOfSeries, tag) ? Level::SERIES : Level::IMAGE;
}

bool Attributes::IsKept(Dicom_Tag const& tag, bool standard) {
  if (Contains(kOfStandardStructure, tag)) return standard;
  return tag.Group() == 0x0004 || Contains(kOfPatients, tag) || Contains(kOfStudies, tag) || Contains(kOfSeries, tag) ||
         Contains(kOfImages, tag);
}

int Attributes::ParseKey(std::string const& text, Key* key, std::string* problem) {
  std::size_t const sign = text.find('=');
  std::string const name = text.substr(0, sign);
  key->value = sign == std::string::npos ? "" : text.substr(sign + 1);
  if (Find(name, &key->tag) == -1) {
    *problem = name + ": no DICOM keyword (PatientName) or tag (0010,0010) that can be queried";
    return -1;
  }
  std::string const cause = ValueProblem(key->tag, key->value);
  if (cause.empty()) return 0;
  *problem = name + ": " + cause;
  return -1;
}

std::vector<Key> Attributes::DefaultKeys(Level level) {
  std::vector<Key> keys;
  auto const add = [&keys](auto const& names) {
    for (char const* name : names)
      if (Key key; Find(name, &key.tag) == 0) keys.push_back(key);
  };
  if (level == Level::STUDY) add(kStudyColumns);
  if (level == Level::SERIES) add(kSeriesColumns);
  if (level == Level::IMAGE) add(kImageColumns);
  return keys;
}
