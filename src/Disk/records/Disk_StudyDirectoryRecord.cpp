// The study record, filled from an object by a table of attributes. In the private structure it also counts and lists
// what the study holds.
#include "Disk/files/Disk_Tags.h"
#include "Disk/records/Disk_Attributes.h"
#include "infra/Klb_Failure.h"

#include <Disk/Disk_StudyDirectoryRecord.h>
#include <dicom/IOD_Image.h>

namespace {

constexpr char kCantAdd[] = "Disk_StudyDirectoryRecord(): Can't add element.\n";

using A = Disk_Attribute;
Disk_Attribute const kPatientAttributes[] = {
    {{0x0010, std::uint16_t(0x0010)}, Disk_CopyAttribute<Dicom_PN>}, // Patient's Name
    {{0x0010, std::uint16_t(0x0020)}, Disk_CopyAttribute<Dicom_LO>}, // Patient ID
    {{0x0010, std::uint16_t(0x0030)}, Disk_CopyAttribute<Dicom_DA>}, // Birth Date
    {{0x0010, std::uint16_t(0x0021)}, Disk_CopyAttribute<Dicom_LO>}, // Issuer of Patient ID
};
Disk_Attribute const kAttributes[] = {
    {{0x0008, std::uint16_t(0x0020)}, Disk_CopyAttribute<Dicom_DA>},                         // Study Date
    {{0x0008, std::uint16_t(0x0030)}, Disk_CopyAttribute<Dicom_TM>},                         // Study Time
    {{0x0008, std::uint16_t(0x1030)}, Disk_CopyAttribute<Dicom_LO>},                         // Study Description
    {{0x0020, std::uint16_t(0x000D)}, Disk_CopyAttribute<Dicom_UI>},                         // Study Instance UID
    {{0x0020, std::uint16_t(0x0010)}, Disk_CopyAttribute<Dicom_SH>},                         // Study ID
    {{0x0008, std::uint16_t(0x0050)}, Disk_CopyAttribute<Dicom_SH>},                         // Accession Number
    {{0x0008, std::uint16_t(0x0090)}, Disk_CopyAttribute<Dicom_PN>, A::Always, A::Standard}, // Referring Physician
    {Dicom_Dictionary::KOLBA_STUDY_BODY_PART, Disk_CopyAttribute<Dicom_CS>},
};

/// The bytes that Modalities In Study may grow by.
int SetReservoir(IOD_Msg const&, IOD_Msg& to, Dicom_Tag const& tag, A::Need) {
  int error = 0;
  Dicom_OB const dummy(Disk_StudyDirectoryRecord::dummy_data_reservoir, Disk_StudyDirectoryRecord::kReservoirSize, 0,
                       &error);
  return to.Set(tag, dummy);
}
Disk_Attribute const kOldCounters[] = {
    {Dicom_Dictionary::KOLBA_NUMBER_OF_SERIES, Disk_SetOwnCounter, A::Always, A::Private}};
Disk_Attribute const kCounters[] = {
    {Dicom_Dictionary::KOLBA_DUMMY_DICOMDIR_DATA, SetReservoir, A::Always, A::Standard},
    {{0x0008, std::uint16_t(0x0061)}, Disk_CopyAttribute<Dicom_CS>}, // Modalities in Study
    {kStudyRelatedSeries, Disk_SetCounter},
    {kStudyRelatedImages, Disk_SetCounter},
};

} // namespace

unsigned char const Disk_StudyDirectoryRecord::dummy_data_reservoir[kReservoirSize] = {0xB4};

Disk_StudyDirectoryRecord::Disk_StudyDirectoryRecord(Dicom_Msg const* msg, int& error) : Disk_DirectoryRecord(msg) {
  error = ValidateDirectoryRecord();
}

bool Disk_StudyDirectoryRecord::IsDeletable() const {
  Dicom_CS const flag = record_msg->GetProtectionFlag();
  return flag != CS_NULL && flag != IOD_Image::Y;
}

int Disk_StudyDirectoryRecord::UpdatePatientDetails(IOD_Msg const& msg) {
  return Disk_Try("UpdatePatientDetails: Can't add element.\n",
                  [&] { return Disk_CopyAttributes(kPatientAttributes, msg, *record_msg, false); });
}

int Disk_StudyDirectoryRecord::FillStudyRecord(IOD_Msg const& msg, bool standard) {
  if (start_filling("Disk_StudyDirectoryRecord(): the record already has data!\n",
                    "Failed allocating memory for study record.\n", IOD_Image::STUDY,
                    "Disk_StudyDirectoryRecord(): Can't set directory record type.\n") == -1)
    return -1;
  if (!standard && UpdatePatientDetails(msg) == -1)
    return DISK_FAIL("Disk_StudyDirectoryRecord: Failed setting the patients attributes.\n");
  if (Disk_Try(kCantAdd, [&] { return Disk_CopyAttributes(kAttributes, msg, *record_msg, standard); }) == -1) return -1;
  auto const set_body_part = [&] {
    Dicom_CS const body_part = msg.GetBodyPartExamined();
    return body_part == CS_NULL ? 0 : record_msg->SetKolbaStudyBodyPart(body_part.Duplicate());
  };
  if (Disk_Try("Disk_StudyDirectoryRecord(): Can't add body part tag.\n", set_body_part) == -1) return -1;
  if (fill_counters(standard) == -1) return -1;
  if (Disk_Try(kCantAdd, [&] { return fill_faked_dates(msg); }) == -1) return -1;
  return set_chain_elements(standard, "Disk_StudyDirectoryRecord: Failed set element.\n");
}

/// A new study holds nothing yet: what counts and lists its content starts empty.
int Disk_StudyDirectoryRecord::fill_counters(bool standard) {
  IOD_Msg const none;
  if (Disk_Try("Disk_StudyDirectoryRecord(): Can't add element the old way.\n",
               [&] { return Disk_CopyAttributes(kOldCounters, none, *record_msg, standard); }) == -1)
    return -1;
  return Disk_Try(kCantAdd, [&] { return Disk_CopyAttributes(kCounters, none, *record_msg, standard); });
}

/// A study without date or time is known by those of its images.
int Disk_StudyDirectoryRecord::fill_faked_dates(IOD_Msg const& msg) {
  Dicom_DA const date = msg.GetImageDate();
  Dicom_TM const time = msg.GetImageTime();
  if (record_msg->GetStudyDate() == DA_NULL && date != DA_NULL && record_msg->SetFakedStudyDate(date) == -1) return -1;
  if (record_msg->GetStudyTime() == TM_NULL && time != TM_NULL && record_msg->SetFakedStudyTime(time) == -1) return -1;
  return 0;
}
