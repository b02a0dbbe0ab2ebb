#include <dicom/Dicom_ME.h>

#include "dicom/datasets/Dicom_DataSetWriter.h"
#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/encoding/Dicom_DescriptorReader.h"
#include "dicom/values/Dicom_Decimal.h"

#include <dicom/Dicom_DataDictionary.h>
#include <dicom/Dicom_Match.h>
#include <dicom/Dicom_Msg.h>
#include <infra/Util_FileSystemInterface.h>

#include <tuple>
#include <unistd.h>

namespace {

constexpr std::uint32_t kNoBlock = 0x100; // no message takes an element of block 01

template <class T>
std::vector<T> Numbers(std::string_view bytes, Dicom_Endianity endianity) {
  std::vector<T> values(bytes.size() / sizeof(T));
  Dicom_Copy(bytes.data(), values.data(), sizeof(T), int(values.size()), endianity);
  return values;
}

template <class V>
std::unique_ptr<Dicom_Type> MakeNumbers(std::string_view bytes, Dicom_Endianity endianity) {
  return std::make_unique<V>(Numbers<typename V::Value>(bytes, endianity));
}

std::unique_ptr<Dicom_Type> MakeTags(std::string_view bytes, Dicom_Endianity endianity) {
  std::vector<std::uint32_t> tags;
  for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4)
    tags.push_back(Dicom_LoadTag(bytes.data() + i, endianity == Dicom_Endianity::Big));
  return std::make_unique<Dicom_AT>(std::move(tags));
}

/// Bytes or words; they stay in the buffer unless their order has to change.
template <class V>
std::unique_ptr<Dicom_Type> MakeOther(std::string_view bytes, Dicom_Endianity endianity) {
  constexpr std::size_t kUnit = Dicom_UnitSize(V::kVR);
  if (kUnit == 1 || endianity == Dicom_Endianity::Little)
    return std::make_unique<V>(bytes.data(), bytes.size(), 0, nullptr);
  std::string swapped(bytes);
  if (swapped.size() & 1) swapped += '\0'; // as it will be dumped
  Dicom_Copy(swapped.data(), swapped.data(), int(kUnit), int(swapped.size() / kUnit), endianity);
  return std::make_unique<V>(swapped.data(), swapped.size(), 1, nullptr);
}

template <class V>
std::unique_ptr<Dicom_Type> MakeText(std::string_view text) {
  return std::make_unique<V>(text);
}

std::unique_ptr<Dicom_Type> MakeTextOf(Dicom_VR vr, std::string_view text) {
  switch (vr) {
  case Dicom_VR::AE:
    return MakeText<Dicom_AE>(text);
  case Dicom_VR::AS:
    return MakeText<Dicom_AS>(text);
  case Dicom_VR::CS:
    return MakeText<Dicom_CS>(text);
  case Dicom_VR::DA:
    return MakeText<Dicom_DA>(text);
  case Dicom_VR::DS:
    return MakeText<Dicom_DS>(text);
  case Dicom_VR::DT:
    return MakeText<Dicom_DT>(text);
  case Dicom_VR::IS:
    return MakeText<Dicom_IS>(text);
  case Dicom_VR::LO:
    return MakeText<Dicom_LO>(text);
  case Dicom_VR::LT:
    return MakeText<Dicom_LT>(text);
  case Dicom_VR::PN:
    return MakeText<Dicom_PN>(text);
  case Dicom_VR::SH:
    return MakeText<Dicom_SH>(text);
  case Dicom_VR::ST:
    return MakeText<Dicom_ST>(text);
  case Dicom_VR::TM:
    return MakeText<Dicom_TM>(text);
  case Dicom_VR::UC:
    return MakeText<Dicom_UC>(text);
  case Dicom_VR::UI:
    return MakeText<Dicom_UI>(text);
  case Dicom_VR::UR:
    return MakeText<Dicom_UR>(text);
  default:
    return MakeText<Dicom_UT>(text);
  }
}

