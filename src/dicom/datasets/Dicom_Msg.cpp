#include <dicom/Dicom_Msg.h>

#include "dicom/datasets/Dicom_DataSetWriter.h"
#include "dicom/datasets/Dicom_OpenElements.h"
#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/encoding/Dicom_DescriptorReader.h"

#include <infra/Klb_LogFile.h>

#include <algorithm>
#include <climits>
#include <utility>

Dicom_Msg::Dicom_Msg() = default;
Dicom_Msg::~Dicom_Msg() = default;
Dicom_Msg::Dicom_Msg(Dicom_PackedElements elements) : packed_(std::move(elements)) {}

/// The other one is empty afterwards.
Dicom_Msg::Dicom_Msg(Dicom_Msg&& other) noexcept
    : packed_(std::move(other.packed_)), open_(std::move(other.open_)), original_(std::exchange(other.original_, {})) {}

Dicom_Msg& Dicom_Msg::operator=(Dicom_Msg&& other) noexcept {
  if (this == &other) return *this;
  packed_ = std::move(other.packed_);
  open_ = std::move(other.open_);
  original_ = std::exchange(other.original_, {});
  return *this;
}

Dicom_Msg::Dicom_Msg(Dicom_Msg const& other) {
  Dicom_Origin const* const origin = other.elements().Origin().get();
  Dicom_OpenElements const* const open = other.open_.Get();
  if (origin && !origin->buffer) { // bytes that a caller keeps, for as long as `other` lives
    *this = other.Detached();
  } else if (open && !other.AsRead()) {
    open_.Reset(std::make_unique<Dicom_OpenElements>(*open));
    original_ = other.original_;
  } else {
    packed_ = other.packed_;
    original_ = other.original_;
  }
}

Dicom_Msg& Dicom_Msg::operator=(Dicom_Msg const& other) { return *this = Dicom_Msg(other); }

Dicom_Msg Dicom_Msg::Detached() const {
  Dicom_PackedElements const* const packed = AsRead();
  if (packed) return Dicom_Msg(packed->Detached());
  Dicom_Msg copy;
  if (open_.Get()) copy.open_.Reset(open_.Get()->Detached());
  return copy;
}

// Reading

int Dicom_Msg::read(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, char const* bytes,
                    std::size_t length, Dicom_Elements const* neighbour) {
  std::string why;
  if (packed_.Read(std::move(buffer), syntax, bytes, length, neighbour, &why) == 0) return 0;
  DISK_LOG(3, "Dicom_Msg: %s\n", why.c_str());
  return -1;
}

Dicom_Msg::Dicom_Msg(char const* buffer, unsigned length, int copy, int* error, int) {
  std::shared_ptr<Util_Buffer const> own;
  buffer = Dicom_TakeBytes(buffer, length, copy, &own);
  *error = buffer ? read(std::move(own), Dicom_TransferSyntax::Native(), buffer, length) : -1;
}

Dicom_Msg::Dicom_Msg(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax, int* error,
                     int) {
  std::shared_ptr<Util_Buffer const> const buffer = Dicom_ReadBytesFrom(fd, length);
  *error = buffer ? read(buffer, syntax, buffer->data(), length) : -1;
  if (read_length) *read_length = *error == 0 ? length : 0;
}

Dicom_Msg::Dicom_Msg(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, int* error) {
  char const* const bytes = buffer->data();
  std::size_t const length = buffer->size();
  *error = read(std::move(buffer), syntax, bytes, length);
}

Dicom_Msg::Dicom_Msg(std::shared_ptr<Util_Buffer const> const& buffer, char const* bytes, std::size_t length,
                     Dicom_TransferSyntax const& syntax, Dicom_Msg const* neighbour, int* error) {
  *error = read(buffer, syntax, bytes, length, neighbour ? &neighbour->elements() : nullptr);
}

void Dicom_Msg::SetOriginalBuffer(std::shared_ptr<Util_Buffer const> const& file) {
  // the origin keeps the bytes alive
  Dicom_Origin const* const origin = elements().Origin().get();
  if (file && origin && origin->buffer == file) original_ = {file->data(), file->size()};
}

// The two forms

/// The form that tells the whole truth: items that were got from the open form may have been changed.
Dicom_Elements const& Dicom_Msg::elements() const {
  if (Dicom_OpenElements const* const open = open_.Get()) return *open;
  return packed_;
}

Dicom_PackedElements const* Dicom_Msg::AsRead(bool is_unchanged) const {
  return packed_.Holds() && (is_unchanged || !HasChanged()) ? &packed_ : nullptr;
}

Dicom_PackedElements const* Dicom_Msg::ToWalk() const {
  return open_.Get() || !packed_.IsInOrder() ? nullptr : &packed_;
}

