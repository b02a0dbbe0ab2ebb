#include "Attribute.h"

#include <algorithm>
#include <cctype>
#include <charconv>
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

bool IsSequence(Dicom_Tag const& tag) { return Dicom_DataDictionary::VROf(tag.Group(), tag.Element()) == Dicom_VR::SQ; }

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

int Attributes::ParseKey(std::string const& text, Key* key, std::string* problem) {
  std::size_t const sign = text.find('=');
  std::string const name = text.substr(0, sign);
  key->value = sign == std::string::npos ? "" : text.substr(sign + 1);
  if (Find(name, &key->tag) == -1) {
    *problem = name + ": no DICOM keyword (PatientName) or tag (0010,0010) that can be queried";
    return -1;
  }
  if (key->value.empty() || !IsSequence(key->tag)) return 0;
  *problem = name + ": a sequence can be asked for, but not compared";
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
