#include <dicom/Dicom_Msg.h>

#include "dicom/Dicom_DataSetReader.h"
#include "dicom/Dicom_DataSetWriter.h"
#include "dicom/Dicom_DescriptorReader.h"
#include "dicom/Dicom_Fragments.h"
#include "dicom/Dicom_ImagePixel.h"

#include <infra/Klb_LogFile.h>

#include <algorithm>
#include <climits>
#include <utility>

Dicom_Msg::Dicom_Msg() = default;
Dicom_Msg::~Dicom_Msg() = default;
Dicom_Msg::Dicom_Msg(Dicom_Msg&& other) noexcept { *this = std::move(other); }

/// The other one is empty afterwards.
Dicom_Msg& Dicom_Msg::operator=(Dicom_Msg&& other) noexcept {
  if (this == &other) return *this;
  origin_ = std::move(other.origin_);
  bytes_ = std::exchange(other.bytes_, nullptr);
  length_ = std::exchange(other.length_, 0);
  elements_ = std::move(other.elements_);
  other.elements_.clear();
  own_origin_ = std::move(other.own_origin_);
  declared_ = std::move(other.declared_);
  original_ = std::exchange(other.original_, {});
  walks_left_ = std::exchange(other.walks_left_, 0);
  changed_ = std::exchange(other.changed_, false);
  has_header_ = std::exchange(other.has_header_, false);
  return *this;
}

Dicom_Msg::Dicom_Msg(std::shared_ptr<Dicom_Origin const> origin, char const* bytes, std::size_t length)
    : origin_(std::move(origin)), bytes_(bytes), length_(length) {}

Dicom_Msg::Dicom_Msg(Dicom_Msg const& other) {
  if (other.origin_ && !other.origin_->buffer) { // bytes that a caller keeps, for as long as `other` lives
    *this = std::move(*other.detached());
    return;
  }
  origin_ = other.origin_;
  bytes_ = other.bytes_;
  length_ = other.length_;
  own_origin_ = other.own_origin_;
  original_ = other.original_;
  has_header_ = other.has_header_;
  walks_left_ = other.walks_left_;
  changed_ = other.HasChanged();
  elements_.reserve(other.elements_.size());
  // slices stay slices, as this message keeps their bytes alive too
  for (Dicom_ME const& e : other.elements_)
    elements_.push_back(e.bytes_ && !e.has_changed() ? e.same_slice() : Dicom_ME(e));
}

Dicom_Msg& Dicom_Msg::operator=(Dicom_Msg const& other) { return *this = Dicom_Msg(other); }

Dicom_Msg::Dicom_Msg(char const* buffer, unsigned length, int copy, int* error, int) {
  *error = -1;
  std::shared_ptr<Util_Buffer const> own;
  buffer = Dicom_TakeBytes(buffer, length, copy, &own);
  if (!buffer) return;
  std::string why;
  *error = take(std::move(own), Dicom_TransferSyntax::Native(), buffer, length, nullptr, &why);
  if (*error == -1) DISK_LOG(3, "Dicom_Msg: %s\n", why.c_str());
}

Dicom_Msg::Dicom_Msg(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax, int* error,
                     int) {
  *error = -1;
  if (read_length) *read_length = 0;
  std::shared_ptr<Util_Buffer const> buffer = Dicom_ReadBytesFrom(fd, length);
  if (!buffer) return;
  *this = Dicom_Msg(std::move(buffer), syntax, error);
  if (*error == 0 && read_length) *read_length = length;
}

Dicom_Msg::Dicom_Msg(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, int* error) {
  char const* const bytes = buffer->data();
  std::size_t const length = buffer->size();
  std::string why;
  *error = take(std::move(buffer), syntax, bytes, length, nullptr, &why);
  if (*error == -1) DISK_LOG(3, "Dicom_Msg: %s\n", why.c_str());
}

Dicom_Msg::Dicom_Msg(std::shared_ptr<Util_Buffer const> const& buffer, char const* bytes, std::size_t length,
                     Dicom_TransferSyntax const& syntax, Dicom_Msg const* neighbour, int* error) {
  std::string why;
  *error = take(buffer, syntax, bytes, length, neighbour, &why);
  if (*error == -1) DISK_LOG(3, "Dicom_Msg: %s\n", why.c_str());
}

