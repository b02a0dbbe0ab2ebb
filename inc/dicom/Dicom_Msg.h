#pragma once
#include <dicom/Dicom_Elements.h>
#include <dicom/Dicom_ME.h>
#include <dicom/Dicom_NumberTypes.h>
#include <dicom/Dicom_OtherTypes.h>
#include <dicom/Dicom_Sequence.h>
#include <dicom/Dicom_StringTypes.h>
#include <dicom/Dicom_TransferSyntax.h>
#include <infra/Disk_Export.h>

#include <memory>
#include <string>
#include <string_view>

class Dicom_OpenElements;

/// A data set: elements in ascending order of their tags.
///
/// A message that was read keeps its bytes, checked. While nobody changes it, values are found by a walk over the
/// bytes, and copies share them, as they never change. Who asks for an element or a value to keep gets it from an open
/// form, which is made beside the bytes once. The first change leaves the open form alone. Elements that nobody sets
/// are dumped as they were read.
///
/// A private attribute (a tag with an implementor) is found in the block that its implementor has reserved in this
/// message. Set puts it there too, and reserves a block where there is none.
///
/// Threads: any number of threads may read one message at once, that is call const functions of it, of its elements
/// and values, and of the items of its sequences. Who changes a message, or an item of it, must be alone with it.
class DISK_EXPORT Dicom_Msg {
public:
  Dicom_Msg();
  Dicom_Msg(Dicom_Msg const& other);
  Dicom_Msg(Dicom_Msg&&) noexcept;
  Dicom_Msg& operator=(Dicom_Msg const& other);
  Dicom_Msg& operator=(Dicom_Msg&&) noexcept;
  virtual ~Dicom_Msg();

  /// A data set of `length` bytes in native transfer syntax. With `copy` 0 the bytes stay the caller's, who keeps
  /// them alive and unchanged. `*error` is -1 on failure (the message is empty then), 0 otherwise.
  Dicom_Msg(char const* buffer, unsigned length, int copy, int* error, int msg_source = Dicom_SwapInfo::msg_source);
  /// The next `length` bytes of the descriptor as a data set in `syntax`. `*read_length` is the number of bytes
  /// taken. `*error` is -1 on failure. Nothing is allocated beyond what the file really holds.
  Dicom_Msg(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax, int* error,
            int msg_source = Dicom_SwapInfo::msg_source);
  /// A data set in `syntax` that fills `buffer`. `*error` is -1 on failure.
  Dicom_Msg(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, int* error);
  /// A data set of `length` bytes that stand at `bytes` in `buffer`. What is known of the buffer is shared with
  /// `neighbour`, a data set that was read from the same one and didn't change; null when there is none.
  Dicom_Msg(std::shared_ptr<Util_Buffer const> const& buffer, char const* bytes, std::size_t length,
            Dicom_TransferSyntax const& syntax, Dicom_Msg const* neighbour, int* error);
  explicit Dicom_Msg(Dicom_PackedElements elements);
  /// A copy for the caller to own.
  Dicom_Msg* Clone() const { return new Dicom_Msg(*this); }
  /// A copy with bytes of its own, so that it doesn't keep a whole file alive.
  Dicom_Msg Detached() const;

  /// The value of an attribute, or null. It stays the message's and is good until the message changes.
  Dicom_Type const* Get(Dicom_Tag const& tag) const;
  /// The value of an attribute as one class, by value; its null value when the attribute is absent. Text classes
  /// take any text, number classes any number; a text that is asked for as another kind gives the null value.
  template <class V>
  V Value(Dicom_Tag const& tag) const;
  /// Whether the attribute is present with this text (UTF-8, without padding). Without a copy where it is ASCII.
  bool TextEquals(Dicom_Tag const& tag, std::string_view text) const;
  /// The attribute's text; empty when it is absent.
  std::string Text(Dicom_Tag const& tag) const;
  bool Has(Dicom_Tag const& tag) const;

  /// Stores a copy of `value`, replacing an older value. 0, or -1 for a null pointer or when no private block is
  /// left; the message stays as it was then.
  int Set(Dicom_Tag const& tag, Dicom_Type const* value);
  int Set(Dicom_Tag const& tag, Dicom_Type const& value) { return Set(tag, &value); }
  /// Takes an attribute out. 0, also when it wasn't there.
  int Remove(Dicom_Tag const& tag);
  /// Puts an element in, replacing one of the same tag. With `copy` 0 the message takes `element` over if it
  /// succeeds. 0, or -1 for a null element and for one with the tag of a delimiter or an unresolved private tag.
  int Add(Dicom_ME* element, int copy);
  int Add(Dicom_ME element);
  /// The element, or null; it stays the message's.
  Dicom_ME const* Find(Dicom_Tag const& tag) const;
  int GetNElements() const;
  /// Element `i` in tag order, or null beyond the last.
  Dicom_ME const* GetElement(int i) const;
  /// Takes over the elements of `other`: those that this message lacks, and with `replace` also the others.
  /// With `only_existing` elements that this message lacks stay out. Private attributes go to the block that their
  /// implementor has here, which has the same number as there if it is free. 0, or -1 when one found no block; the
  /// others are taken over all the same.
  int Update(Dicom_Msg const& other, bool replace, bool only_existing);
  bool IsEmpty() const;

