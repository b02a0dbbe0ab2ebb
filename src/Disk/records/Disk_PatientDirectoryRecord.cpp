// The patient record, which owns the list of its study records.
#include "Disk/records/Disk_Attributes.h"
#include "infra/Klb_Failure.h"

#include <Disk/Disk_PatientDirectoryRecord.h>
#include <dicom/IOD_Image.h>

namespace {

using A = Disk_Attribute;
Disk_Attribute const kAttributes[] = {
    {{0x0010, std::uint16_t(0x0010)}, Disk_CopyAttribute<Dicom_PN>},                         // Patient's Name
    {{0x0010, std::uint16_t(0x0020)}, Disk_CopyAttribute<Dicom_LO>},                         // Patient ID
    {{0x0010, std::uint16_t(0x0021)}, Disk_CopyAttribute<Dicom_LO>},                         // Issuer of Patient ID
    {{0x0010, std::uint16_t(0x0030)}, Disk_CopyAttribute<Dicom_DA>, A::Always, A::Standard}, // Birth Date
    {{0x0010, std::uint16_t(0x0040)}, Disk_CopyAttribute<Dicom_CS>, A::Always, A::Standard}, // Sex
};

} // namespace

Disk_PatientDirectoryRecord::Disk_PatientDirectoryRecord(Dicom_Msg const* msg, int& error) : Disk_DirectoryRecord(msg) {
  error = ValidateDirectoryRecord();
}

namespace {

int CheckStudyOffset(unsigned offset) {
  if (offset != 0) {
    DISK_LOG(7, "PatientDirectoryRecord: the study offset is %d\n", int(offset));
    return 0;
  }
  return DISK_FAIL("Disk_PatientDirectoryRecord: no Offset Of Referenced Lower Level Directory Entity.\n");
}

} // namespace

Disk_PatientDirectoryRecord::Disk_PatientDirectoryRecord(int fd, unsigned length, unsigned* read_length,
                                                         Dicom_TransferSyntax const& syntax, int* error)
    : Disk_DirectoryRecord(fd, length, read_length, syntax, error) {
  if (*error == -1) return;
  unsigned const offset = GetOffsetOfReferencedLowerLevelDirectoryEntity();
  *error = CheckStudyOffset(offset);
  if (*error == 0) *error = GetStudyRecords().ReadRecords(fd, syntax, offset);
}

Disk_RecordList<Disk_StudyDirectoryRecord>& Disk_PatientDirectoryRecord::GetStudyRecords() const {
  if (!study_records_) study_records_ = std::make_unique<Disk_RecordList<Disk_StudyDirectoryRecord>>();
  return *study_records_;
}

int Disk_PatientDirectoryRecord::ReadStudies(Disk_RecordSource const& source, unsigned place) {
  unsigned const offset = GetOffsetOfReferencedLowerLevelDirectoryEntity();
  if (offset == 0 && GetRecordInUseFlag() == Dicom_US(0)) return 0; // deleted by somebody who unlinked its studies
  return CheckStudyOffset(offset) == -1 ? -1 : GetStudyRecords().ReadRecords(source, offset, place);
}

int Disk_PatientDirectoryRecord::FillPatientRecord(IOD_Msg const& msg, bool standard) {
  if (start_filling("Disk_PatientDirectoryRecord(): the record already has data!\n",
                    "Failed allocating memory for patient record.\n", IOD_Image::PATIENT,
                    "Disk_PatientDirectoryRecord(): Can't set directory record type.\n") == -1)
    return -1;
  if (Disk_Try("Disk_PatientDirectoryRecord(): Can't add element.\n",
               [&] { return Disk_CopyAttributes(kAttributes, msg, *record_msg, standard); }) == -1)
    return -1;
  return set_chain_elements(standard, "Disk_PatientDirectoryRecord: Failed set element.\n");
}