Dicom_OpenElements const& Dicom_Msg::Opened() const {
  return open_.GetOr([this] { return std::make_unique<Dicom_OpenElements>(packed_); });
}

Dicom_OpenElements& Dicom_Msg::open() {
  Dicom_OpenElements* const known = open_.Get();
  if (!known) open_.Reset(std::make_unique<Dicom_OpenElements>(packed_));
  if (packed_.Holds()) packed_.Drop();
  return known ? *known : *open_.Get();
}

void Dicom_Msg::BringInOrder() {
  if (elements().Origin() && !HasChanged()) Condense();
}

void Dicom_Msg::Condense() {
  if (!HasChanged() && packed_.Holds() && packed_.IsInOrder()) return open_.Reset();
  Dicom_Origin const* const origin = elements().Origin().get();
  // text by a declaration around the message would lose it
  if (origin && !Dicom_SameSet(*origin->character_set, *Dicom_UndeclaredSet())) return;
  if (GetEncapsulatedSyntax() != UI_NULL) return; // which the bytes alone don't tell
  // behind the header of an item, so that a directory file is written from here
  constexpr unsigned kHeader = 8;
  unsigned const length = GetDumpLen();
  std::shared_ptr<Util_Buffer> const bytes = Util_Buffer::Make(std::size_t(kHeader) + length);
  if (!bytes || Dump(bytes->data() + kHeader, length) == -1) return;
  Dicom_PutItemHeader(bytes->data(), length);
  std::string why;
  Dicom_PackedElements ordered;
  char const* const start = bytes->data() + kHeader;
  if (ordered.Read(bytes, Dicom_TransferSyntax::Native(), start, length, nullptr, &why) == -1) return;
  *this = Dicom_Msg(Dicom_PackedElements(ordered.Origin(), start, ordered.Length(), true));
}

bool Dicom_Msg::HasChanged() const { return elements().HasChanged(); }

bool Dicom_Msg::IsEmpty() const { return elements().IsEmpty(); }

// Finding

Dicom_ME const* Dicom_Msg::lookup(std::uint32_t tag, Dicom_ME& storage) const {
  if (tag == 0) return nullptr;
  if (!open_.Get() && packed_.IsWorthOpening()) return Opened().Find(tag, storage);
  return elements().Find(tag, storage);
}

std::uint32_t Dicom_Msg::Resolve(Dicom_Tag const& tag) const {
  if (tag.implementor_.empty()) return tag.number_;
  std::uint32_t const group = tag.number_ & 0xFFFF0000;
  for (Dicom_ElementCursor c(*this, group | 0x10); !c.AtEnd(); c.Next()) {
    std::uint32_t const creator = c.Element().GetTag().Number();
    if (creator > (group | 0xFF)) break;
    std::string_view text;
    if (c.Element().PlainText(&text) ? text == tag.implementor_ : c.Element().GetText() == tag.implementor_)
      return tag.creator_ ? creator : group | (creator & 0xFF) << 8 | (tag.number_ & 0xFF);
  }
  return 0;
}

Dicom_Type const* Dicom_Msg::Get(Dicom_Tag const& tag) const {
  Dicom_ME const* element = Find(tag);
  return element ? element->GetValue() : nullptr;
}

Dicom_ME const* Dicom_Msg::Find(Dicom_Tag const& tag) const {
  Dicom_ME unused;
  Dicom_OpenElements const& opened = Opened();
  std::uint32_t const number = Resolve(tag);
  return number == 0 ? nullptr : opened.Find(number, unused);
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
  return element->PlainText(&own) ? own == text : element->GetText() == text;
}

int Dicom_Msg::GetNElements() const { return int(Opened().All().size()); }

Dicom_ME const* Dicom_Msg::GetElement(int i) const {
  auto const& all = Opened().All();
  return i >= 0 && std::size_t(i) < all.size() ? &all[std::size_t(i)] : nullptr;
}

// Changing

std::uint32_t Dicom_Msg::reserve(Dicom_Tag const& tag, std::uint32_t wanted) {
  std::uint32_t const found = Resolve(tag);
  if (found || tag.implementor_.empty()) return found;
  Dicom_OpenElements const& known = Opened();
  std::uint32_t const group = tag.number_ & 0xFFFF0000;
  std::uint32_t block = wanted;
  if (!known.IsFreeBlock(group | block)) block = 0x10;
  while (block <= 0xFF && !known.IsFreeBlock(group | block))
    ++block;
  if (block > 0xFF) return 0;
  open().Put(Dicom_ME(Dicom_Tag(group | block), std::make_unique<Dicom_LO>(tag.implementor_)));
  return tag.creator_ ? group | block : group | block << 8 | (tag.number_ & 0xFF);
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
  open().Put(Dicom_ME(Dicom_Tag(number), value->Clone()));
  return 0;
}

