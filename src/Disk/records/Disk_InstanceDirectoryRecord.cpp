// Fills the record of an object from its message: what every instance has, then what images, presentation states and
// reports add. Sequences have a source of their own.
#include <Disk/Disk_InstanceDirectoryRecord.h>

#include "Disk/records/Disk_Attributes.h"
#include "infra/Klb_Failure.h"

#include <dicom/GDS_Icon.h>
#include <dicom/IOD_Image.h>

namespace {

using A = Disk_Attribute;
Disk_Attribute const kImageAttributes[] = {
    {{0x0008, std::uint16_t(0x0023)}, Disk_CopyAttribute<Dicom_DA>, A::IfPresent}, // Content Date
    {{0x0008, std::uint16_t(0x0033)}, Disk_CopyAttribute<Dicom_TM>, A::IfPresent}, // Content Time
    {{0x0008, std::uint16_t(0x0012)}, Disk_CopyAttribute<Dicom_DA>, A::IfPresent}, // Instance Creation Date
    {{0x0008, std::uint16_t(0x0013)}, Disk_CopyAttribute<Dicom_TM>, A::IfPresent}, // Instance Creation Time
    {{0x0008, std::uint16_t(0x0008)}, Disk_CopyAttribute<Dicom_CS>, A::IfPresent}, // Image Type
    {{0x0020, std::uint16_t(0x1041)}, Disk_CopyAttribute<Dicom_DS>, A::IfPresent}, // Slice Location
    {{0x0028, std::uint16_t(0x0010)}, Disk_CopyAttribute<Dicom_US>},               // Rows
    {{0x0028, std::uint16_t(0x0011)}, Disk_CopyAttribute<Dicom_US>},               // Columns
    {{0x0018, std::uint16_t(0x0010)}, Disk_CopyAttribute<Dicom_LO>},               // Contrast/Bolus Agent
    {{0x0020, std::uint16_t(0x0052)}, Disk_CopyAttribute<Dicom_UI>},               // Frame of Reference UID
    {{0x0028, std::uint16_t(0x0100)}, Disk_CopyAttribute<Dicom_US>, A::IfPresent}, // Bits Allocated
    {{0x0028, std::uint16_t(0x0002)}, Disk_CopyAttribute<Dicom_US>, A::IfPresent}, // Samples per Pixel
    {{0x0028, std::uint16_t(0x0008)}, Disk_CopyAttribute<Dicom_IS>, A::IfPresent}, // Number of Frames
    {{0x0028, std::uint16_t(0x0004)}, Disk_CopyAttribute<Dicom_CS>, A::IfPresent}, // Photometric Interpretation
    {Dicom_Dictionary::KOLBA_KEY_IMAGE, Disk_CopyAttribute<Dicom_CS>, A::IfPresent},
    {Dicom_Dictionary::KOLBA_IMAGE_LABEL, Disk_CopyAttribute<Dicom_SH>},
    {Dicom_Dictionary::KOLBA_SLICE_NUMBER, Disk_CopyAttribute<Dicom_DS>, A::IfPresent},
    {{0x0018, std::uint16_t(0x0086)}, Disk_CopyAttribute<Dicom_IS>, A::IfPresent}, // Echo Number
    {Dicom_Dictionary::KOLBA_SLICE_DIRECTION, Disk_CopyAttribute<Dicom_CS>, A::IfPresent},
    {{0x0018, std::uint16_t(0x0024)}, Disk_CopyAttribute<Dicom_SH>, A::IfPresent}, // Sequence Name
    {{0x0018, std::uint16_t(0x1060)}, Disk_CopyAttribute<Dicom_DS>, A::IfPresent}, // Trigger Time
};
Disk_Attribute const kPresentationAttributes[] = {
    {{0x0070, std::uint16_t(0x0080)}, Disk_CopyAttribute<Dicom_CS>},               // Content Label
    {{0x0070, std::uint16_t(0x0081)}, Disk_CopyAttribute<Dicom_LO>, A::IfPresent}, // Content Description
    {{0x0070, std::uint16_t(0x0082)}, Disk_CopyAttribute<Dicom_DA>},               // Presentation Creation Date
    {{0x0070, std::uint16_t(0x0083)}, Disk_CopyAttribute<Dicom_TM>},               // Presentation Creation Time
    {{0x0070, std::uint16_t(0x0084)}, Disk_CopyAttribute<Dicom_PN>, A::IfPresent}, // Content Creator's Name
};
Disk_Attribute const kReportAttributes[] = {
    {Dicom_Dictionary::KOLBA_IMAGE_LABEL, Disk_CopyAttribute<Dicom_SH>},
    {{0x0040, std::uint16_t(0xA491)}, Disk_CopyAttribute<Dicom_CS>}, // Completion Flag
    {{0x0040, std::uint16_t(0xA493)}, Disk_CopyAttribute<Dicom_CS>}, // Verification Flag
    {{0x0008, std::uint16_t(0x0023)}, Disk_CopyAttribute<Dicom_DA>}, // Content Date
    {{0x0008, std::uint16_t(0x0033)}, Disk_CopyAttribute<Dicom_TM>}, // Content Time
};

/// A step of a filling, with the line that nearly all share.
template <class Step>
int Fill(Step step) {
  return Disk_Try("Disk_InstanceDirectoryRecord(): Can't add element.\n", step);
}

} // namespace

