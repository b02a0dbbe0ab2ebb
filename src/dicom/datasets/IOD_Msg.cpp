#include <dicom/IOD_Msg.h>
#include <dicom/SCL_Identifier.h>

#include <algorithm>
#include <iterator>

namespace {

struct Named {
  std::string_view keyword;
  Dicom_Tag tag;
};

constexpr Named kPrivateAttributes[] = {
    {"ExeVersion", Dicom_Dictionary::KOLBA_EXE_VERSION},
    {"KeyImage", Dicom_Dictionary::KOLBA_KEY_IMAGE},
    {"ImageLabel", Dicom_Dictionary::KOLBA_IMAGE_LABEL},
    {"SeriesLabel", Dicom_Dictionary::KOLBA_SERIES_LABEL},
    {"SliceNumber", Dicom_Dictionary::KOLBA_SLICE_NUMBER},
    {"SliceDirection", Dicom_Dictionary::KOLBA_SLICE_DIRECTION},
    {"StudyBodyPart", Dicom_Dictionary::KOLBA_STUDY_BODY_PART},
    {"NumberOfSeries", Dicom_Dictionary::KOLBA_NUMBER_OF_SERIES},
    {"NumberOfImages", Dicom_Dictionary::KOLBA_NUMBER_OF_IMAGES},
    {"FakedStudyDate", Dicom_Dictionary::KOLBA_FAKED_STUDY_DATE},
    {"FakedStudyTime", Dicom_Dictionary::KOLBA_FAKED_STUDY_TIME},
    {"LastUpdateDate", Dicom_Dictionary::KOLBA_LAST_UPDATE_DATE},
    {"LastUpdateTime", Dicom_Dictionary::KOLBA_LAST_UPDATE_TIME},
    {"MultiModality", Dicom_Dictionary::KOLBA_MULTI_MODALITY},
    {"ProtectionFlag", Dicom_Dictionary::KOLBA_PROTECTION_FLAG},
    {"StudyStoreDate", Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_STORE_DATE},
    {"StudyAccessDate", Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE},
    {"StudyLoadCompleted", Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_LOAD_COMPLETED},
    {"DummyDicomdirData", Dicom_Dictionary::KOLBA_DUMMY_DICOMDIR_DATA},
    {"Folder", Dicom_Dictionary::KOLBA_FOLDER},
    {"SourceAE", Dicom_Dictionary::KOLBA_SOURCE_AE},
    {"DicomdirPath", Dicom_Dictionary::KOLBA_DICOMDIR_PATH},
};

} // namespace

Dicom_Tag const* Dicom_Dictionary::FindKeyword(std::string_view keyword) {
  auto const* found = std::find_if(std::begin(kPrivateAttributes), std::end(kPrivateAttributes),
                                   [&](Named const& named) { return named.keyword == keyword; });
  return found == std::end(kPrivateAttributes) ? nullptr : &found->tag;
}

std::string_view Dicom_Dictionary::KeywordOf(Dicom_Tag const& tag) {
  auto const* found =
      std::find_if(std::begin(kPrivateAttributes), std::end(kPrivateAttributes), [&](Named const& named) {
        return named.tag.GetImplementorID() == tag.GetImplementorID() && named.tag.Group() == tag.Group() &&
               (named.tag.Element() & 0xFF) == (tag.Element() & 0xFF);
      });
  return found == std::end(kPrivateAttributes) ? std::string_view() : found->keyword;
}

int IOD_Msg::AddKolbaExeVersion(Dicom_LO const& version) {
  return SetKolbaExeVersion(version == LO_NULL ? Dicom_LO("Disk " DISK_VERSION) : version);
}

Dicom_CS SCL_QueryRetrieveLevel::TextOf(Value level) {
  static char const* const s_texts[] = {"STUDY", "SERIES", "IMAGE"};
  return level >= STUDY && level <= IMAGE ? Dicom_CS(s_texts[level]) : CS_NULL;
}

SCL_QueryRetrieveLevel::Value SCL_Identifier::GetQueryRetrieveLevel() const {
  Dicom_CS const text = IOD_Msg::GetQueryRetrieveLevel();
  for (auto const level :
       {SCL_QueryRetrieveLevel::STUDY, SCL_QueryRetrieveLevel::SERIES, SCL_QueryRetrieveLevel::IMAGE})
    if (text == SCL_QueryRetrieveLevel::TextOf(level)) return level;
  return SCL_QueryRetrieveLevel::UNKNOWN;
}

SCL_QueryIdentifier::SCL_QueryIdentifier(SCL_QueryRetrieveLevel::Value level, int* status) {
  Dicom_CS const text = SCL_QueryRetrieveLevel::TextOf(level);
  int const result = text == CS_NULL ? -1 : SetQueryRetrieveLevel(text);
  if (status) *status = result;
}

SCL_QueryRspIdentifier::SCL_QueryRspIdentifier(SCL_QueryRetrieveLevel::Value level, int* status) {
  if (status) *status = SCL_QueryRetrieveLevel::TextOf(level) == CS_NULL ? -1 : 0;
}

SCL_MoveIdentifier::SCL_MoveIdentifier(SCL_QueryRetrieveLevel::Value level, int* status)
    : SCL_MoveIdentifier(SCL_QueryIdentifier(level, status)) {}