int Dicom_Msg::Remove(Dicom_Tag const& tag) {
  std::uint32_t const number = Resolve(tag);
  if (number != 0 && Opened().Has(number)) open().Remove(number);
  return 0;
}

int Dicom_Msg::Add(Dicom_ME* element, int copy) {
  if (!element || !IsElementTag(element->GetTag().Number())) return -1;
  if (copy) {
    open().Put(Dicom_ME(*element));
  } else {
    std::unique_ptr<Dicom_ME> const taken(element);
    open().Put(std::move(*taken));
  }
  return 0;
}

int Dicom_Msg::Add(Dicom_ME element) {
  if (!IsElementTag(element.GetTag().Number())) return -1;
  open().Put(std::move(element));
  return 0;
}

int Dicom_Msg::Update(Dicom_Msg const& other, bool replace, bool only_existing) {
  int result = 0;
  for (Dicom_ME const& e : other.Opened().All()) {
    std::uint32_t const place = e.GetTag().Number();
    Dicom_Tag tag(place);
    tag.Unresolve(other);
    if (other.Resolve(tag) != place) tag = Dicom_Tag(place); // a creator's second block; its attributes stay in it
    bool const known = Has(tag);
    if ((known && (!replace || tag.creator_)) || (!known && only_existing)) continue;
    Dicom_ME copy(e);
    std::uint32_t const number = reserve(tag, (tag.creator_ ? place : place >> 8) & 0xFF);
    if (number) {
      copy.Renumber(number);
      open().Put(std::move(copy));
    } else {
      result = -1;
    }
  }
  return result;
}

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

// Character sets

Dicom_CharacterSet const& Dicom_Msg::GetCharacterSet() const { return elements().CharacterSet(); }

namespace {

Dicom_ME Utf8Declaration() { return Dicom_ME(Dicom_Tag(kCharacterSetTag), std::make_unique<Dicom_CS>("ISO_IR 192")); }

bool IsAsRead(Dicom_ME const& e, Dicom_CharacterSet const& set) {
  return e.IsSlice() && !e.HasChanged() && Dicom_SameSet(*e.Origin()->character_set, set);
}

} // namespace

void Dicom_Msg::SettleCharacterSet() {
  if (HasChanged() && !settle(*Dicom_UndeclaredSet())) open().Put(Utf8Declaration());
}

bool Dicom_Msg::settle(Dicom_CharacterSet const& surrounding) {
  // what nobody changed is written as it was read, whatever its text
  Dicom_PackedElements const* const as_read = AsRead();
  if (as_read && Dicom_SameSet(*as_read->Origin()->character_set, surrounding)) return true;
  Dicom_CharacterSet const* const own = Opened().Declared();
  Dicom_CharacterSet const& set = own ? *own : surrounding;
  bool fits = true;
  for (Dicom_ME const& e : Opened().All()) {
    if (IsAsRead(e, set)) continue;
    Dicom_VR const vr = e.Meaning();
    if (Dicom_IsText(vr) && e.GetTag().Number() != kCharacterSetTag)
      fits = fits && Dicom_CanEncodeText(e.GetText(), vr, set);
    auto const* const value = vr == Dicom_VR::SQ ? dynamic_cast<Dicom_SQ const*>(e.GetValue()) : nullptr;
    for (int i = 0; value && i < value->GetNValues(); ++i)
      fits = value->GetSequence()->Get(i)->settle(set) && fits;
  }
  if (fits || !own) return fits;
  open().Put(Utf8Declaration());
  return true;
}

// Cursor

Dicom_ElementCursor::Dicom_ElementCursor(Dicom_Msg const& msg, std::uint32_t first) : packed_(msg.ToWalk()) {
  if (packed_) {
    place_ = packed_->Bytes();
  } else {
    Dicom_OpenElements const& open = msg.Opened();
    next_ = open.All().data() + (first == 0 ? 0 : open.Position(first));
    end_ = open.All().data() + open.All().size();
  }
  read(first);
}

void Dicom_ElementCursor::Next() { read(0); }

void Dicom_ElementCursor::Seek(std::uint32_t tag) {
  if (current_ && current_->GetTag().Number() < tag) read(tag);
}

/// Goes on to the next element from `first` on; those before it aren't looked at closely.
void Dicom_ElementCursor::read(std::uint32_t first) {
  if (packed_) {
    current_ = packed_->Next(&place_, first, raw_) ? &raw_ : nullptr;
    return;
  }
  while (next_ != end_ && next_->GetTag().Number() < first)
    ++next_;
  current_ = next_ == end_ ? nullptr : next_++;
}