int Dicom_Msg::take(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, char const* bytes,
                    std::size_t length, Dicom_Msg const* neighbour, std::string* error) {
  Dicom_Check check = Dicom_CheckDataSet(bytes, bytes + length, {syntax.IsExplicitVR(), syntax.IsBigEndian()});
  if (!check.ok) {
    *error = check.error;
    return -1;
  }
  bytes_ = bytes;
  length_ = check.length;
  has_header_ = false;
  Dicom_Origin const* const known = neighbour ? neighbour->origin_.get() : nullptr;
  bool const alike = known && known->buffer == buffer && known->canonical && check.canonical && !known->extents &&
                     check.extents.empty() && known->depth == check.depth && !known->nested_fragments &&
                     !check.nested_fragments;
  origin_ = alike ? neighbour->origin_ : Dicom_MakeOrigin(std::move(buffer), syntax, std::move(check));
  return 0;
}

namespace {

/// A value whose bytes depend on the byte order, or a nested one, declares nothing, whatever it holds.
bool MayDeclareCharacterSet(Dicom_VR vr, bool undefined_length) {
  return Dicom_UnitSize(vr) == 1 && vr != Dicom_VR::SQ && !undefined_length;
}

} // namespace

/// The origin with what the message itself says about its elements: the character set of text, and in implicit VR
/// whether pixel attributes are signed. Nested items inherit it.
Dicom_Origin const* Dicom_Msg::own_origin() const {
  if (own_origin_ || !bytes_) return own_origin_ ? own_origin_.get() : origin_.get();
  constexpr std::uint32_t kPixelRepresentation = 0x00280103;
  bool const implicit = !origin_->encoding.explicit_vr;
  std::uint32_t const last = implicit ? kPixelRepresentation : kCharacterSetTag;
  std::shared_ptr<Dicom_Origin> own;
  bool has_set = false, has_sign = false; // of two elements with one tag the first counts
  Dicom_RawElement e;
  char const* const end = bytes_ + length_;
  for (char const* p = bytes_; p < end && Dicom_ReadElement(p, end, origin_->encoding, &e, origin_->extents.get());
       p = e.next) {
    if (e.tag > last && origin_->canonical) break;
    bool const set = e.tag == kCharacterSetTag && !has_set && MayDeclareCharacterSet(e.vr, e.undefined_length);
    bool const sign = implicit && e.tag == kPixelRepresentation && !has_sign && e.length >= 2;
    if ((set || sign) && !own) own = std::make_shared<Dicom_Origin>(*origin_);
    if (set) own->character_set = Dicom_CharacterSet::Make({e.value, e.length});
    if (sign) own->signed_pixels = Dicom_Load16(e.value, false) == 1;
    has_set |= set;
    has_sign |= sign;
  }
  own_origin_ = own ? std::move(own) : origin_;
  return own_origin_.get();
}

void Dicom_Msg::parse() const {
  if (!bytes_) return;
  Dicom_Origin const* const origin = own_origin();
  char const* const end = bytes_ + length_;
  bool sorted = true;
  Dicom_RawElement raw;
  for (char const* p = bytes_; p < end && Dicom_ReadElement(p, end, origin->encoding, &raw, origin->extents.get());
       p = raw.next) {
    if (raw.tag >> 16 == 0xFFFE) continue; // a stray delimiter
    Dicom_ME e;
    e.slice(raw, origin);
    sorted = sorted && (elements_.empty() || elements_.back().tag_ < e.tag_);
    elements_.push_back(std::move(e));
  }
  bytes_ = nullptr;
  if (!sorted) { // of two elements with one tag the first counts
    auto const lower = [](Dicom_ME const& a, Dicom_ME const& b) { return a.tag_ < b.tag_; };
    auto const equal = [](Dicom_ME const& a, Dicom_ME const& b) { return a.tag_ == b.tag_; };
    std::stable_sort(elements_.begin(), elements_.end(), lower);
    elements_.erase(std::unique(elements_.begin(), elements_.end(), equal), elements_.end());
  }
}

/// Otherwise the elements are out of order perhaps, or to be looked at as a whole before their VRs are known.
bool Dicom_Msg::is_in_order() const { return bytes_ && origin_->canonical && origin_->encoding.explicit_vr; }

