#include "Disk/query/Disk_ResponseFilter.h"

#include "Disk/files/Disk_Guard.h"
#include "Disk/files/Disk_Tags.h"
#include "Disk/query/Disk_RecordWalk.h"

#include <Disk/Disk_DirectoryRecord.h>
#include <dicom/Dicom_CharacterSet.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

/// Attributes that a response may lack whatever was asked for.
constexpr Dicom_Tag kExempt[] = {
    {0x0020, std::uint16_t(0x000E)},       {0x0020, std::uint16_t(0x000D)}, kSpecificCharacterSet,
    {0x0008, std::uint16_t(0x0052)},       Dicom_Dictionary::KOLBA_FOLDER,  Dicom_Dictionary::KOLBA_SOURCE_AE,
    Dicom_Dictionary::KOLBA_DICOMDIR_PATH,
};

bool IsExempt(Dicom_Msg const& identifier, Dicom_Tag tag) {
  if (tag.Unresolve(identifier) == -1) return false;
  return std::any_of(std::begin(kExempt), std::end(kExempt), [&](Dicom_Tag const& exempt) { return exempt == tag; });
}

/// The attributes that every response must have, by their tags in a response.
std::vector<Dicom_ME const*> Required(Dicom_Msg const& identifier) {
  std::vector<Dicom_ME const*> required;
  for (int i = 0; i < identifier.GetNElements(); ++i) {
    Dicom_ME const* element = identifier.GetElement(i);
    Dicom_Tag const tag = element->GetTag();
    if (IsExempt(identifier, tag) || (tag.IsPrivate() && tag.Element() < 0x100)) continue;
    if (element->IsEmpty() || Disk_AllMatching(element->GetValue())) continue;
    required.push_back(element);
  }
  return required;
}

/// Private attributes too are looked for by the identifier's tag, in the block that they have there.
bool HoldsAll(std::vector<Dicom_ME const*> const& required, Dicom_Msg const& result) {
  return std::all_of(required.begin(), required.end(), [&](Dicom_ME const* element) {
    if (result.Has(element->GetTag())) return true;
    if (Klb_LogFile::GetLogLevel(210000) == 7 && !element->GetText().empty())
      DISK_LOG(7, "Filter_msg.Remove msg from query result.Can not find Tag:<%d>.filter str:<%s>\n",
               int(element->GetTag().Number()), element->GetText().c_str());
    return false;
  });
}

/// More than ASCII, outside of what has a declaration of its own.
bool HasUndeclaredText(Dicom_Msg const& msg) {
  if (msg.Has(kSpecificCharacterSet)) return false;
  for (Dicom_ElementCursor cursor(msg); !cursor.AtEnd(); cursor.Next()) {
    Dicom_VR const vr = cursor.Element().GetVR();
    if (Dicom_IsText(vr) && !Dicom_IsPlainAscii(cursor.Element().GetText())) return true;
    auto const* const items = vr == Dicom_VR::SQ ? dynamic_cast<Dicom_SQ const*>(cursor.Element().GetValue()) : nullptr;
    for (int i = 0; items && i < items->GetNValues(); ++i)
      if (HasUndeclaredText(*items->GetSequence()->Get(i))) return true;
  }
  return false;
}

} // namespace

int Disk_AllMatching(Dicom_Type const* value) {
  return value->GetText().find_first_not_of("^=*?") == std::string::npos ? 1 : 0;
}

int Disk_FilterMsg(Dicom_Msg const& identifier, Dicom_Msg const& result) {
  return HoldsAll(Required(identifier), result) ? 1 : 0;
}

void Disk_FilterMissingTags(SCL_QueryIdentifier const& identifier, Dicom_Sequence* results) {
  std::vector<Dicom_ME const*> const required = Required(identifier);
  if (required.empty()) return;
  results->RemoveIf([&](Dicom_Msg const& result) { return !HoldsAll(required, result); });
}

int Disk_AppendResponse(std::unique_ptr<Dicom_Msg> response, Dicom_Sequence* results, char const* cant_append) {
  int const result = Disk_Allocating(cant_append, [&] { return results->Append(response.get(), true); });
  if (result == 0) response.release();
  return result;
}

void Disk_DeclareCharacterSet(Dicom_Msg& response) {
  if (HasUndeclaredText(response)) response.Set(kSpecificCharacterSet, Dicom_CS("ISO_IR 192"));
}

int Disk_QueryRecord(Disk_RecordWalk const& walk, Disk_DirectoryRecord const& record, Dicom_Sequence* results) {
  std::unique_ptr<SCL_QueryRspIdentifier> response;
  if (walk.Run(*record.GetRecordMsg(), &response) == -1) return -1;
  return response ? Disk_AppendResponse(std::move(response), results,
                                        "Query(): Can't add a result to the sequence of results.\n")
                  : 0;
}