std::unique_ptr<Dicom_Type> MakeBinary(Dicom_VR vr, std::string_view bytes, Dicom_Endianity order) {
  switch (vr) {
  case Dicom_VR::AT:
    return MakeTags(bytes, order);
  case Dicom_VR::FD:
    return MakeNumbers<Dicom_FD>(bytes, order);
  case Dicom_VR::FL:
    return MakeNumbers<Dicom_FL>(bytes, order);
  case Dicom_VR::SL:
    return MakeNumbers<Dicom_SL>(bytes, order);
  case Dicom_VR::SS:
    return MakeNumbers<Dicom_SS>(bytes, order);
  case Dicom_VR::SV:
    return MakeNumbers<Dicom_SV>(bytes, order);
  case Dicom_VR::UL:
    return MakeNumbers<Dicom_UL>(bytes, order);
  case Dicom_VR::US:
    return MakeNumbers<Dicom_US>(bytes, order);
  case Dicom_VR::UV:
    return MakeNumbers<Dicom_UV>(bytes, order);
  case Dicom_VR::OB:
    return MakeOther<Dicom_OB>(bytes, order);
  case Dicom_VR::OD:
    return MakeOther<Dicom_OD>(bytes, order);
  case Dicom_VR::OF:
    return MakeOther<Dicom_OF>(bytes, order);
  case Dicom_VR::OL:
    return MakeOther<Dicom_OL>(bytes, order);
  case Dicom_VR::OV:
    return MakeOther<Dicom_OV>(bytes, order);
  case Dicom_VR::OW:
    return MakeOther<Dicom_OW>(bytes, order);
  default:
    return std::make_unique<Dicom_UN>(vr, bytes.data(), bytes.size(), 0, nullptr);
  }
}

} // namespace

Dicom_ME::Dicom_ME(Dicom_Tag const& tag, std::unique_ptr<Dicom_Type> value)
    : tag_(tag.IsUnresolved() ? tag.Number() | kNoBlock : tag.Number()), value_(std::move(value)) {
  if (!value_.Get()) value_.Reset(std::make_unique<Dicom_UN>());
  vr_ = GetValue()->GetVR();
  undefined_length_ = IsEncapsulated();
}

Dicom_ME::Dicom_ME(Dicom_Tag const& tag, Dicom_Type* value, int copy, int* status)
    : Dicom_ME(tag, copy && value ? value->Clone() : std::unique_ptr<Dicom_Type>(value)) {
  if (status) *status = value ? 0 : -1;
}

Dicom_ME::Dicom_ME(Dicom_ME const& other)
    : tag_(other.tag_), vr_(other.vr_), undefined_length_(other.undefined_length_), value_(other.GetValue()->Clone()) {
  if (vr_ == Dicom_VR::UN) vr_ = GetValue()->GetVR();
}

Dicom_ME::Dicom_ME(int fd, unsigned* consumed, Dicom_TransferSyntax const& syntax, Dicom_Msg const* home, int* error) {
  value_.Reset(std::make_unique<Dicom_UN>());
  std::string bytes;
  Dicom_RawElement found;
  *error = Dicom_ReadElementFrom(fd, {syntax.IsExplicitVR(), syntax.IsBigEndian()}, &bytes, &found);
  if (consumed) *consumed = unsigned(bytes.size());
  if (*error == 0) own(found, syntax, home);
}

Dicom_ME::Dicom_ME(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax, int* error) {
  unsigned consumed = 0;
  *this = Dicom_ME(fd, &consumed, syntax, nullptr, error);
  if (*error == 0 && consumed > length) { // what follows isn't ours to take
    *error = -1;
    *this = Dicom_ME(Dicom_Tag(), nullptr);
    Util_FileSystemInterface::Current().Lseek(fd, -off_t(consumed), SEEK_CUR);
  }
  if (read_length) *read_length = *error == 0 ? consumed : 0;
}

Dicom_ME::Dicom_ME(char const* buffer, unsigned length, int, unsigned* consumed, int* error) {
  value_.Reset(std::make_unique<Dicom_UN>());
  Dicom_RawElement found;
  *error = buffer && Dicom_ReadElement(buffer, buffer + length, {}, &found) ? 0 : -1;
  if (consumed) *consumed = *error == 0 ? unsigned(found.next - buffer) : 0;
  if (*error == 0) own(found, Dicom_TransferSyntax::Native(), nullptr);
}

