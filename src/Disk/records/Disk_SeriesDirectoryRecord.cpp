// The series record, filled from an object by a table of attributes.
#include "Disk/files/Disk_Tags.h"
#include "Disk/records/Disk_Attributes.h"

#include <Disk/Disk_SeriesDirectoryRecord.h>
#include <dicom/IOD_Image.h>
#include <infra/Klb_LogFile.h>

namespace {

using A = Disk_Attribute;
Disk_Attribute const kAttributes[] = {
    {{0x0008, std::uint16_t(0x0060)}, Disk_CopyAttribute<Dicom_CS>},               // Modality
    {{0x0020, std::uint16_t(0x000E)}, Disk_CopyAttribute<Dicom_UI>},               // Series Instance UID
    {{0x0020, std::uint16_t(0x0011)}, Disk_CopyAttribute<Dicom_IS>},               // Series Number
    {{0x0008, std::uint16_t(0x0021)}, Disk_CopyAttribute<Dicom_DA>, A::IfPresent}, // Series Date
    {{0x0008, std::uint16_t(0x0031)}, Disk_CopyAttribute<Dicom_TM>, A::IfPresent}, // Series Time
    {{0x0018, std::uint16_t(0x0015)}, Disk_CopyAttribute<Dicom_CS>, A::IfPresent}, // Body Part Examined
    {{0x0018, std::uint16_t(0x1030)}, Disk_CopyAttribute<Dicom_LO>, A::IfPresent}, // Protocol Name
    {Dicom_Dictionary::KOLBA_SERIES_LABEL, Disk_CopyAttribute<Dicom_SH>, A::IfPresent},
    {{0x0008, std::uint16_t(0x103E)}, Disk_CopyAttribute<Dicom_LO>, A::IfPresent}, // Series Description
    {Dicom_Dictionary::KOLBA_NUMBER_OF_IMAGES, Disk_SetOwnCounter, A::Always, A::Private},
    {kSeriesRelatedImages, Disk_SetCounter},
};

} // namespace

Disk_SeriesDirectoryRecord::Disk_SeriesDirectoryRecord(Dicom_Msg const* msg, int& error) : Disk_DirectoryRecord(msg) {
  error = ValidateDirectoryRecord();
}

int Disk_SeriesDirectoryRecord::FillSeriesRecord(IOD_Msg const& msg, bool standard) {
  if (start_filling("Disk_SeriesDirectoryRecord(): the record already has data!\n",
                    "Failed allocating memory for series record.\n", IOD_Image::SERIES,
                    "Disk_SeriesDirectoryRecord(): Can't set directory record type.\n") == -1)
    return -1;
  auto const copy = [&] { return Disk_CopyAttributes(kAttributes, msg, *record_msg, standard); };
  if (Disk_Try("Disk_SeriesDirectoryRecord(): Can't add element.\n", copy) == -1) return -1;
  return set_chain_elements(standard, "Disk_SeriesDirectoryRecord: Failed set element.\n");
}