void Dicom_Msg::BringInOrder() {
  if (origin_ && !HasChanged()) Condense();
}

void Dicom_Msg::Condense() {
  // text by a declaration around the message would lose it
  if (is_in_order() || (origin_ && !Dicom_SameSet(*origin_->character_set, *Dicom_UndeclaredSet()))) return;
  if (GetEncapsulatedSyntax() != UI_NULL) return; // which the bytes alone don't tell
  // behind the header of an item, so that a directory file is written from here
  constexpr unsigned kHeader = 8;
  unsigned const length = GetDumpLen();
  std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(std::size_t(kHeader) + length);
  if (!bytes || Dump(bytes->data() + kHeader, length) == -1) return;
  Dicom_PutItemHeader(bytes->data(), length);
  std::string why;
  Dicom_Msg ordered;
  if (ordered.take(bytes, Dicom_TransferSyntax::Native(), bytes->data() + kHeader, length, nullptr, &why) == -1) return;
  ordered.has_header_ = true;
  *this = std::move(ordered);
}

std::size_t Dicom_Msg::position(std::uint32_t tag) const {
  auto const lower = [](Dicom_ME const& e, std::uint32_t number) { return e.tag_ < number; };
  return std::size_t(std::lower_bound(elements_.begin(), elements_.end(), tag, lower) - elements_.begin());
}

Dicom_ME const* Dicom_Msg::lookup(std::uint32_t tag, Dicom_ME& storage) const {
  if (tag == 0) return nullptr;
  if (!bytes_) {
    std::size_t const i = position(tag);
    return i < elements_.size() && elements_[i].tag_ == tag ? &elements_[i] : nullptr;
  }
  if (walks_left_ > 0 && --walks_left_ == 0) {
    parse();
    return lookup(tag, storage);
  }
  Dicom_ElementCursor cursor(*this, tag);
  if (!bytes_) return lookup(tag, storage); // its order had to be made sure of
  if (cursor.AtEnd() || cursor.Element().tag_ != tag) return nullptr;
  storage = cursor.Element().same_slice();
  return &storage;
}

std::uint32_t Dicom_Msg::Resolve(Dicom_Tag const& tag) const {
  if (tag.implementor_.empty()) return tag.number_;
  std::uint32_t const group = tag.number_ & 0xFFFF0000;
  for (Dicom_ElementCursor c(*this, group | 0x10); !c.AtEnd() && c.Element().tag_ <= (group | 0xFF); c.Next()) {
    std::string_view text;
    std::uint32_t const creator = c.Element().tag_;
    if (c.Element().plain_text(&text) ? text == tag.implementor_ : c.Element().GetText() == tag.implementor_)
      return tag.creator_ ? creator : group | (creator & 0xFF) << 8 | (tag.number_ & 0xFF);
  }
  return 0;
}

std::uint32_t Dicom_Msg::reserve(Dicom_Tag const& tag, std::uint32_t wanted) {
  std::uint32_t const found = Resolve(tag);
  if (found || tag.implementor_.empty()) return found;
  parse();
  std::uint32_t const group = tag.number_ & 0xFFFF0000;
  std::uint32_t block = wanted;
  if (!is_free_block(group | block)) block = 0x10;
  while (block <= 0xFF && !is_free_block(group | block))
    ++block;
  if (block > 0xFF) return 0;
  put(Dicom_ME(Dicom_Tag(group | block), std::make_unique<Dicom_LO>(tag.implementor_)));
  return tag.creator_ ? group | block : group | block << 8 | (tag.number_ & 0xFF);
}

/// Neither the creator element nor elements that have lost theirs.
bool Dicom_Msg::is_free_block(std::uint32_t creator) const {
  std::uint32_t const first = (creator & 0xFFFF0000) | (creator & 0xFF) << 8;
  std::size_t const i = position(creator), j = position(first);
  return (i == elements_.size() || elements_[i].tag_ != creator) &&
         (j == elements_.size() || elements_[j].tag_ > (first | 0xFF));
}

Dicom_Type const* Dicom_Msg::Get(Dicom_Tag const& tag) const {
  Dicom_ME const* element = Find(tag);
  return element ? element->GetValue() : nullptr;
}

