/// What a message's pixels say about the transfer syntax in which it can be written.
#include <dicom/IOD_Msg.h>

#include "dicom/datasets/Dicom_OpenElements.h"
#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/pixels/Dicom_ImagePixel.h"

#include <algorithm>

namespace {

/// The two syntaxes of pixels on a JPIP server. Each has a form of its own for data sets that are deflated.
Dicom_UI ReferenceSyntax(std::string_view uid) {
  constexpr char kJpeg2000[] = "1.2.840.10008.1.2.4.94", kHighThroughput[] = "1.2.840.10008.1.2.4.204";
  if (uid == kJpeg2000 || uid == "1.2.840.10008.1.2.4.95") return Dicom_UI(kJpeg2000);
  if (uid == kHighThroughput || uid == "1.2.840.10008.1.2.4.205") return Dicom_UI(kHighThroughput);
  return UI_NULL;
}

bool IsCompressedSyntax(std::string_view uid) { return Dicom_TransferSyntax(Dicom_UI(uid), nullptr).IsEncapsulated(); }

} // namespace

/// In items, as those of an icon.
bool Dicom_Msg::has_nested_fragments() const {
  std::shared_ptr<Dicom_Origin const> const& origin = elements().Origin();
  if (!origin || !origin->nested_fragments) return false;
  auto const& all = Opened().All();
  return std::any_of(all.begin(), all.end(), [](Dicom_ME const& e) {
    auto const* const items = e.Meaning() == Dicom_VR::SQ ? dynamic_cast<Dicom_SQ const*>(e.GetValue()) : nullptr;
    for (int i = 0; items && i < items->GetNValues(); ++i) {
      Dicom_Msg const& item = *items->GetSequence()->Get(i);
      Dicom_ME const* const pixels = item.Find(Dicom_Tag(kPixelDataTag));
      if ((pixels && pixels->IsEncapsulated()) || item.has_nested_fragments()) return true;
    }
    return false;
  });
}

Dicom_UI Dicom_Msg::GetEncapsulatedSyntax() const {
  constexpr Dicom_Tag kPixelDataProvider{0x0028, std::uint16_t(0x7FE0)};
  Dicom_ME storage;
  Dicom_ME const* const pixels = lookup(kPixelDataTag, storage);
  if (pixels) {
    auto const* value = pixels->IsEncapsulated() ? dynamic_cast<Dicom_OtherType const*>(pixels->GetValue()) : nullptr;
    return value ? Dicom_UI(value->EncapsulatedSyntax()) : UI_NULL;
  }
  std::shared_ptr<Dicom_Origin const> const& origin = elements().Origin();
  if (!origin) return UI_NULL;
  if (has_nested_fragments()) return Dicom_UI(origin->syntax_uid);
  return Has(kPixelDataProvider) ? ReferenceSyntax(origin->syntax_uid) : UI_NULL;
}

char const* Dicom_Msg::GetPixelContradiction() const {
  Dicom_UI const syntax = GetEncapsulatedSyntax();
  if (syntax != UI_NULL)
    return IsCompressedSyntax(syntax.View()) ? nullptr : "its pixels are in fragments, its transfer syntax has none";
  if (has_nested_fragments()) return "its icon is compressed, its own pixels aren't";
  // of defined length they are native, whatever the syntax says, unless their length shows that they aren't
  Dicom_ME storage;
  Dicom_ME const* const pixels = lookup(kPixelDataTag, storage);
  bool const doubtful = pixels && pixels->IsSlice() && IsCompressedSyntax(pixels->Origin()->syntax_uid);
  if (!doubtful || Dicom_ImagePixel(*this).IsLengthOfPixels(pixels->SliceBytes().size())) return nullptr;
  return "its transfer syntax is a compressed one, its pixels are neither in fragments nor of native length";
}

Dicom_OtherType const& IOD_Msg::GetPixelData() const {
  Dicom_OtherType const* const pixels = Dicom_PixelData(*this);
  return pixels ? *pixels : OW_NULL;
}
