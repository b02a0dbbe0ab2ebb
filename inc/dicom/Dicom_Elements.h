#pragma once
#include <infra/Util_OnDemand.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct Dicom_Origin;
class Dicom_CharacterSet;
class Dicom_ME;
class Dicom_TransferSyntax;
class Util_Buffer;

/// The elements of a data set, in one of two forms: packed in the bytes that they were read from
/// (Dicom_PackedElements), or open, each an object of its own (Dicom_OpenElements). Dicom_Msg chooses between them.
///
/// An inner part of the library that stands here because a message holds its packed form in place. Programs use
/// Dicom_Msg. Any number of threads may call the const functions of one object at once.
class Dicom_Elements {
public:
  virtual bool IsEmpty() const = 0;
  /// Whether elements were set or removed, in nested items too, since they were read.
  virtual bool HasChanged() const = 0;
  /// The element of that number, or null. It may be put into `storage`; then it is good as long as both.
  virtual Dicom_ME const* Find(std::uint32_t tag, Dicom_ME& storage) const = 0;
  /// The character set of the text that isn't nested.
  virtual Dicom_CharacterSet const& CharacterSet() const = 0;
  /// Where the elements were read from, with what was declared around them; null for elements that were made here.
  std::shared_ptr<Dicom_Origin const> const& Origin() const { return origin_; }

protected:
  Dicom_Elements() = default;
  explicit Dicom_Elements(std::shared_ptr<Dicom_Origin const> origin) : origin_(std::move(origin)) {}
  Dicom_Elements(Dicom_Elements const&) = default;
  Dicom_Elements(Dicom_Elements&&) noexcept = default;
  Dicom_Elements& operator=(Dicom_Elements const&) = default;
  Dicom_Elements& operator=(Dicom_Elements&&) noexcept = default;
  ~Dicom_Elements() = default;

  std::shared_ptr<Dicom_Origin const> origin_;
};

/// Elements in the bytes that they were read from, which were checked. The bytes never change, so copies share them.
/// An element is found by a walk over the bytes.
class Dicom_PackedElements final : public Dicom_Elements {
public:
  /// No elements.
  Dicom_PackedElements() = default;
  /// Bytes of `origin` that were checked already. `has_header`: in front of them stands their header as an item.
  Dicom_PackedElements(std::shared_ptr<Dicom_Origin const> origin, char const* bytes, std::size_t length,
                       bool has_header = false);
  Dicom_PackedElements(Dicom_PackedElements const& other);
  /// The other one holds nothing afterwards.
  Dicom_PackedElements(Dicom_PackedElements&& other) noexcept;
  Dicom_PackedElements& operator=(Dicom_PackedElements const& other) { return *this = Dicom_PackedElements(other); }
  Dicom_PackedElements& operator=(Dicom_PackedElements&& other) noexcept;
  ~Dicom_PackedElements();

  /// Checks `length` bytes in `buffer`, or in a caller's memory where that is null, and takes them. The origin of
  /// `neighbour`, which may be null, is shared where it was read from the same buffer and nothing tells them apart.
  /// 0; or -1 with the reason in `*error`, and nothing has changed.
  int Read(std::shared_ptr<Util_Buffer const> buffer, Dicom_TransferSyntax const& syntax, char const* bytes,
           std::size_t length, Dicom_Elements const* neighbour, std::string* error);
  /// Says that many elements will be asked for one by one, so that it is worth opening the message soon.
  void ExpectManyAsked();

  bool IsEmpty() const override { return length_ == 0; }
  bool HasChanged() const override { return false; }
  Dicom_ME const* Find(std::uint32_t tag, Dicom_ME& storage) const override;
  Dicom_CharacterSet const& CharacterSet() const override;

  /// Whether there are bytes, if only none of no element.
  bool Holds() const { return bytes_ != nullptr; }
  char const* Bytes() const { return bytes_; }
  std::size_t Length() const { return length_; }
  bool HasHeader() const { return has_header_; }
  /// Whether elements can be found by a walk: their tags ascend, and each tells its VR.
  bool IsInOrder() const;
  /// Whether the next element is better looked for in the open form. Each call counts as one element asked for.
  bool IsWorthOpening() const;
  /// Reads the next element from the number `first` on, and moves `*place` behind it. False at the end. A walk begins
  /// at Bytes().
  bool Next(char const** place, std::uint32_t first, Dicom_ME& element) const;
  /// The origin with what the elements themselves declare: the character set of text, and in implicit VR whether
  /// pixel attributes are signed. Nested items inherit it. Null where there are no bytes.
  std::shared_ptr<Dicom_Origin const> OwnOrigin() const;
  /// A copy with bytes of its own.
  Dicom_PackedElements Detached() const;

  /// Lets the bytes go.
  void Drop();

private:
  std::shared_ptr<Dicom_Origin const> make_own_origin() const;
  /// The own origin, kept for slices that live outside.
  std::shared_ptr<Dicom_Origin const> const& kept_own_origin() const;

  char const* bytes_ = nullptr;
  std::size_t length_ = 0;
  Util_OnDemand<std::shared_ptr<Dicom_Origin const>> own_origin_;
  mutable std::atomic<int> asked_left_{kNeverOpens}; // until it is worth opening; a count may get lost among threads
  bool has_header_ = false;
  static constexpr int kNeverOpens = -1;
};