Disk_InstanceDirectoryRecord::Disk_InstanceDirectoryRecord(Dicom_Msg const* msg, int& error)
    : Disk_DirectoryRecord(msg) {
  error = ValidateDirectoryRecord();
}

int Disk_InstanceDirectoryRecord::FillInstanceRecord(IOD_Msg const& msg, bool standard, bool add_icon) {
  if (start_filling("Disk_InstanceDirectoryRecord::FillInstanceRecord - Instance record already has data!\n",
                    "Failed allocating memory for instance record.\n") == -1)
    return -1;
  if (AddGeneralAttributes(msg, standard) == -1)
    return DISK_FAIL("Disk_InstanceDirectoryRecord::FillInstanceRecord - Failed setting record general attributes.\n");
  is_new = true;
  Dicom_CS modality;
  auto const get_modality = [&] {
    modality = msg.GetModality();
    return 0;
  };
  if (Fill(get_modality) == -1) return -1;
  int const result = modality == IOD_Image::PR   ? AddPresentationAttributes(msg)
                     : modality == IOD_Image::SR ? AddStructureReportingAttributes(msg)
                                                 : AddImageAttributes(msg, standard, add_icon);
  if (result == -1) return -1;
  return set_chain_elements(standard, "Disk_InstanceDirectoryRecord: Failed set element.\n");
}

int Disk_InstanceDirectoryRecord::AddGeneralAttributes(IOD_Msg const& msg, bool standard) {
  if (Fill([&] { return record_msg->SetModality(msg.GetModality()); }) == -1) return -1;
  if (Fill([&] { return record_msg->SetImageNumber(msg.GetImageNumber()); }) == -1) return -1;
  if (standard && set_references(msg) == -1) return -1;
  if (Fill([&] { return record_msg->SetSOPInstanceUID(msg.GetSOPInstanceUID()); }) == -1) return -1;
  return Fill([&] { return record_msg->SetSOPClassUID(msg.GetSOPClassUID()); });
}

int Disk_InstanceDirectoryRecord::set_references(IOD_Msg const& msg) {
  if (Disk_Try("AddGeneralAttributes: Failed setting Referenced SOP Instance UID.\n",
               [&] { return SetReferencedSOPInstanceUIDInFile(msg.GetSOPInstanceUID()); }) == -1)
    return -1;
  return Disk_Try("AddGeneralAttributes: Failed set Referenced SOP Class UID.\n",
                  [&] { return SetReferencedSOPClassUIDInFile(msg.GetSOPClassUID()); });
}

