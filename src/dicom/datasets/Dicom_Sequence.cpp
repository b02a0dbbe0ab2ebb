#include <dicom/Dicom_Sequence.h>

#include "dicom/datasets/Dicom_DataSetWriter.h"
#include "dicom/encoding/Dicom_DataSetReader.h"
#include "dicom/encoding/Dicom_DescriptorReader.h"

#include <dicom/Dicom_Elements.h>
#include <dicom/IOD_Msg.h>
#include <infra/Klb_LogFile.h>
#include <infra/Util_FileSystemInterface.h>

#include <algorithm>
#include <climits>
#include <unistd.h>
#include <utility>

Dicom_Sequence::Dicom_Sequence() = default;

Dicom_Sequence::Dicom_Sequence(std::shared_ptr<Dicom_Origin const> origin, char const* begin, char const* end)
    : origin_(std::move(origin)) {
  Dicom_RawItem item;
  auto const read = [&](char const* p) {
    return Dicom_ReadItem(p, end, origin_->encoding, &item, origin_->extents.get());
  };
  std::size_t count = 0; // first, as growing would take three times the memory
  for (char const* p = begin; read(p); p = item.next)
    ++count;
  items_.reserve(count);
  for (char const* p = begin; read(p); p = item.next)
    items_.push_back({.own = {}, .bytes = item.value, .length = item.length});
}

Dicom_Sequence::Dicom_Sequence(int fd, long length, unsigned* parsed_length, Dicom_TransferSyntax const& syntax,
                               int* error) {
  *error = -1;
  *parsed_length = 0;
  if (length == long(kUndefinedLength)) length = -1;
  std::shared_ptr<Util_Buffer const> const buffer =
      length < 0 ? Dicom_ReadRestFrom(fd) : Dicom_ReadBytesFrom(fd, std::size_t(length));
  if (!buffer) return;
  Dicom_Encoding const encoding{syntax.IsExplicitVR(), syntax.IsBigEndian()};
  char const* const begin = buffer->data();
  Dicom_Check check = Dicom_CheckItems(begin, begin + buffer->size(), length < 0, encoding);
  std::size_t delimiter = length < 0 ? 8 : 0;
  if (!check.ok && length < 0) { // a file may end where the delimiter should stand
    check = Dicom_CheckItems(begin, begin + buffer->size(), false, encoding);
    delimiter = 0;
  }
  if (!check.ok) {
    DISK_LOG(3, "Dicom_Sequence: %s\n", check.error.c_str());
    return;
  }
  *parsed_length = unsigned(check.length);
  *error = 0;
  // leave the position behind the items, as a reader of the descriptor expects
  if (length < 0) {
    off_t const excess = off_t(buffer->size()) - off_t(check.length + delimiter);
    if (Util_FileSystemInterface::Current().Lseek(fd, -excess, SEEK_CUR) == -1) *error = -1;
  }
  char const* const end = begin + check.length;
  *this = Dicom_Sequence(Dicom_MakeOrigin(buffer, syntax, std::move(check)), begin, end);
}

Dicom_Sequence::Dicom_Sequence(char const* buffer, unsigned length, int copy, unsigned* consumed, int* error) {
  *error = -1;
  if (consumed) *consumed = 0;
  std::shared_ptr<Util_Buffer const> own;
  buffer = Dicom_TakeBytes(buffer, length, copy, &own);
  if (!buffer) return;
  Dicom_Check check = Dicom_CheckItems(buffer, buffer + length, false, {});
  if (!check.ok) return;
  *this =
      Dicom_Sequence(Dicom_MakeOrigin(own, Dicom_TransferSyntax::Native(), std::move(check)), buffer, buffer + length);
  if (consumed) *consumed = length;
  *error = 0;
}

Dicom_Sequence& Dicom_Sequence::operator=(Dicom_Sequence&& other) noexcept {
  std::swap(origin_, other.origin_);
  std::swap(items_, other.items_);
  std::swap(head_, other.head_);
  return *this;
}

Dicom_Sequence::~Dicom_Sequence() = default;

Dicom_Msg* Dicom_Sequence::Get(int i) const {
  if (i < 0 || i >= GetNItems()) return nullptr;
  Item const& found = item(i);
  if (Dicom_Msg* const known = found.Msg()) return known;
  return &found.own.GetOr([&] {
    bool const has_header = Dicom_Load32(found.bytes - 4, origin_->encoding.big_endian) == found.length;
    return std::make_unique<IOD_Msg>(Dicom_Msg(Dicom_PackedElements(origin_, found.bytes, found.length, has_header)));
  });
}

int Dicom_Sequence::Remove(int i, int destroy) {
  if (i < 0 || i >= GetNItems()) return -1;
  std::size_t const position = head_ + std::size_t(i);
  std::unique_ptr<Dicom_Msg> taken = items_[position].own.Release();
  if (!destroy) taken.release(); // the caller's
  changed_ = true;
  if (i > 0) {
    items_.erase(items_.begin() + std::ptrdiff_t(position));
  } else if (++head_ > items_.size() / 2) { // so that what was taken off costs neither time nor, for long, memory
    items_.erase(items_.begin(), items_.begin() + std::ptrdiff_t(head_));
    head_ = 0;
  }
  return 0;
}

void Dicom_Sequence::Reserve(std::size_t count) { items_.reserve(count); }

void Dicom_Sequence::swap(int i, int j) {
  if (i != j) std::swap(items_[head_ + std::size_t(i)], items_[head_ + std::size_t(j)]);
}

