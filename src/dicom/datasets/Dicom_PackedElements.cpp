#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Dicom_Elements.h>
#include <dicom/Dicom_ME.h>

#include <algorithm>
#include <new>
#include <utility>

Dicom_PackedElements::Dicom_PackedElements(std::shared_ptr<Dicom_Origin const> origin, char const* bytes,
                                           std::size_t length, bool has_header)
    : Dicom_Elements(std::move(origin)), bytes_(bytes), length_(length), has_header_(has_header) {}

Dicom_PackedElements::Dicom_PackedElements(Dicom_PackedElements const& other)
    : Dicom_Elements(other), bytes_(other.bytes_), length_(other.length_),
      asked_left_(other.asked_left_.load(std::memory_order_relaxed)), has_header_(other.has_header_) {}

Dicom_PackedElements::Dicom_PackedElements(Dicom_PackedElements&& other) noexcept
    : Dicom_Elements(std::move(other)), bytes_(std::exchange(other.bytes_, nullptr)),
      length_(std::exchange(other.length_, 0)), own_origin_(std::move(other.own_origin_)),
      asked_left_(other.asked_left_.load(std::memory_order_relaxed)), has_header_(other.has_header_) {}

Dicom_PackedElements& Dicom_PackedElements::operator=(Dicom_PackedElements&& other) noexcept {
  Dicom_Elements::operator=(std::move(other));
  bytes_ = std::exchange(other.bytes_, nullptr);
  length_ = std::exchange(other.length_, 0);
  own_origin_ = std::move(other.own_origin_);
  asked_left_.store(other.asked_left_.load(std::memory_order_relaxed), std::memory_order_relaxed);
  has_header_ = other.has_header_;
  return *this;
}

Dicom_PackedElements::~Dicom_PackedElements() = default;

namespace {

/// Whether the origin of a neighbour in the same buffer says all that the check of other bytes there has found.
bool Serves(Dicom_Origin const& known, Util_Buffer const* buffer, Dicom_Check const& check) {
  return known.buffer.get() == buffer && known.canonical && check.canonical && !known.extents &&
         check.extents.empty() && known.depth == check.depth && !known.nested_fragments && !check.nested_fragments;
}

bool DeclaresCharacterSet(Dicom_RawElement const& e) {
  return e.tag == kCharacterSetTag && Dicom_MayDeclareCharacterSet(e.vr, e.undefined_length);
}

} // namespace

int Dicom_PackedElements::Read(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax,
                               char const* bytes, std::size_t length, Dicom_Elements const* neighbour,
                               std::string* error) {
  Dicom_Check check = Dicom_CheckDataSet(bytes, bytes + length, {syntax.IsExplicitVR(), syntax.IsBigEndian()});
  if (!check.ok) {
    *error = check.error;
    return -1;
  }
  std::size_t const checked = check.length;
  bool const shared = neighbour && neighbour->Origin() && Serves(*neighbour->Origin(), buffer.get(), check);
  *this = Dicom_PackedElements(
      shared ? neighbour->Origin() : Dicom_MakeOrigin(std::move(buffer), syntax, std::move(check)), bytes, checked);
  return 0;
}

void Dicom_PackedElements::ExpectManyAsked() {
  constexpr int kMany = 8; // an object is asked for many attributes, or for hardly any
  asked_left_.store(kMany, std::memory_order_relaxed);
}

bool Dicom_PackedElements::IsInOrder() const {
  return !bytes_ || (origin_->canonical && origin_->encoding.explicit_vr);
}

bool Dicom_PackedElements::IsWorthOpening() const {
  if (!IsInOrder()) return true;
  int const left = asked_left_.load(std::memory_order_relaxed);
  if (left > 0) asked_left_.store(left - 1, std::memory_order_relaxed);
  return left == 0 || left == 1;
}

