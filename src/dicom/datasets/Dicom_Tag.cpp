#include <dicom/Dicom_Tag.h>

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Dicom_Msg.h>

int Dicom_Tag::Unresolve(Dicom_Msg const& home) {
  if (Group() == 0xFFFF) return -1;
  if (!IsPrivate() || !implementor_.empty() || Element() < 0x10) return 0;
  Dicom_Tag const creator(Group(), IsPrivateCreator() ? Element() : std::uint16_t(Element() >> 8));
  Dicom_ME const* element = creator.IsPrivateCreator() ? home.Find(creator) : nullptr;
  auto const* text = element ? dynamic_cast<Dicom_StringType const*>(element->GetValue()) : nullptr;
  if (!text || text->IsEmpty()) return 0;
  implementor_ = text->View();
  creator_ = IsPrivateCreator();
  if (!creator_) number_ &= 0xFFFF00FF;
  return 0;
}

int Dicom_Tag::ResolveIfFound(Dicom_Msg const& msg) {
  if (implementor_.empty()) return 0;
  std::uint32_t const found = msg.Resolve(*this);
  if (found == 0) return -1;
  number_ = found;
  return 0;
}

Dicom_Tag* Dicom_Tag::ConstructFromBuffer(void const* buffer, Dicom_TransferSyntax const& syntax, unsigned* length,
                                          Dicom_Msg const*) {
  if (!buffer) return nullptr;
  if (length) *length = 4;
  return new Dicom_Tag(Dicom_LoadTag(static_cast<char const*>(buffer), syntax.IsBigEndian()));
}
