#pragma once
#include <dicom/Dicom_NumberTypes.h>
#include <dicom/Dicom_StringTypes.h>
#include <dicom/Dicom_Tag.h>
#include <infra/Disk_Export.h>
#include <infra/Util_OnDemand.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

struct Dicom_Origin;
struct Dicom_RawElement;
class Dicom_Msg;
class Dicom_TransferSyntax;

/// One element of a data set: tag, VR and value.
///
/// An element that came from a file is a slice of the file's bytes, which its message keeps alive. Its value is made
/// when somebody asks for it, and a dump copies the bytes. A copy of an element stands alone: it owns its value.
///
/// Any number of threads may read one element at once.
class DISK_EXPORT Dicom_ME {
public:
  /// No element: tag 0 and an empty value.
  Dicom_ME() = default;
  /// A private tag has to be resolved (Dicom_Tag::ResolveIfFound): an element knows its number only.
  /// With `copy` 0 the element takes `value` over, also when it fails; otherwise it keeps a clone of its own.
  /// `*status` (may be null) is -1 for a null value.
  Dicom_ME(Dicom_Tag const& tag, Dicom_Type* value, int copy, int* status);
  Dicom_ME(Dicom_Tag const& tag, std::unique_ptr<Dicom_Type> value);
  /// Reads one element from the descriptor's position and leaves it behind the element. `home`, which may be null,
  /// is the message that the element is to stand in: its character set holds. `*consumed` is the number of bytes
  /// read. `*error` is -1 on failure, and the element then is empty.
  Dicom_ME(int fd, unsigned* consumed, Dicom_TransferSyntax const& syntax, Dicom_Msg const* home, int* error);
  /// The same for an element of at most `length` bytes that stands alone.
  Dicom_ME(int fd, unsigned length, unsigned* read_length, Dicom_TransferSyntax const& syntax, int* error);
  /// Reads the element that stands at `buffer` in native transfer syntax, in at most `length` bytes. It owns its value,
  /// so `copy` has no effect. `*consumed`, which may be null, is the number of bytes that it takes. `*error` is -1 on
  /// failure, and the element then is empty.
  Dicom_ME(char const* buffer, unsigned length, int copy, unsigned* consumed, int* error);
  Dicom_ME(Dicom_ME const& other);
  Dicom_ME(Dicom_ME&&) noexcept = default;
  Dicom_ME& operator=(Dicom_ME&&) noexcept = default;
  Dicom_ME& operator=(Dicom_ME const& other) { return *this = Dicom_ME(other); }
  ~Dicom_ME() = default;

  /// The tag by number; its implementor is what Dicom_Tag::Unresolve finds in the element's message.
  Dicom_Tag GetTag() const { return Dicom_Tag(tag_); }
  /// The VR as it was read. The value of an element that was read as UN has the VR of the dictionary where that
  /// fits the bytes, and a copy of the element then bears that VR.
  Dicom_VR GetVR() const { return vr_; }
  /// Whether the element has no value.
  bool IsEmpty() const;
  /// The value, owned by the element and good until the element goes or changes. Never null.
  Dicom_Type const* GetValue() const;
  /// The value's text, taken from the bytes where that needs no typed value.
  std::string GetText() const;
  /// The value as one class; its null value when it can't be told as such. Any text serves a class of text, any
  /// number or text of a number a class of numbers. The asker knows better than UN: the bytes of a private attribute
  /// that came in implicit VR are taken for what the class holds, text or numbers.
  template <class V>
  V ValueAs() const {
    if (std::unique_ptr<Dicom_Type> const value = unknown_as(V::kVR))
      if (auto const* known = dynamic_cast<V const*>(value.get())) return *known;
    if constexpr (std::is_base_of_v<Dicom_StringType, V>) {
      return V(GetText());
    } else {
      if (auto const* value = dynamic_cast<V const*>(GetValue())) return *value;
      if constexpr (requires { typename V::Value; }) {
        if (!IsEmpty() && GetValue()->GetVR() != Dicom_VR::UN) return V(Dicom_Saturated<typename V::Value>(number()));
      }
      return V();
    }
  }
  /// Whether this element of a record satisfies the element `key` of an identifier.
  bool Match(Dicom_ME const& key) const;
  /// The same for an element of text and the text of the key.
  bool MatchText(std::string_view wanted) const;
  /// Pixel data in fragments.
  bool IsEncapsulated() const;

  /// The value length that the element's header at `buffer` states, in `syntax`, for an element of VR `vr`:
  /// `buffer` points behind tag and VR. 0xFFFFFFFF stands for an undefined length. `*consumed` becomes the number
  /// of bytes that reserved word and length take.
  static unsigned FindLenFromBuffer(void const* buffer, Dicom_TransferSyntax const& syntax, Dicom_VR vr,
                                    unsigned* consumed);

  // For the sources of this library

  /// Makes this element a slice: `raw` in the bytes of `origin`, which are to live longer than the element.
  void Slice(Dicom_RawElement const& raw, Dicom_Origin const* origin);
  /// The same slice of an element that is one. Its value is made anew when it is asked for.
  Dicom_ME SameSlice() const;
  bool IsSlice() const { return bytes_ != nullptr; }
  /// The value's bytes as they were read, for a slice.
  std::string_view SliceBytes() const { return {bytes_, length_}; }
  /// Where a slice comes from; null for other elements.
  Dicom_Origin const* Origin() const { return origin_; }
  bool HasUndefinedLength() const { return undefined_length_; }
  /// Gives the element another number.
  void Renumber(std::uint32_t tag) { tag_ = tag; }
  /// The VR by which the value is understood: some writers know no better than UN for attributes that we know.
  Dicom_VR Meaning() const;
  /// Whether the value is a sequence that was read and changed since.
  bool HasChanged() const;
  /// The text in UTF-8 if it can be told without making a value; false otherwise.
  bool PlainText(std::string_view* text) const;

private:
  /// Takes over an element of bytes that are about to go.
  void own(Dicom_RawElement const& raw, Dicom_TransferSyntax const& syntax, Dicom_Msg const* home);
  std::unique_ptr<Dicom_Type> make_value() const;
  std::unique_ptr<Dicom_Type> make_sequence(bool is_unknown) const;
  /// The value by another VR, text or numbers, when its own can't be told; null otherwise.
  std::unique_ptr<Dicom_Type> unknown_as(Dicom_VR vr) const;
  /// The element's text as a number; 0 for what is none.
  double number() const;

  std::uint32_t tag_ = 0;
  Dicom_VR vr_ = Dicom_VR::None;
  bool undefined_length_ = false;
  std::size_t length_ = 0;
  /// The value's bytes in the origin's buffer; null for an element that was made here.
  char const* bytes_ = nullptr;
  Dicom_Origin const* origin_ = nullptr;
  Util_OnDemand<Dicom_Type> value_;
};