Dicom_ME const* Dicom_Msg::Find(Dicom_Tag const& tag) const {
  parse();
  Dicom_ME unused;
  return lookup(Resolve(tag), unused);
}

bool Dicom_Msg::Has(Dicom_Tag const& tag) const {
  Dicom_ME storage;
  return lookup(Resolve(tag), storage) != nullptr;
}

std::string Dicom_Msg::Text(Dicom_Tag const& tag) const {
  Dicom_ME storage;
  Dicom_ME const* element = lookup(Resolve(tag), storage);
  return element ? element->GetText() : std::string();
}

bool Dicom_Msg::TextEquals(Dicom_Tag const& tag, std::string_view text) const {
  Dicom_ME storage;
  Dicom_ME const* element = lookup(Resolve(tag), storage);
  std::string_view own;
  if (!element) return false;
  return element->plain_text(&own) ? own == text : element->GetText() == text;
}

void Dicom_Msg::put(Dicom_ME element) {
  parse();
  changed_ = true;
  std::size_t const i = position(element.tag_);
  if (i < elements_.size() && elements_[i].tag_ == element.tag_) {
    elements_[i] = std::move(element);
  } else {
    elements_.insert(elements_.begin() + std::ptrdiff_t(i), std::move(element));
  }
}

namespace {

/// Not of a delimiter, and not of a private attribute without a block.
bool IsElementTag(std::uint32_t tag) {
  std::uint32_t const group = tag >> 16, element = tag & 0xFFFF;
  bool const block_known = (element >= 0x10 && element <= 0xFF) || element >= 0x1000;
  return group != 0xFFFE && (group % 2 == 0 || element == 0 || block_known);
}

} // namespace

int Dicom_Msg::Set(Dicom_Tag const& tag, Dicom_Type const* value) {
  if (!value || (tag.implementor_.empty() && !IsElementTag(tag.number_))) return -1;
  std::uint32_t const number = reserve(tag);
  if (number == 0) return -1;
  put(Dicom_ME(Dicom_Tag(number), value->Clone()));
  return 0;
}

int Dicom_Msg::Remove(Dicom_Tag const& tag) {
  parse();
  std::uint32_t const number = Resolve(tag);
  std::size_t const i = position(number);
  if (number == 0 || i == elements_.size() || elements_[i].tag_ != number) return 0;
  elements_.erase(elements_.begin() + std::ptrdiff_t(i));
  changed_ = true;
  return 0;
}

int Dicom_Msg::Add(Dicom_ME* element, int copy) {
  if (!element || !IsElementTag(element->tag_)) return -1;
  if (copy) {
    put(Dicom_ME(*element));
  } else {
    std::unique_ptr<Dicom_ME> const taken(element);
    put(std::move(*taken));
  }
  return 0;
}

int Dicom_Msg::Add(Dicom_ME element) {
  if (!IsElementTag(element.tag_)) return -1;
  put(std::move(element));
  return 0;
}

int Dicom_Msg::GetNElements() const {
  parse();
  return int(elements_.size());
}

Dicom_ME const* Dicom_Msg::GetElement(int i) const {
  parse();
  return i >= 0 && std::size_t(i) < elements_.size() ? &elements_[std::size_t(i)] : nullptr;
}

int Dicom_Msg::Update(Dicom_Msg const& other, bool replace, bool only_existing) {
  int result = 0;
  for (int i = 0; i < other.GetNElements(); ++i) {
    Dicom_ME const& e = *other.GetElement(i);
    Dicom_Tag tag = e.GetTag();
    tag.Unresolve(other);
    if (other.Resolve(tag) != e.tag_) tag = e.GetTag(); // a creator's second block; its attributes stay in it
    bool const known = Has(tag);
    if ((known && (!replace || tag.creator_)) || (!known && only_existing)) continue;
    Dicom_ME copy(e);
    copy.tag_ = reserve(tag, (tag.creator_ ? e.tag_ : e.tag_ >> 8) & 0xFF);
    if (copy.tag_) {
      put(std::move(copy));
    } else {
      result = -1;
    }
  }
  return result;
}

bool Dicom_Msg::HasChanged() const {
  return changed_ || std::any_of(elements_.begin(), elements_.end(), [](Dicom_ME const& e) { return e.has_changed(); });
}

