#pragma once
#include <dicom/Dicom_Elements.h>
#include <dicom/Dicom_ME.h>

#include <vector>

/// Elements that each are an object, in ascending order of their tags. Those that were read are slices of bytes, which
/// this object keeps alive.
class Dicom_OpenElements final : public Dicom_Elements {
public:
  Dicom_OpenElements() = default;
  /// The elements of a packed form. It may go afterwards.
  explicit Dicom_OpenElements(Dicom_PackedElements const& packed);
  /// A copy. Slices whose values didn't change stay slices.
  Dicom_OpenElements(Dicom_OpenElements const& other);
  Dicom_OpenElements& operator=(Dicom_OpenElements const&) = delete;
  ~Dicom_OpenElements() = default;
  /// A copy whose elements own their values.
  std::unique_ptr<Dicom_OpenElements> Detached() const;

  bool IsEmpty() const override { return elements_.empty(); }
  bool HasChanged() const override;
  Dicom_ME const* Find(std::uint32_t tag, Dicom_ME& storage) const override;
  Dicom_CharacterSet const& CharacterSet() const override;

  std::vector<Dicom_ME> const& All() const { return elements_; }
  /// The index of the element of that number, or of the one that it would stand before.
  std::size_t Position(std::uint32_t tag) const;
  bool Has(std::uint32_t tag) const { return has(Position(tag), tag); }
  /// Whether a private block is free: neither the creator's element is there, nor elements that have lost theirs.
  bool IsFreeBlock(std::uint32_t creator) const;
  /// The character set that (0008,0005) declares here; null without one.
  Dicom_CharacterSet const* Declared() const;

  /// Puts an element in, replacing one of the same tag.
  void Put(Dicom_ME element);
  /// Takes out the element of that number, which must be there.
  void Remove(std::uint32_t tag);

private:
  bool has(std::size_t i, std::uint32_t tag) const {
    return i < elements_.size() && elements_[i].GetTag().Number() == tag;
  }
  void sort();

  std::vector<Dicom_ME> elements_;
  std::shared_ptr<Dicom_Origin const> own_origin_; // that of the slices
  Util_OnDemand<std::shared_ptr<Dicom_CharacterSet const>> declared_;
  bool changed_ = false;
};
