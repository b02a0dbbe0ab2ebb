#pragma once
#include <infra/Disk_Export.h>

#include <cstdint>
#include <string_view>

class Dicom_Msg;
class Dicom_TransferSyntax;

/// The tag of an element.
///
/// A private attribute is known by its implementor (the text of the private creator element) and the low byte of
/// its element number; the block, the high byte, differs from message to message. Such a tag is unresolved until
/// ResolveIfFound has given it the block that the implementor has in one message.
///
/// The implementor's text isn't owned: it must outlive the tag. Constants point to literals; a tag made by
/// Unresolve points into the message that it was asked of.
class DISK_EXPORT Dicom_Tag {
public:
  constexpr Dicom_Tag() = default;
  constexpr Dicom_Tag(std::uint16_t group, std::uint16_t element) : number_(std::uint32_t(group) << 16 | element) {}
  constexpr explicit Dicom_Tag(std::uint32_t number) : number_(number) {}
  /// A private attribute by its implementor; `low` is the low byte of its element number.
  constexpr Dicom_Tag(std::uint16_t group, std::uint8_t low, std::string_view implementor)
      : number_(std::uint32_t(group) << 16 | low), implementor_(implementor) {}

  constexpr std::uint16_t Group() const { return std::uint16_t(number_ >> 16); }
  constexpr std::uint16_t Element() const { return std::uint16_t(number_); }
  /// Group * 65536 + element.
  constexpr std::uint32_t Number() const { return number_; }
  constexpr bool IsPrivate() const { return (Group() & 1) != 0; }
  /// A private creator element: it reserves block (gggg,xx00) to (gggg,xxFF) of its group, xx its own element.
  constexpr bool IsPrivateCreator() const { return IsPrivate() && Element() >= 0x10 && Element() < 0x100; }
  /// A private attribute whose block isn't known.
  constexpr bool IsUnresolved() const { return !implementor_.empty() && !creator_ && Element() < 0x100; }
  /// The implementor of a private attribute; empty when it has none or none is known.
  constexpr std::string_view GetImplementorID() const { return implementor_; }

  /// Makes a tag that stands in `home` independent of the block numbers there: notes the implementor and, for an
  /// attribute, drops the block. Standard tags, and private ones without a creator, stay as they are. 0, or -1 for
  /// a tag that can't be one (group FFFF).
  int Unresolve(Dicom_Msg const& home);
  /// Gives an unresolved tag the block that its implementor has in `msg`. 0, or -1 when it has none there.
  int ResolveIfFound(Dicom_Msg const& msg);

  /// 1: equal. 0: this tag is lower than `other`. -1: it is higher.
  constexpr int Compare(Dicom_Tag const& other) const {
    return number_ == other.number_ ? 1 : number_ < other.number_ ? 0 : -1;
  }
  friend constexpr bool operator==(Dicom_Tag const& a, Dicom_Tag const& b) {
    return a.number_ == b.number_ && a.creator_ == b.creator_ && a.implementor_ == b.implementor_;
  }

  /// A new tag from the 4 bytes at `buffer`, in the byte order of `syntax`; `*length` becomes 4. The caller owns it.
  static Dicom_Tag* ConstructFromBuffer(void const* buffer, Dicom_TransferSyntax const& syntax, unsigned* length,
                                        Dicom_Msg const* home);

private:
  friend class Dicom_Msg;
  std::uint32_t number_ = 0;
  bool creator_ = false; // implementor_ is the text of this creator element, not the owner of an attribute
  std::string_view implementor_;
};