bool Dicom_PackedElements::Next(char const** place, std::uint32_t first, Dicom_ME& element) const {
  if (!bytes_) return false;
  char const* const end = bytes_ + length_;
  Dicom_Origin const& origin = *origin_;
  Dicom_RawElement raw;
  raw.next = Dicom_SkipElements(*place, end, origin.encoding, first);
  do {
    if (raw.next >= end || !Dicom_ReadElement(raw.next, end, origin.encoding, &raw, origin.extents.get())) return false;
  } while (raw.tag < first);
  *place = raw.next;
  bool const may_hold_text = raw.vr == Dicom_VR::SQ || raw.vr == Dicom_VR::UN ||
                             (Dicom_IsText(raw.vr) && !Dicom_IsPlainAscii({raw.value, raw.length}));
  element.Slice(raw, may_hold_text ? kept_own_origin().get() : &origin);
  return true;
}

Dicom_ME const* Dicom_PackedElements::Find(std::uint32_t tag, Dicom_ME& storage) const {
  char const* place = bytes_;
  return Next(&place, tag, storage) && storage.GetTag().Number() == tag ? &storage : nullptr;
}

Dicom_CharacterSet const& Dicom_PackedElements::CharacterSet() const {
  return bytes_ ? *kept_own_origin()->character_set : *Dicom_UndeclaredSet();
}

std::shared_ptr<Dicom_Origin const> Dicom_PackedElements::OwnOrigin() const {
  auto const* const kept = own_origin_.Get();
  return kept ? *kept : make_own_origin();
}

std::shared_ptr<Dicom_Origin const> const& Dicom_PackedElements::kept_own_origin() const {
  return own_origin_.GetOr([this] { return std::make_unique<std::shared_ptr<Dicom_Origin const>>(make_own_origin()); });
}

std::shared_ptr<Dicom_Origin const> Dicom_PackedElements::make_own_origin() const {
  constexpr std::uint32_t kPixelRepresentation = 0x00280103;
  if (!bytes_) return origin_;
  bool const implicit = !origin_->encoding.explicit_vr;
  std::uint32_t const last = implicit ? kPixelRepresentation : kCharacterSetTag;
  std::shared_ptr<Dicom_Origin> own;
  bool has_set = false, has_sign = false; // of two elements with one tag the first counts
  Dicom_RawElement e;
  char const* const end = bytes_ + length_;
  for (char const* p = bytes_; p < end && Dicom_ReadElement(p, end, origin_->encoding, &e, origin_->extents.get());
       p = e.next) {
    if (e.tag > last && origin_->canonical) break;
    bool const set = !has_set && DeclaresCharacterSet(e);
    bool const sign = implicit && e.tag == kPixelRepresentation && !has_sign && e.length >= 2;
    if ((set || sign) && !own) own = std::make_shared<Dicom_Origin>(*origin_);
    if (set) own->character_set = Dicom_CharacterSet::Make({e.value, e.length});
    if (sign) own->signed_pixels = Dicom_Load16(e.value, false) == 1;
    has_set |= set;
    has_sign |= sign;
  }
  if (own) return own;
  return origin_;
}

void Dicom_PackedElements::Drop() {
  origin_.reset();
  bytes_ = nullptr;
  length_ = 0;
  own_origin_.Reset();
}

Dicom_PackedElements Dicom_PackedElements::Detached() const {
  std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(length_);
  if (!bytes) throw std::bad_alloc();
  auto origin = std::make_shared<Dicom_Origin>();
  if (origin_) *origin = *origin_;
  std::copy(bytes_, bytes_ + length_, bytes->data());
  Dicom_Check check = Dicom_CheckDataSet(bytes->data(), bytes->data() + length_, origin->encoding);
  origin->extents = std::make_shared<Dicom_Extents const>(std::move(check.extents));
  origin->canonical = check.canonical;
  origin->depth = check.depth;
  origin->buffer = bytes;
  return Dicom_PackedElements(std::move(origin), bytes->data(), check.length);
}
