#include "dicom/datasets/Dicom_OpenElements.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <algorithm>
#include <utility>

namespace {

std::uint32_t NumberOf(Dicom_ME const& e) { return e.GetTag().Number(); }
bool IsLower(Dicom_ME const& a, Dicom_ME const& b) { return NumberOf(a) < NumberOf(b); }

} // namespace

Dicom_OpenElements::Dicom_OpenElements(Dicom_PackedElements const& packed)
    : Dicom_Elements(packed.Origin()), own_origin_(packed.OwnOrigin()) {
  constexpr std::size_t kFew = 8; // few messages have less
  elements_.reserve(kFew);
  if (packed.IsEmpty()) return;
  Dicom_Origin const& origin = *own_origin_;
  char const* const end = packed.Bytes() + packed.Length();
  bool sorted = true;
  Dicom_RawElement raw;
  for (char const* p = packed.Bytes();
       p < end && Dicom_ReadElement(p, end, origin.encoding, &raw, origin.extents.get()); p = raw.next) {
    if (raw.tag >> 16 == 0xFFFE) continue; // a stray delimiter
    sorted = sorted && (elements_.empty() || NumberOf(elements_.back()) < raw.tag);
    elements_.emplace_back().Slice(raw, &origin);
  }
  if (!sorted) sort();
}

/// Of two elements with one tag the first counts.
void Dicom_OpenElements::sort() {
  auto const is_same = [](Dicom_ME const& a, Dicom_ME const& b) { return NumberOf(a) == NumberOf(b); };
  std::stable_sort(elements_.begin(), elements_.end(), IsLower);
  elements_.erase(std::unique(elements_.begin(), elements_.end(), is_same), elements_.end());
}

Dicom_OpenElements::Dicom_OpenElements(Dicom_OpenElements const& other)
    : Dicom_Elements(other), own_origin_(other.own_origin_), changed_(other.HasChanged()) {
  elements_.reserve(other.elements_.size());
  for (Dicom_ME const& e : other.elements_)
    elements_.push_back(e.IsSlice() && !e.HasChanged() ? e.SameSlice() : Dicom_ME(e));
}

std::unique_ptr<Dicom_OpenElements> Dicom_OpenElements::Detached() const {
  auto copy = std::make_unique<Dicom_OpenElements>();
  auto const origin = origin_ ? std::make_shared<Dicom_Origin>(*origin_) : std::make_shared<Dicom_Origin>();
  origin->extents = nullptr;
  origin->buffer = Util_Buffer::Make(0);
  copy->origin_ = origin;
  copy->elements_ = elements_;
  return copy;
}

bool Dicom_OpenElements::HasChanged() const {
  return changed_ || std::any_of(elements_.begin(), elements_.end(), [](Dicom_ME const& e) { return e.HasChanged(); });
}

std::size_t Dicom_OpenElements::Position(std::uint32_t tag) const {
  auto const is_lower = [](Dicom_ME const& e, std::uint32_t number) { return NumberOf(e) < number; };
  return std::size_t(std::lower_bound(elements_.begin(), elements_.end(), tag, is_lower) - elements_.begin());
}

Dicom_ME const* Dicom_OpenElements::Find(std::uint32_t tag, Dicom_ME&) const {
  std::size_t const i = Position(tag);
  return has(i, tag) ? &elements_[i] : nullptr;
}

bool Dicom_OpenElements::IsFreeBlock(std::uint32_t creator) const {
  std::uint32_t const first = (creator & 0xFFFF0000) | (creator & 0xFF) << 8;
  std::size_t const i = Position(first);
  return !Has(creator) && (i == elements_.size() || NumberOf(elements_[i]) > (first | 0xFF));
}

Dicom_CharacterSet const* Dicom_OpenElements::Declared() const {
  std::size_t const i = Position(kCharacterSetTag);
  if (!has(i, kCharacterSetTag)) return nullptr;
  Dicom_ME const& e = elements_[i];
  if (!Dicom_MayDeclareCharacterSet(e.GetVR(), e.HasUndefinedLength())) return nullptr;
  if (e.IsSlice()) return e.Origin()->character_set.get();
  auto const make = [&e] {
    return std::make_unique<std::shared_ptr<Dicom_CharacterSet const>>(Dicom_CharacterSet::Make(e.GetText()));
  };
  return declared_.GetOr(make).get();
}

Dicom_CharacterSet const& Dicom_OpenElements::CharacterSet() const {
  if (Dicom_CharacterSet const* const declared = Declared()) return *declared;
  return origin_ ? *origin_->character_set : *Dicom_UndeclaredSet();
}

void Dicom_OpenElements::Put(Dicom_ME element) {
  std::uint32_t const tag = NumberOf(element);
  std::size_t const i = Position(tag);
  changed_ = true;
  if (tag == kCharacterSetTag) declared_.Reset();
  if (has(i, tag)) {
    elements_[i] = std::move(element);
  } else {
    elements_.insert(elements_.begin() + std::ptrdiff_t(i), std::move(element));
  }
}

void Dicom_OpenElements::Remove(std::uint32_t tag) {
  if (tag == kCharacterSetTag) declared_.Reset();
  elements_.erase(elements_.begin() + std::ptrdiff_t(Position(tag)));
  changed_ = true;
}