int Disk_InstanceDirectoryRecord::AddImageAttributes(IOD_Msg const& msg, bool standard, bool add_icon) {
  if (Fill([&] { return SetDirectoryRecordType(IOD_Image::IMAGE); }) == -1) return -1;
  if (Fill([&] { return Disk_CopyAttributes(kImageAttributes, msg, *record_msg, standard); }) == -1) return -1;
  if (add_icon && AddIconImage(&msg) == -1)
    DISK_LOG(4, "Write(): Warning: can't add icon to directory record (error = %d)\n", KlbGError.Get());
  return 0;
}

int Disk_InstanceDirectoryRecord::AddPresentationAttributes(IOD_Msg const& msg) {
  if (Fill([&] { return SetDirectoryRecordType(IOD_Image::PRESENTATION); }) == -1) return -1;
  if (Fill([&] { return Disk_CopyAttributes(kPresentationAttributes, msg, *record_msg, false); }) == -1) return -1;
  return Disk_Try("Disk_InstanceDirectoryRecord(): can't add element.\n",
                  [&] { return AddReferencedSeriesSequence(&msg); });
}

int Disk_InstanceDirectoryRecord::AddStructureReportingAttributes(IOD_Msg const& msg) {
  if (Fill([&] { return SetDirectoryRecordType(IOD_Image::SR_DOCUMENT); }) == -1) return -1;
  if (Fill([&] { return Disk_CopyAttributes(kReportAttributes, msg, *record_msg, false); }) == -1) return -1;
  if (add_concept_name(msg) == -1) return -1;
  auto const add_date = [&] {
    return msg.GetVerificationFlag() == IOD_Image::VERIFIED ? AddVerificationDateTime(&msg) : 0;
  };
  if (Fill(add_date) == -1) return -1;
  return Disk_Try("failed in AddContentSequence.\n", [&] { return AddContentSequence(&msg); });
}

namespace {

/// The icon that an object brings along. Directory files hold nothing compressed, so one that is gets decoded, or left
/// out where no codec takes it.
Dicom_SQ NativeIcon(Dicom_SQ brought) {
  auto const* item = brought.IsEmpty() ? nullptr : dynamic_cast<IOD_Msg const*>(brought.GetSequence()->Get(0));
  if (!item || (item->GetEncapsulatedSyntax() == UI_NULL && !item->GetPixelContradiction())) return brought;
  std::unique_ptr<IOD_Msg> decoded(GDS_Icon(item).GetImagePixelModule(1));
  if (!decoded) return SQ_NULL;
  auto items = std::make_unique<Dicom_Sequence>();
  items->Append(decoded.release(), true);
  return Dicom_SQ(items.release());
}

} // namespace

int Disk_InstanceDirectoryRecord::AddIconImage(IOD_Msg const* msg) {
  if (GetDirectoryRecordType() != IOD_Image::IMAGE)
    return DISK_FAIL("AddIconImage: Can't add Icon for this type of instance.\n");
  std::unique_ptr<IOD_Msg> icon;
  auto const make = [&] {
    icon.reset(GDS_Icon(msg).GetImagePixelModule(1));
    return 0;
  };
  if (Disk_Allocating("AddIconImage: out of memory.\n", make) == -1) return -1;
  if (!icon) return copy_icon(*msg);
  return Disk_Try("AddIconImage(): Can't get sequence from SQ.\n", [&] {
    auto items = std::make_unique<Dicom_Sequence>();
    if (items->Append(icon.get(), true) == -1) return -1;
    icon.release();
    return record_msg->SetIconImage(Dicom_SQ(items.release()));
  });
}

/// The icon that an object brings along.
int Disk_InstanceDirectoryRecord::copy_icon(IOD_Msg const& msg) {
  Dicom_SQ brought;
  auto const copy = [&] {
    brought = NativeIcon(msg.GetIconImage());
    return 0;
  };
  if (Disk_Allocating("Disk_InstanceDirectoryRecord: Dicom_SQ constructor FAILURE\n", copy) == -1) return -1;
  if (brought.IsEmpty()) {
    DISK_LOG(6, "Image record will not contain icon.\n");
    return 0;
  }
  return Disk_Try("Disk_InstanceDirectoryRecord: SetIconImage FAILURE\n",
                  [&] { return record_msg->SetIconImage(brought); });
}