  /// The length of the data set in `syntax`, without any header. The default is the native transfer syntax.
  unsigned GetDumpLen(Dicom_TransferSyntax const& syntax, int mode, SCompressionParms const& parameters) const;
  unsigned GetDumpLen() const;
  /// Writes the data set. `length` must be what GetDumpLen gave. The number of bytes written, or -1: for another
  /// length, one beyond int, nesting that no reader takes, or what the syntax can't express (fragments in big endian).
  int Dump(char* buffer, unsigned length, Dicom_TransferSyntax const& syntax, int mode, void* reserved) const;
  int Dump(char* buffer, unsigned length) const;

  /// The character set of the message's own text: that of its (0008,0005), else of the data set around it.
  Dicom_CharacterSet const& GetCharacterSet() const;
  /// Makes sure that every text can be dumped in the declared character set: when one can't, all text that the
  /// declaration holds for, that of nested items without their own included, moves to ISO_IR 192.
  void SettleCharacterSet();
  /// The transfer syntax that the pixels bind the message to: that of encapsulated Pixel Data, or of a reference to
  /// pixels on a JPIP server; without either that of a compressed icon. The null value when any syntax will do.
  Dicom_UI GetEncapsulatedSyntax() const;
  /// Why no transfer syntax tells truly how the pixels are encoded, because those of the file that they came from
  /// contradict its own; null when one does.
  char const* GetPixelContradiction() const;

  /// The file that the message was read from, as far as its reader bound it (Util_File::SetOriginalBuffer); empty
  /// otherwise, and after a change.
  std::string_view GetOriginalBuffer() const { return HasChanged() ? std::string_view() : original_; }
  /// Binds the bytes of the file that the message was read from. No effect if it was read from others.
  void SetOriginalBuffer(std::shared_ptr<Util_Buffer const> const& file);
  /// Whether elements were set or removed, in nested items too, since the message was made or read.
  bool HasChanged() const;
  /// Makes one that was read, and has its elements in another order or in a form that has to be taken apart, hold bytes
  /// in order, which take far less room. A message that can't be written as such stays as it is.
  void BringInOrder();
  /// The same for one that was built or changed, as if it had been written and read: what HasChanged tells and what
  /// was got from it are gone afterwards.
  void Condense();

  /// The number of `tag` in this message: that of a private attribute is in the block of its implementor, 0 without
  /// one.
  std::uint32_t Resolve(Dicom_Tag const& tag) const;

  // For the sources of this library

  /// The elements as they were read; null when the message was built or changed. A caller who knows that it didn't
  /// change spares the look at nested items.
  Dicom_PackedElements const* AsRead(bool is_unchanged = false) const;
  /// The same if elements can be found by a walk and nobody has asked for the open form yet; null otherwise.
  Dicom_PackedElements const* ToWalk() const;
  Dicom_OpenElements const& Opened() const;

private:
  Dicom_Elements const& elements() const;
  /// Takes bytes, and logs why they can't be taken. 0, or -1.
  int read(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, char const* bytes,
           std::size_t length, Dicom_Elements const* neighbour = nullptr);
  /// The element of that number, in `storage` or the message's own; null when absent.
  Dicom_ME const* lookup(std::uint32_t tag, Dicom_ME& storage) const;
  /// The open form, which alone holds the data set from now on.
  Dicom_OpenElements& open();
  /// The number for an attribute that is about to be put in, in the block that its implementor has; without one a
  /// free block is reserved, `wanted` (0x10 to 0xFF) where that is free. 0 when none is.
  std::uint32_t reserve(Dicom_Tag const& tag, std::uint32_t wanted = 0x10);
  /// Settles the nested items that have character sets of their own, and tells whether the rest of the text fits
  /// into `surrounding`.
  bool settle(Dicom_CharacterSet const& surrounding);
  bool has_nested_fragments() const;

  Dicom_PackedElements packed_; // as they were read; holds nothing when the message was built or changed
  Util_OnDemand<Dicom_OpenElements> open_;
  std::string_view original_;
};

template <class V>
V Dicom_Msg::Value(Dicom_Tag const& tag) const {
  Dicom_ME storage;
  Dicom_ME const* element = lookup(Resolve(tag), storage);
  return element ? element->ValueAs<V>() : V();
}

/// A walk over the elements of a message in ascending order, where they stand if it can. The message stays as it is
/// meanwhile.
///
///     for (Dicom_ElementCursor c(msg); !c.AtEnd(); c.Next())
///       if (c.Element().Match(key)) ...
class DISK_EXPORT Dicom_ElementCursor {
public:
  /// `first`: the number of the tag from which on the walk goes.
  explicit Dicom_ElementCursor(Dicom_Msg const& msg, std::uint32_t first = 0);
  Dicom_ElementCursor(Dicom_ElementCursor const&) = delete;
  Dicom_ElementCursor& operator=(Dicom_ElementCursor const&) = delete;
  bool AtEnd() const { return current_ == nullptr; }
  /// Good until Next or Seek.
  Dicom_ME const& Element() const { return *current_; }
  void Next();
  /// Goes on, if need be, to the first element from the number `tag` on.
  void Seek(std::uint32_t tag);

private:
  void read(std::uint32_t first);

  Dicom_PackedElements const* packed_;
  char const* place_ = nullptr;    // behind the current element, if the elements are packed
  Dicom_ME const* next_ = nullptr; // that of the open form otherwise
  Dicom_ME const* end_ = nullptr;
  Dicom_ME const* current_ = nullptr;
  Dicom_ME raw_;
};
