#include "Disk/records/Disk_Attributes.h"
#include "infra/Klb_Failure.h"

#include <Disk/Disk_InstanceDirectoryRecord.h>
#include <dicom/IOD_Image.h>

namespace {

/// The sequence of an attribute, or null; `*present` tells whether the attribute is there at all.
Dicom_Sequence const* SequenceOf(Dicom_Msg const& msg, Dicom_Tag const& tag, bool* present) {
  Dicom_Type const* value = msg.Get(tag);
  *present = value != nullptr;
  auto const* sq = dynamic_cast<Dicom_SQ const*>(value);
  return sq ? sq->GetSequence() : nullptr;
}

/// Null, with the line, when there is no memory for one.
std::unique_ptr<Dicom_Sequence> NewSequence(char const* cant_create) {
  std::unique_ptr<Dicom_Sequence> sequence;
  Disk_Allocating(cant_create, [&] {
    sequence = std::make_unique<Dicom_Sequence>();
    return 0;
  });
  return sequence;
}

/// A copy of an item that shares nothing with the object that it came from.
std::unique_ptr<Dicom_Msg> CopyByValue(Dicom_Msg const& item) {
  Dicom_Sequence one;
  if (one.Append(const_cast<Dicom_Msg*>(&item), false) == -1) return nullptr;
  std::unique_ptr<Dicom_Sequence> const copy = one.Clone();
  std::unique_ptr<Dicom_Msg> taken(copy->Get(0));
  if (taken) copy->Remove(0, 0);
  return taken;
}

} // namespace

int Disk_InstanceDirectoryRecord::AddReferencedSeriesSequence(IOD_Msg const* msg) {
  if (GetDirectoryRecordType() != IOD_Image::PRESENTATION)
    return DISK_FAIL("AddReferencedSeriesSequence: Can't add ReferencedImageSequence for this type of instance.\n");
  std::unique_ptr<Dicom_Sequence> series = NewSequence("AddReferencedSeriesSequence: Can't create sequence.\n");
  if (!series) return -1;
  bool present = false;
  Dicom_Sequence const* source = SequenceOf(*msg, Dicom_Tag(0x0008, 0x1115), &present);
  if (!source) {
    DISK_LOG(6, "AddReferencedSeriesSequence: no sequence present in the instance.\n");
    return 0;
  }
  for (int i = 0; i < source->GetNItems(); ++i) {
    IOD_Msg const item(*source->Get(i));
    Dicom_Sequence const* images = SequenceOf(item, Dicom_Tag(0x0008, 0x1140), &present);
    Dicom_UI const uid = item.GetSeriesInstanceUID();
    if (!item.Has(Dicom_Tag(0x0020, 0x000E)) || !images) return -1;
    std::unique_ptr<Dicom_Sequence> const references(CreateReferencedImageSequence(images));
    if (!references) return -1;
    auto entry = std::make_unique<IOD_Msg>();
    if (entry->SetSeriesInstanceUID(uid.Duplicate()) == -1 ||
        entry->SetReferencedImageSequence(Dicom_SQ(references.get(), 1)) == -1 ||
        series->Append(entry.get(), true) == -1)
      return -1;
    entry.release();
  }
  int const result = record_msg->SetReferencedSeriesSequence(Dicom_SQ(series.get(), 1));
  if (result == -1) DISK_FAIL("AddReferencedSeriesSequence: Error in building sequence.\n");
  return result;
}

Dicom_Sequence* Disk_InstanceDirectoryRecord::CreateReferencedImageSequence(Dicom_Sequence const* source) {
  auto references = std::make_unique<Dicom_Sequence>();
  for (int i = 0; i < source->GetNItems(); ++i) {
    IOD_Msg const item(*source->Get(i));
    if (!item.Has(Dicom_Tag(0x0008, 0x1150)) || !item.Has(Dicom_Tag(0x0008, 0x1155))) return nullptr;
    auto reference = std::make_unique<IOD_Msg>();
    if (reference->SetReferencedSOPClassUID(item.GetReferencedSOPClassUID()) == -1 ||
        reference->SetReferencedSOPInstanceUID(item.GetReferencedSOPInstanceUID()) == -1 ||
        references->Append(reference.get(), true) == -1)
      return nullptr;
    reference.release();
  }
  return references.release();
}