bool Dicom_Msg::IsEmpty() const { return bytes_ ? length_ == 0 : elements_.empty(); }

unsigned Dicom_Msg::GetDumpLen() const { return GetDumpLen(Dicom_TransferSyntax::Native(), 0, {}); }

unsigned Dicom_Msg::GetDumpLen(Dicom_TransferSyntax const& syntax, int, SCompressionParms const&) const {
  Dicom_DataSetWriter writer({syntax.IsExplicitVR(), syntax.IsBigEndian()});
  writer.Message(*this);
  return unsigned(writer.Length());
}

int Dicom_Msg::Dump(char* buffer, unsigned length) const {
  return Dump(buffer, length, Dicom_TransferSyntax::Native(), 0, nullptr);
}

int Dicom_Msg::Dump(char* buffer, unsigned length, Dicom_TransferSyntax const& syntax, int, void*) const {
  if (!buffer) return -1;
  Dicom_DataSetWriter writer({syntax.IsExplicitVR(), syntax.IsBigEndian()}, buffer, length);
  writer.Message(*this);
  return writer.Ok() && writer.Length() == length && length <= INT_MAX ? int(length) : -1;
}

std::unique_ptr<Dicom_Msg> Dicom_Msg::detached() const {
  auto copy = std::make_unique<Dicom_Msg>();
  auto origin = std::make_shared<Dicom_Origin>();
  if (origin_) *origin = *origin_;
  origin->extents = nullptr;
  origin->buffer = Util_Buffer::Make(0);
  if (!bytes_) {
    copy->origin_ = std::move(origin);
    copy->elements_.reserve(elements_.size());
    for (Dicom_ME const& e : elements_)
      copy->elements_.push_back(Dicom_ME(e));
    return copy;
  }
  std::shared_ptr<Util_Buffer> const own = Util_Buffer::Make(length_);
  if (!own) return copy;
  std::copy(bytes_, bytes_ + length_, own->data());
  Dicom_Check check = Dicom_CheckDataSet(own->data(), own->data() + length_, origin->encoding);
  origin->extents = std::make_shared<Dicom_Extents const>(std::move(check.extents));
  origin->canonical = check.canonical;
  origin->depth = check.depth;
  origin->buffer = own;
  copy->origin_ = std::move(origin);
  copy->bytes_ = own->data();
  copy->length_ = check.length;
  return copy;
}

// Character sets

Dicom_CharacterSet const& Dicom_Msg::GetCharacterSet() const {
  if (bytes_) return *own_origin()->character_set;
  declared_ = declared_set();
  if (declared_) return *declared_;
  return origin_ ? *origin_->character_set : *Dicom_UndeclaredSet();
}

std::shared_ptr<Dicom_CharacterSet const> Dicom_Msg::declared_set() const {
  parse();
  std::size_t const i = position(kCharacterSetTag);
  if (i == elements_.size() || elements_[i].tag_ != kCharacterSetTag) return nullptr;
  Dicom_ME const& e = elements_[i];
  if (!MayDeclareCharacterSet(e.vr_, e.undefined_length_)) return nullptr;
  return e.bytes_ ? e.origin_->character_set : Dicom_CharacterSet::Make(e.GetText());
}

void Dicom_Msg::SettleCharacterSet() {
  if (!HasChanged() || settle(*Dicom_UndeclaredSet())) return;
  put(Dicom_ME(Dicom_Tag(kCharacterSetTag), std::make_unique<Dicom_CS>("ISO_IR 192")));
}

bool Dicom_Msg::settle(Dicom_CharacterSet const& surrounding) {
  // what nobody changed is written as it was read, whatever its text
  if (bytes_ && Dicom_SameSet(*origin_->character_set, surrounding)) return true;
  parse();
  std::shared_ptr<Dicom_CharacterSet const> const own = declared_set();
  Dicom_CharacterSet const& set = own ? *own : surrounding;
  bool fits = true;
  for (Dicom_ME const& e : elements_) {
    bool const as_read = e.bytes_ && !e.has_changed() && Dicom_SameSet(*e.origin_->character_set, set);
    Dicom_VR const vr = e.meaning();
    if (as_read) continue;
    if (Dicom_IsText(vr)) {
      if (e.tag_ == kCharacterSetTag) continue;
      fits = fits && Dicom_CanEncodeText(e.GetText(), vr, set);
    } else if (vr == Dicom_VR::SQ) {
      auto const* value = dynamic_cast<Dicom_SQ const*>(e.GetValue());
      for (int i = 0; value && i < value->GetNValues(); ++i)
        fits = value->GetSequence()->Get(i)->settle(set) && fits;
    }
  }
  if (fits || !own) return fits;
  put(Dicom_ME(Dicom_Tag(kCharacterSetTag), std::make_unique<Dicom_CS>("ISO_IR 192")));
  return true;
}