void Dicom_ME::own(Dicom_RawElement const& raw, Dicom_TransferSyntax const& syntax, Dicom_Msg const* home) {
  auto const origin = std::make_shared<Dicom_Origin>();
  origin->encoding = {syntax.IsExplicitVR(), syntax.IsBigEndian()};
  origin->character_set =
      Dicom_CharacterSet::Make(home && !home->IsEmpty() ? home->GetCharacterSet().Terms() : std::string_view());
  origin->syntax_uid = syntax.GetUID().View();
  Dicom_ME sliced;
  sliced.Slice(raw, origin.get());
  *this = Dicom_ME(sliced);
}

void Dicom_ME::Slice(Dicom_RawElement const& raw, Dicom_Origin const* origin) {
  tag_ = raw.tag;
  vr_ = raw.vr;
  if (vr_ == Dicom_VR::US && origin->signed_pixels &&
      Dicom_DataDictionary::VROf(std::uint16_t(tag_ >> 16), std::uint16_t(tag_)) == Dicom_VR::xs)
    vr_ = Dicom_VR::SS;
  undefined_length_ = raw.undefined_length;
  length_ = raw.length;
  bytes_ = raw.value;
  origin_ = origin;
  value_.Reset();
}

Dicom_ME Dicom_ME::SameSlice() const {
  Dicom_ME copy;
  copy.Slice({tag_, vr_, undefined_length_, bytes_, length_, nullptr}, origin_);
  return copy;
}

bool Dicom_ME::IsEncapsulated() const {
  if (bytes_) return undefined_length_ && (vr_ == Dicom_VR::OB || vr_ == Dicom_VR::OW);
  if (Dicom_IsText(vr_)) return false;
  auto const* other = dynamic_cast<Dicom_OtherType const*>(value_.Get());
  return other && other->IsEncapsulated();
}

Dicom_VR Dicom_ME::Meaning() const {
  if (!bytes_ || vr_ != Dicom_VR::UN) return vr_;
  if (undefined_length_) return Dicom_VR::SQ;
  Dicom_VR const known = Dicom_DataDictionary::VROf(std::uint16_t(tag_ >> 16), std::uint16_t(tag_));
  if (known == Dicom_VR::SQ)
    return Dicom_CheckItems(bytes_, bytes_ + length_, false, kUnknownVREncoding, origin_->depth).ok ? known : vr_;
  bool const fits = Dicom_IsText(known) || (Dicom_UnitSize(known) > 1 && length_ % Dicom_UnitSize(known) == 0);
  return fits ? known : vr_;
}

Dicom_Type const* Dicom_ME::GetValue() const {
  return &value_.GetOr([this] { return make_value(); });
}

std::unique_ptr<Dicom_Type> Dicom_ME::make_value() const {
  std::string_view const bytes(bytes_, length_);
  if (IsEncapsulated()) return std::make_unique<Dicom_OB>(bytes_, length_, 0, nullptr, origin_->syntax_uid);
  Dicom_VR const vr = Meaning();
  if (Dicom_IsText(vr)) {
    auto const& set = tag_ == kCharacterSetTag ? Dicom_UndeclaredSet() : origin_->character_set;
    return MakeTextOf(vr, Dicom_DecodeText(bytes, vr, *set));
  }
  // what UN stands for is encoded as in implicit VR little endian, whatever the file's syntax
  bool const big_endian = vr == vr_ && origin_->encoding.big_endian;
  if (vr != Dicom_VR::SQ) return MakeBinary(vr, bytes, big_endian ? Dicom_Endianity::Big : Dicom_Endianity::Little);
  return make_sequence(vr != vr_);
}

