#include "dicom/datasets/Dicom_Packer.h"

#include "dicom/encoding/Dicom_Origin.h"

#include <dicom/Dicom_VR.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

/// (0008,0005) CS ISO_IR 192.
constexpr std::string_view kUnicode("\x08\0\x05\0CS\x0A\0ISO_IR 192", 18);

} // namespace

bool Dicom_Packer::Takes(Dicom_ME const& element) {
  if (!element.IsSlice() || !Dicom_IsText(element.GetVR())) return false;
  Dicom_Origin const& origin = *element.Origin();
  if (!origin.canonical || !(origin.encoding == Dicom_Encoding())) return false;
  std::string_view const bytes = element.SliceBytes();
  next_is_plain_ = Dicom_IsPlainAscii(bytes);
  if (next_is_plain_) return true;
  bool const is_unicode = origin.character_set->IsAscii() || origin.character_set->IsUtf8();
  return is_unicode && Dicom_IsValidUtf8(bytes);
}

void Dicom_Packer::Add(Dicom_ME const& element) {
  std::size_t const header = Dicom_HasLongLength(element.GetVR()) ? 12 : 8;
  std::string_view const bytes = element.SliceBytes();
  elements_.append(bytes.data() - header, header + bytes.size());
  is_plain_ = is_plain_ && next_is_plain_;
}

std::string Dicom_Packer::Encoded(Dicom_Tag const& tag, Dicom_UI const& uid) {
  Dicom_Msg alone;
  if (!Dicom_IsPlainAscii(uid.View()) || alone.Set(tag, uid) == -1) return {};
  std::string bytes(alone.GetDumpLen(), '\0');
  return alone.Dump(bytes.data(), unsigned(bytes.size())) == -1 ? std::string() : bytes;
}

void Dicom_Packer::Drop() {
  elements_.clear();
  is_plain_ = true;
}

Dicom_Msg Dicom_Packer::Finish() {
  if (elements_.empty()) return {};
  if (!is_plain_) elements_.insert(0, kUnicode);
  if (!block_ || elements_.size() > block_->size() - used_) {
    constexpr std::size_t kLargestBlock = 64 * 1024;
    block_size_ = std::min(block_size_ * 2, kLargestBlock);
    block_ = Util_Buffer::Make(std::max(block_size_, elements_.size()));
    if (!block_) throw std::bad_alloc();
    auto origin = std::make_shared<Dicom_Origin>();
    origin->buffer = block_;
    origin->canonical = true;
    origin_ = std::move(origin);
    used_ = 0;
  }
  char* const place = block_->data() + used_;
  std::memcpy(place, elements_.data(), elements_.size());
  used_ += elements_.size();
  Dicom_Msg msg(Dicom_PackedElements(origin_, place, elements_.size()));
  Drop();
  return msg;
}