int Disk_InstanceDirectoryRecord::add_concept_name(IOD_Msg const& msg) {
  bool present = false;
  Dicom_Sequence const* source = SequenceOf(msg, Dicom_Tag(0x0040, 0xA043), &present);
  if (!source || source->GetNItems() == 0) return 0;
  auto concept_name = NewSequence("failed in dumping ConceptNameCodeSequence\n");
  if (!concept_name) return -1;
  auto const copy_first = [&] {
    std::unique_ptr<Dicom_Msg> copy = CopyByValue(*source->Get(0));
    if (!copy || concept_name->Append(copy.get(), true) == -1) return -1;
    copy.release();
    return 0;
  };
  if (Disk_Try("failed in dumping ConceptNameCodeSequence\n", copy_first) == -1) return -1;
  return Disk_Try("Disk_InstanceDirectoryRecord(): Can't add element.\n",
                  [&] { return record_msg->SetConceptNameCodeSequence(Dicom_SQ(concept_name.release())); });
}

int Disk_InstanceDirectoryRecord::AddVerificationDateTime(IOD_Msg const* msg) {
  if (GetDirectoryRecordType() != IOD_Image::SR_DOCUMENT)
    return DISK_FAIL("AddVerificationDateTime: can't add Verification Date Time for this type of instance.\n");
  bool present = false;
  Dicom_Sequence const* observers = SequenceOf(*msg, Dicom_Tag(0x0040, 0xA073), &present);
  if (!present) return 0;
  if (!observers) {
    DISK_LOG(6, "AddVerificationDateTime: no sequence available.\n");
    return 0;
  }
  Dicom_DA latest;
  for (int i = 0; i < observers->GetNItems(); ++i) {
    Dicom_DA const date = IOD_Msg(*observers->Get(i)).GetVerificationDateTime();
    if (date != DA_NULL && (latest == DA_NULL || latest < date)) latest = date;
  }
  int const result = record_msg->SetVerificationDateTime(latest);
  if (result == -1) DISK_FAIL("AddVerificationDateTime: can't add VerificationDateTime tag.\n");
  return result;
}

int Disk_InstanceDirectoryRecord::AddContentSequence(IOD_Msg const* msg) {
  if (GetDirectoryRecordType() != IOD_Image::SR_DOCUMENT)
    return DISK_FAIL("AddContentSequence: can't add Content Sequence for this type of instance.\n");
  Dicom_Tag const tag(0x0040, 0xA730);
  bool present = false;
  Dicom_Sequence const* content = SequenceOf(*msg, tag, &present);
  if (!present) return 0;
  if (!content) {
    DISK_LOG(6, "AddContentSequence: no sequence available\n");
    return 0;
  }
  static Dicom_CS const s_modifier("HAS CONCEPT MOD");
  auto modifiers = NewSequence("AddContentSequence: allocation failure\n");
  if (!modifiers) return -1;
  for (int i = 0; i < content->GetNItems(); ++i) {
    Dicom_Msg const& item = *content->Get(i);
    if (item.Value<Dicom_CS>(Dicom_Tag(0x0040, 0xA010)) != s_modifier) continue;
    std::unique_ptr<Dicom_Msg> copy;
    auto const copy_item = [&] {
      copy = CopyByValue(item);
      if (!copy) DISK_FAIL("failed in dumping content sequence\n");
      return copy ? 0 : -1;
    };
    if (Disk_Allocating("AddContentSequence: failed in dumping to buffer\n", copy_item) == -1) return -1;
    if (Disk_Try("AddContentSequence: failure\n", [&] { return modifiers->Append(copy.get(), true); }) == -1) return -1;
    copy.release();
  }
  if (modifiers->GetNItems() == 0) return 0;
  return record_msg->Set(tag, Dicom_SQ(modifiers.release()));
}
