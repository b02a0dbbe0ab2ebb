#include "dicom/datasets/Dicom_DataSetWriter.h"

#include "dicom/datasets/Dicom_OpenElements.h"
#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Dicom_DataDictionary.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

Dicom_CharacterSet::Delimiters DelimitersOf(Dicom_VR vr) {
  if (vr == Dicom_VR::PN) return Dicom_CharacterSet::Delimiters::PersonName;
  return Dicom_IsMultiValueText(vr) ? Dicom_CharacterSet::Delimiters::MultiValue : Dicom_CharacterSet::Delimiters::Text;
}

} // namespace

bool Dicom_SameSet(Dicom_CharacterSet const& a, Dicom_CharacterSet const& b) {
  return &a == &b || a.Terms() == b.Terms();
}

std::string Dicom_DecodeText(std::string_view bytes, Dicom_VR vr, Dicom_CharacterSet const& set) {
  return Dicom_IsPlainAscii(bytes) ? std::string(bytes) : set.ToUtf8(bytes, DelimitersOf(vr));
}

bool Dicom_CanEncodeText(std::string_view text, Dicom_VR vr, Dicom_CharacterSet const& set) {
  if (Dicom_IsPlainAscii(text)) return true;
  std::string bytes;
  return set.FromUtf8(text, DelimitersOf(vr), bytes);
}

std::string_view Dicom_EncodeText(std::string_view text, Dicom_VR vr, Dicom_CharacterSet const& set,
                                  std::string& storage) {
  if (Dicom_IsPlainAscii(text) || set.IsAscii()) return text;
  storage.clear();
  if (set.FromUtf8(text, DelimitersOf(vr), storage)) return storage;
  storage.clear();
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x80) storage += c;
    if (byte >= 0xC0) storage += '?';
  }
  return storage;
}

bool Dicom_DataSetWriter::can_copy(Dicom_Origin const& origin, Dicom_CharacterSet const& set) const {
  return origin.canonical && origin.encoding == encoding_ && is_shallow(origin) &&
         Dicom_SameSet(*origin.character_set, set);
}

bool Dicom_DataSetWriter::is_shallow(Dicom_Origin const& origin) const {
  return depth_ + origin.depth - 1 <= kMaximalDepth + 1;
}

Dicom_PackedElements const* Dicom_DataSetWriter::whole(Dicom_Msg const& msg, Dicom_CharacterSet const& set) const {
  Dicom_PackedElements const* const packed = msg.AsRead(as_read_);
  return packed && can_copy(*packed->Origin(), set) ? packed : nullptr;
}

void Dicom_DataSetWriter::message(Dicom_Msg const& msg, Dicom_CharacterSet const& surrounding) {
  if (auto const* const packed = whole(msg, surrounding)) return refer(packed->Bytes(), packed->Length());
  Dicom_OpenElements const& opened = msg.Opened();
  Dicom_CharacterSet const* const declared = opened.Declared();
  for (Dicom_ME const& e : opened.All())
    element(e, declared ? *declared : surrounding);
}

void Dicom_DataSetWriter::Items(Dicom_Sequence const& sequence, Dicom_CharacterSet const& surrounding) {
  if (depth_ > kMaximalDepth) {
    failed_ = true;
    return;
  }
  ++depth_;
  for (std::size_t i = sequence.head_; i < sequence.items_.size(); ++i) {
    Dicom_Sequence::Item const& item = sequence.items_[i];
    Dicom_Msg const* const msg = item.Msg();
    if (msg && copy_with_header(*msg, surrounding)) continue;
    put_header(kItemTag, Dicom_VR::None, 0);
    Place const place = last_length();
    if (msg) {
      message(*msg, surrounding);
    } else if (can_copy(*sequence.origin_, surrounding)) {
      refer(item.bytes, item.length);
    } else {
      message(Dicom_Msg(Dicom_PackedElements(sequence.origin_, item.bytes, item.length)), surrounding);
    }
    patch_length(place);
  }
  --depth_;
}

/// Of neighbours whose headers stand between them the writer makes one piece.
bool Dicom_DataSetWriter::copy_with_header(Dicom_Msg const& item, Dicom_CharacterSet const& surrounding) {
  constexpr std::size_t kHeader = 8;
  Dicom_PackedElements const* const packed = pieces_ ? whole(item, surrounding) : nullptr;
  if (!packed || !packed->HasHeader()) return false;
  refer(packed->Bytes() - kHeader, kHeader + packed->Length());
  return true;
}

void Dicom_DataSetWriter::element(Dicom_ME const& element, Dicom_CharacterSet const& set) {
  Dicom_Tag const tag = element.GetTag();
  if (tag.Element() == 0 && tag.Group() != 2) return; // a group length
  if (element.IsSlice()) {
    raw(element, set);
  } else {
    typed(element, *element.GetValue(), set);
  }
}