/// Destroys the items from `count` on.
void Dicom_Sequence::truncate(int count) { items_.erase(items_.begin() + std::ptrdiff_t(head_) + count, items_.end()); }

int Dicom_Sequence::Append(Dicom_Msg* msg, bool own) {
  if (!msg) return -1;
  items_.emplace_back();
  if (own) {
    items_.back().own.Reset(std::unique_ptr<Dicom_Msg>(msg));
  } else {
    items_.back().borrowed = msg;
  }
  changed_ = true;
  return 0;
}

bool Dicom_Sequence::HasChanged() const {
  return changed_ || std::any_of(items_.begin() + std::ptrdiff_t(head_), items_.end(),
                                 [](Item const& item) { return item.Msg() && item.Msg()->HasChanged(); });
}

std::unique_ptr<Dicom_Sequence> Dicom_Sequence::Clone() const {
  auto copy = std::make_unique<Dicom_Sequence>();
  copy->items_.resize(std::size_t(GetNItems()));
  for (int i = 0; i < GetNItems(); ++i) {
    Item const& from = item(i);
    Dicom_Msg const* const msg = from.Msg();
    Dicom_Msg detached =
        msg ? msg->Detached() : Dicom_Msg(Dicom_PackedElements(origin_, from.bytes, from.length).Detached());
    copy->items_[std::size_t(i)].own.Reset(std::make_unique<IOD_Msg>(std::move(detached)));
  }
  return copy;
}

// The value that wraps it

Dicom_SQ const SQ_NULL;

Dicom_SQ::Dicom_SQ() = default;
Dicom_SQ::~Dicom_SQ() = default;
Dicom_SQ::Dicom_SQ(Dicom_Sequence* sequence) : owned_(sequence), sequence_(sequence) {}

Dicom_SQ::Dicom_SQ(Dicom_Sequence* sequence, int copy) : sequence_(sequence) {
  if (!copy || !sequence) return;
  owned_ = sequence->Clone();
  sequence_ = owned_.get();
}

Dicom_SQ::Dicom_SQ(int fd, unsigned length, unsigned* parsed_length, Dicom_TransferSyntax const& syntax, int* error)
    : Dicom_SQ(new Dicom_Sequence(fd, long(length), parsed_length, syntax, error)) {}

Dicom_SQ::Dicom_SQ(char const* buffer, unsigned length, int copy, unsigned* consumed, int* error)
    : Dicom_SQ(new Dicom_Sequence(buffer, length, copy, consumed, error)) {}

Dicom_SQ::Dicom_SQ(Dicom_SQ const& other) : Dicom_SQ(other.sequence_, 1) {}

Dicom_SQ& Dicom_SQ::operator=(Dicom_SQ const& other) { return *this = Dicom_SQ(other); }

unsigned Dicom_SQ::GetDumpLen() const {
  if (!sequence_) return 0;
  Dicom_DataSetWriter writer({});
  writer.Items(*sequence_, *Dicom_UndeclaredSet());
  return unsigned(writer.Length());
}

int Dicom_SQ::Dump(char* buffer, unsigned length) const {
  if (!sequence_) return length == 0 ? 0 : -1;
  Dicom_DataSetWriter writer({}, buffer, length);
  writer.Items(*sequence_, *Dicom_UndeclaredSet());
  return writer.Ok() && writer.Length() == length && length <= INT_MAX ? int(length) : -1;
}

namespace {

/// Whether a key restricts nothing: it is empty, or of asterisks alone.
bool IsUniversal(Dicom_ME const& key) {
  if (key.GetValue()->GetVR() == Dicom_VR::SQ) return SQ_NULL.Match(*key.GetValue()) != 0;
  std::string const text = key.GetText();
  return text.empty() ? key.IsEmpty() : text.find_first_not_of('*') == std::string::npos;
}

/// Whether an item has all that the key's item asks for. What it lacks counts as empty.
bool Satisfies(Dicom_Msg const& item, Dicom_Msg const& pattern) {
  for (int i = 0; i < pattern.GetNElements(); ++i) {
    Dicom_ME const& e = *pattern.GetElement(i);
    Dicom_Tag tag = e.GetTag();
    if (tag.IsPrivateCreator()) continue;
    tag.Unresolve(pattern);
    Dicom_ME const* found = item.Find(tag);
    if (found ? !found->Match(e) : !IsUniversal(e)) return false;
  }
  return true;
}

} // namespace

bool Dicom_SQ::operator==(Dicom_Type const& other) const {
  auto const* sq = dynamic_cast<Dicom_SQ const*>(&other);
  if (!sq) return IsEmpty() && other.IsEmpty();
  if (GetNValues() != sq->GetNValues()) return false;
  std::string mine(GetDumpLen(), '\0'), theirs(sq->GetDumpLen(), '\0');
  return Dump(mine.data(), unsigned(mine.size())) != -1 && sq->Dump(theirs.data(), unsigned(theirs.size())) != -1 &&
         mine == theirs;
}

int Dicom_SQ::Match(Dicom_Type const& key) const {
  auto const* wanted = dynamic_cast<Dicom_SQ const*>(&key);
  if (!wanted || wanted->IsEmpty()) return key.IsEmpty();
  Dicom_Msg const& pattern = *wanted->sequence_->Get(0);
  for (int i = 0; i < GetNValues(); ++i)
    if (Satisfies(*sequence_->Get(i), pattern)) return 1;
  return Satisfies(Dicom_Msg(), pattern); // a key that asks for nothing
}