std::unique_ptr<Dicom_Type> Dicom_ME::make_sequence(bool is_unknown) const {
  std::shared_ptr<Dicom_Origin const> origin = origin_->shared_from_this();
  if (is_unknown) {
    auto const inner = std::make_shared<Dicom_Origin>(*origin);
    inner->encoding = kUnknownVREncoding;
    origin = inner;
  }
  std::unique_ptr<Dicom_Sequence> sequence(new Dicom_Sequence(origin, bytes_, bytes_ + length_));
  auto value = std::make_unique<Dicom_SQ>(sequence.get());
  std::ignore = sequence.release(); // the value has it
  return value;
}

std::unique_ptr<Dicom_Type> Dicom_ME::unknown_as(Dicom_VR vr) const {
  if (vr_ != Dicom_VR::UN || undefined_length_ || Meaning() != Dicom_VR::UN) return nullptr;
  std::string bytes;
  GetValue()->AppendBytes(bytes);
  auto const& set = origin_ ? *origin_->character_set : *Dicom_UndeclaredSet();
  if (Dicom_IsText(vr)) return MakeTextOf(vr, Dicom_DecodeText(bytes, vr, set));
  std::size_t const unit = Dicom_UnitSize(vr);
  // what borrows its bytes would outlive them
  bool const is_number = unit > 1 && !Dicom_HasLongLength(vr) && bytes.size() % unit == 0;
  return is_number ? MakeBinary(vr, bytes, Dicom_Endianity::Little) : nullptr;
}

bool Dicom_ME::HasChanged() const {
  Dicom_Type const* const known = bytes_ ? value_.Get() : nullptr;
  if (!known || known->GetVR() != Dicom_VR::SQ) return false;
  auto const* value = dynamic_cast<Dicom_SQ const*>(known);
  return value && value->GetSequence()->HasChanged();
}

bool Dicom_ME::PlainText(std::string_view* text) const {
  Dicom_Type const* const known = value_.Get();
  if (auto const* value = known ? known->AsString() : nullptr) {
    *text = value->View();
    return true;
  }
  std::string_view bytes(bytes_, length_);
  if (!bytes_ || !Dicom_IsText(vr_) || !Dicom_IsPlainAscii(bytes)) return false;
  while (!bytes.empty() && (bytes.back() == ' ' || bytes.back() == '\0'))
    bytes.remove_suffix(1);
  *text = bytes;
  return true;
}

bool Dicom_ME::IsEmpty() const {
  std::string_view text;
  if (PlainText(&text)) return text.empty();
  if (bytes_ && vr_ != Dicom_VR::SQ && !undefined_length_) return length_ == 0;
  return GetValue()->IsEmpty();
}

std::string Dicom_ME::GetText() const {
  std::string_view text;
  return PlainText(&text) ? std::string(text) : GetValue()->GetText();
}

double Dicom_ME::number() const {
  double number = 0;
  Dicom_ParseDecimal(GetText(), &number);
  return number;
}

bool Dicom_ME::Match(Dicom_ME const& key) const {
  std::string_view text, wanted;
  if (vr_ != Dicom_VR::UN && PlainText(&text) && key.PlainText(&wanted)) return Dicom_MatchText(vr_, text, wanted);
  return GetValue()->Match(*key.GetValue()) != 0;
}

bool Dicom_ME::MatchText(std::string_view wanted) const {
  std::string_view text;
  return PlainText(&text) ? Dicom_MatchText(vr_, text, wanted) : Dicom_MatchText(vr_, GetText(), wanted);
}

unsigned Dicom_ME::FindLenFromBuffer(void const* buffer, Dicom_TransferSyntax const& syntax, Dicom_VR vr,
                                     unsigned* consumed) {
  auto const* p = static_cast<char const*>(buffer);
  bool const big_endian = syntax.IsBigEndian();
  if (syntax.IsExplicitVR() && !Dicom_HasLongLength(vr)) {
    if (consumed) *consumed = 2;
    return Dicom_Load16(p, big_endian);
  }
  bool const reserved = syntax.IsExplicitVR();
  if (consumed) *consumed = reserved ? 6 : 4;
  return Dicom_Load32(p + (reserved ? 2 : 0), big_endian);
}