void Dicom_DataSetWriter::raw(Dicom_ME const& element, Dicom_CharacterSet const& set) {
  std::string_view const bytes = element.SliceBytes();
  std::uint32_t const tag = element.GetTag().Number();
  Dicom_Origin const& origin = *element.Origin();
  bool const same_set = Dicom_SameSet(*origin.character_set, set);
  bool const changed = !as_read_ && element.HasChanged();
  Dicom_VR const vr = same_set && !changed ? element.GetVR() : element.Meaning();
  if (element.IsEncapsulated()) {
    fragments(tag, vr, bytes);
  } else if (vr == Dicom_VR::SQ) {
    if (changed || !can_copy(origin, set)) {
      bool const around = std::exchange(as_read_, !changed);
      sequence(element, set);
      as_read_ = around;
    } else if (element.HasUndefinedLength()) {
      with_delimiter(tag, vr, bytes);
    } else {
      put_header(tag, vr, bytes.size());
      refer(bytes.data(), bytes.size());
    }
  } else if (element.HasUndefinedLength()) { // of unknown VR: items whose encoding is always the same
    if (!is_shallow(origin)) {
      char const* const end = bytes.data() + bytes.size();
      failed_ |= !Dicom_CheckItems(bytes.data(), end, false, kUnknownVREncoding, depth_).ok;
    }
    with_delimiter(tag, vr, bytes);
  } else if (Dicom_IsText(vr) && tag != kCharacterSetTag && !same_set && !Dicom_IsPlainAscii(bytes)) {
    std::string storage;
    leaf(tag, vr, Dicom_EncodeText(element.GetText(), vr, set, storage), 0, false);
  } else {
    leaf(tag, element.GetVR(), bytes, 0, origin.encoding.big_endian, true);
  }
}

void Dicom_DataSetWriter::typed(Dicom_ME const& element, Dicom_Type const& value, Dicom_CharacterSet const& set) {
  std::uint32_t const tag = element.GetTag().Number();
  if (element.GetVR() == Dicom_VR::SQ) return sequence(element, set);
  auto const* const other =
      Dicom_HasLongLength(element.GetVR()) ? dynamic_cast<Dicom_OtherType const*>(&value) : nullptr;
  if (other && element.IsEncapsulated()) return fragments(tag, element.GetVR(), other->Bytes());
  if (other) return leaf(tag, element.GetVR(), other->Bytes(), 0, false, true);
  std::string bytes;
  if (Dicom_StringType const* const text = Dicom_IsText(element.GetVR()) ? value.AsString() : nullptr) {
    bool const declares = tag == kCharacterSetTag;
    std::string_view const written =
        declares ? text->View() : Dicom_EncodeText(text->View(), element.GetVR(), set, bytes);
    return leaf(tag, element.GetVR(), written, text->Width(), false);
  }
  value.AppendBytes(bytes);
  leaf(tag, element.GetVR(), bytes, 0, false);
}

/// In implicit VR a sequence that the dictionary doesn't know shows itself by its undefined length.
void Dicom_DataSetWriter::sequence(Dicom_ME const& element, Dicom_CharacterSet const& set) {
  std::uint32_t const tag = element.GetTag().Number();
  bool const known = encoding_.explicit_vr || Dicom_ImplicitVR(tag, false) == Dicom_VR::SQ;
  if (!known && tag == kPixelDataTag) failed_ = true; // would pass for fragments
  put_header(tag, Dicom_VR::SQ, known ? 0 : kUndefinedLength);
  Place const place = last_length();
  auto const* value = dynamic_cast<Dicom_SQ const*>(element.GetValue());
  if (value && value->GetSequence()) Items(*value->GetSequence(), set);
  if (known) {
    patch_length(place);
  } else {
    delimiter(encoding_.big_endian);
  }
}

void Dicom_DataSetWriter::leaf(std::uint32_t tag, Dicom_VR vr, std::string_view bytes, std::size_t width,
                               bool big_endian, bool stays) {
  std::size_t const padded = (std::max(bytes.size(), width) + 1) & ~std::size_t(1);
  if (!encoding_.explicit_vr && padded > 0 && Dicom_ImplicitVR(tag, false) == Dicom_VR::SQ) {
    // the value will be read as a sequence, so it had better be one
    bool const items = padded == bytes.size() && Dicom_UnitSize(vr) == 1 &&
                       Dicom_CheckItems(bytes.data(), bytes.data() + padded, false, encoding_, depth_).ok;
    if (!items) failed_ = true;
  }
  Header const start = header_of(tag, vr, padded);
  std::size_t const unit = Dicom_UnitSize(vr), padding = padded - bytes.size();
  bool const to_big_endian = encoding_.big_endian && start.vr == vr; // an unknown VR is always little endian
  bool const swaps = big_endian != to_big_endian && unit > 1;
  constexpr std::size_t kFew = 64;
  if (padded <= kFew && !swaps) { // as nearly all are
    char whole[sizeof start.bytes + kFew];
    std::memcpy(whole, start.bytes, sizeof start.bytes);
    std::copy(bytes.begin(), bytes.end(), whole + start.length);
    if (padding > 0) std::memset(whole + start.length + bytes.size(), Dicom_PadChar(vr), padding);
    return append(whole, start.length + padded);
  }
  append(start.bytes, start.length);
  std::size_t const place = next_place();
  if (stays && !swaps) {
    refer(bytes.data(), bytes.size());
  } else {
    append(bytes.data(), bytes.size());
  }
  for (std::size_t i = 0; i < padding; ++i) {
    char const pad = Dicom_PadChar(vr);
    append(&pad, 1);
  }
  char* const value = swaps && fits() ? at(place) : nullptr;
  if (!value) return;
  for (std::size_t i = 0; i + unit <= padded; i += unit)
    std::reverse(value + i, value + i + unit);
}