// Pixels

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
  if (!origin_ || !origin_->nested_fragments) return false;
  parse();
  return std::any_of(elements_.begin(), elements_.end(), [](Dicom_ME const& e) {
    auto const* const items = e.meaning() == Dicom_VR::SQ ? dynamic_cast<Dicom_SQ const*>(e.GetValue()) : nullptr;
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
  Dicom_ME const* pixels = Find(Dicom_Tag(kPixelDataTag));
  if (pixels) {
    auto const* value = pixels->IsEncapsulated() ? dynamic_cast<Dicom_OtherType const*>(pixels->GetValue()) : nullptr;
    return value ? Dicom_UI(value->EncapsulatedSyntax()) : UI_NULL;
  }
  if (!origin_) return UI_NULL;
  if (has_nested_fragments()) return Dicom_UI(origin_->syntax_uid);
  return Has(kPixelDataProvider) ? ReferenceSyntax(origin_->syntax_uid) : UI_NULL;
}

char const* Dicom_Msg::GetPixelContradiction() const {
  Dicom_UI const syntax = GetEncapsulatedSyntax();
  if (syntax != UI_NULL)
    return IsCompressedSyntax(syntax.View()) ? nullptr : "its pixels are in fragments, its transfer syntax has none";
  if (has_nested_fragments()) return "its icon is compressed, its own pixels aren't";
  // of defined length they are native, whatever the syntax says, unless their length shows that they aren't
  Dicom_ME const* pixels = Find(Dicom_Tag(kPixelDataTag));
  bool const doubtful = pixels && pixels->bytes_ && IsCompressedSyntax(pixels->origin_->syntax_uid);
  if (!doubtful || Dicom_ImagePixel(*this).IsLengthOfPixels(pixels->length_)) return nullptr;
  return "its transfer syntax is a compressed one, its pixels are neither in fragments nor of native length";
}

// Cursor

Dicom_ElementCursor::Dicom_ElementCursor(Dicom_Msg const& msg, std::uint32_t first) : msg_(msg) {
  if (msg.bytes_ && !msg.is_in_order()) msg.parse();
  if (msg.bytes_) {
    next_ = msg.bytes_;
    end_ = msg.bytes_ + msg.length_;
  } else {
    index_ = first == 0 ? 0 : msg.position(first);
  }
  read(first);
}

void Dicom_ElementCursor::Next() { read(0); }

void Dicom_ElementCursor::Seek(std::uint32_t tag) {
  if (current_ && current_->tag_ < tag) read(tag);
}

/// Goes on to the next element from `first` on; those before it aren't looked at closely.
void Dicom_ElementCursor::read(std::uint32_t first) {
  current_ = nullptr;
  if (!next_) {
    while (index_ < msg_.elements_.size() && msg_.elements_[index_].tag_ < first)
      ++index_;
    if (index_ < msg_.elements_.size()) current_ = &msg_.elements_[index_++];
    return;
  }
  Dicom_RawElement raw;
  Dicom_Origin const& origin = *msg_.origin_;
  next_ = Dicom_SkipElements(next_, end_, origin.encoding, first);
  do {
    if (next_ >= end_ || !Dicom_ReadElement(next_, end_, origin.encoding, &raw, origin.extents.get())) return;
    next_ = raw.next;
  } while (raw.tag < first);
  bool const may_hold_text = raw.vr == Dicom_VR::SQ || raw.vr == Dicom_VR::UN ||
                             (Dicom_IsText(raw.vr) && !Dicom_IsPlainAscii({raw.value, raw.length}));
  raw_.slice(raw, may_hold_text ? msg_.own_origin() : &origin);
  current_ = &raw_;
}
