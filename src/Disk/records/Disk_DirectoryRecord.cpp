// What the records of all levels share: the message, its validity, and the elements that link records into chains.
#include "Disk/files/Disk_Guard.h"

#include <Disk/Disk_DirectoryRecord.h>
#include <dicom/IOD_Image.h>

Disk_DirectoryRecord::Disk_DirectoryRecord(Dicom_Msg const* msg)
    : record_msg(msg ? std::make_unique<IOD_Msg>(*msg) : nullptr) {}

Disk_DirectoryRecord::Disk_DirectoryRecord(int fd, unsigned length, unsigned* read_length,
                                           Dicom_TransferSyntax const& syntax, int* error)
    : record_msg(std::make_unique<IOD_Msg>(Dicom_Msg(fd, length, read_length, syntax, error))) {}

int Disk_DirectoryRecord::ValidateDirectoryRecord() const {
  if (!record_msg) return -1;
  Dicom_CS const type = GetDirectoryRecordType();
  for (Dicom_CS const* known : {&IOD_Image::IMAGE, &IOD_Image::SR_DOCUMENT, &IOD_Image::PRESENTATION,
                                &IOD_Image::SERIES, &IOD_Image::STUDY, &IOD_Image::PATIENT})
    if (type == *known) return 0;
  return -1;
}

int Disk_DirectoryRecord::start_filling(char const* has_data, char const* cant_allocate) {
  if (record_msg) return DISK_FAIL_TEXT(has_data);
  return Disk_Allocating(cant_allocate, [this] {
    record_msg = std::make_unique<IOD_Msg>();
    return 0;
  });
}

int Disk_DirectoryRecord::start_filling(char const* has_data, char const* cant_allocate, Dicom_CS const& type,
                                        char const* cant_set_type) {
  if (start_filling(has_data, cant_allocate) == -1) return -1;
  is_new = true;
  return Disk_Try(cant_set_type, [&] { return SetDirectoryRecordType(type); });
}

int Disk_DirectoryRecord::set_chain_elements(bool standard, char const* cant_set) {
  if (!standard) return 0;
  return Disk_Try(cant_set, [this] {
    constexpr std::uint16_t kInUse = 0xFFFF;
    record_msg->SettleCharacterSet(); // other readers need to be told
    if (SetOffsetOfTheNextDirectoryRecord(Dicom_UL(0)) == -1) return -1;
    if (SetOffsetOfReferencedLowerLevelDirectoryEntity(Dicom_UL(0)) == -1) return -1;
    return SetRecordInUseFlag(Dicom_US(kInUse));
  });
}