void Dicom_DataSetWriter::fragments(std::uint32_t tag, Dicom_VR vr, std::string_view bytes) {
  if (encoding_.big_endian) failed_ = true;
  with_delimiter(tag, vr, bytes);
}

/// A value of undefined length: fragments or items as they are, and the delimiter. In implicit VR the tag alone tells
/// the one from the other.
void Dicom_DataSetWriter::with_delimiter(std::uint32_t tag, Dicom_VR vr, std::string_view bytes) {
  bool const is_fragments = vr == Dicom_VR::OB || vr == Dicom_VR::OW;
  if (!encoding_.explicit_vr && is_fragments != (tag == kPixelDataTag)) failed_ = true;
  put_header(tag, vr, kUndefinedLength);
  refer(bytes.data(), bytes.size());
  delimiter(encoding_.big_endian && vr != Dicom_VR::UN);
}

void Dicom_DataSetWriter::delimiter(bool big_endian) {
  char bytes[8] = {};
  Dicom_StoreTag(bytes, kSequenceDelimiter, big_endian);
  append(bytes, sizeof bytes);
}

/// Items have no VR. What its own VR can't hold is of VR UN.
Dicom_DataSetWriter::Header Dicom_DataSetWriter::header_of(std::uint32_t tag, Dicom_VR vr, std::size_t length) {
  if (length > kUndefinedLength) failed_ = true;
  bool const big_endian = encoding_.big_endian;
  Header header{.bytes = {}, .length = 8, .vr = vr};
  Dicom_StoreTag(header.bytes, tag, big_endian);
  if (!encoding_.explicit_vr || tag == kItemTag) {
    Dicom_Store32(header.bytes + 4, std::uint32_t(length), big_endian);
    return header;
  }
  // a length beyond 16 bits stands in implicit VR only; in explicit VR such a value is of unknown VR
  if (!Dicom_HasLongLength(vr) && length > 0xFFFE) header.vr = Dicom_VR::UN;
  Dicom_Store16(header.bytes + 4, std::uint16_t(header.vr), false); // two letters
  if (Dicom_HasLongLength(header.vr)) {
    Dicom_Store32(header.bytes + 8, std::uint32_t(length), big_endian);
    header.length = 12;
  } else {
    Dicom_Store16(header.bytes + 6, std::uint16_t(length), big_endian);
  }
  return header;
}

void Dicom_DataSetWriter::put_header(std::uint32_t tag, Dicom_VR vr, std::size_t length) {
  Header const header = header_of(tag, vr, length);
  append(header.bytes, header.length);
}

void Dicom_DataSetWriter::append(void const* bytes, std::size_t length) {
  if (pieces_) {
    pieces_->Copy(bytes, length);
  } else if (out_ && length_ + length <= capacity_ && length > 0) {
    std::memcpy(out_ + length_, bytes, length);
  }
  length_ += length;
}

/// The same for bytes that stay where they are.
void Dicom_DataSetWriter::refer(char const* bytes, std::size_t length) {
  if (!pieces_) return append(bytes, length);
  pieces_->Refer(bytes, length);
  length_ += length;
}

std::size_t Dicom_DataSetWriter::next_place() const { return pieces_ ? pieces_->CopiedLength() : length_; }

char* Dicom_DataSetWriter::at(std::size_t place) {
  return pieces_ ? pieces_->Copied(place) : out_ ? out_ + place : nullptr;
}

/// Of a length field that was just written.
Dicom_DataSetWriter::Place Dicom_DataSetWriter::last_length() const { return {length_, next_place() - 4}; }

/// Writes the number of bytes behind a length field into that field.
void Dicom_DataSetWriter::patch_length(Place const& place) {
  std::size_t const length = length_ - place.behind;
  if (length >= kUndefinedLength) failed_ = true;
  char* const field = fits() ? at(place.field) : nullptr;
  if (field) Dicom_Store32(field, std::uint32_t(length), encoding_.big_endian);
}
