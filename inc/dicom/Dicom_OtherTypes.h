#pragma once
#include <dicom/Dicom_Type.h>
#include <infra/Disk_Export.h>

/// What the values of plain bytes and words have in common. Words stand in little endian order in memory.
///
/// Encapsulated pixel data is a Dicom_OB whose bytes are the items as they stand in a file, the offset table's item
/// first, the sequence delimiter left out.
class DISK_EXPORT Dicom_OtherType : public Dicom_Type {
public:
  bool IsEmpty() const override { return Bytes().empty() && !IsEncapsulated(); }
  int GetNValues() const override { return IsEmpty() ? 0 : 1; }
  std::string GetText() const override { return {}; }
  std::size_t GetLength() const override { return (Bytes().size() + 1) & ~std::size_t(1); }
  void AppendBytes(std::string& bytes) const override { bytes += Bytes(); }
  bool operator==(Dicom_Type const& other) const override;
  friend bool operator==(Dicom_OtherType const& a, Dicom_OtherType const& b) {
    return a == static_cast<Dicom_Type const&>(b);
  }
  int Match(Dicom_Type const& key) const override;

  std::string_view Bytes() const { return borrowed_ ? std::string_view(borrowed_, borrowed_length_) : owned_; }
  bool IsEncapsulated() const { return !syntax_.empty(); }
  /// The UID of the transfer syntax of encapsulated pixels; empty for plain bytes.
  std::string const& EncapsulatedSyntax() const { return syntax_; }

protected:
  Dicom_OtherType() = default;
  /// `*status` (may be null) is -1 for a null pointer with a length above 0. Without `copy` the bytes stay the
  /// caller's, who keeps them for as long as the value lives; its clones own theirs.
  Dicom_OtherType(void const* data, std::size_t length, int copy, int* status, std::string syntax);
  Dicom_OtherType(Dicom_OtherType const& other);
  Dicom_OtherType& operator=(Dicom_OtherType const& other);

private:
  std::string owned_;
  char const* borrowed_ = nullptr;
  std::size_t borrowed_length_ = 0;
  std::string syntax_;
};

template <class Self, Dicom_VR VR>
class DISK_EXPORT Dicom_OtherOf : public Dicom_OtherType {
public:
  static constexpr Dicom_VR kVR = VR;
  Dicom_OtherOf() = default;
  Dicom_OtherOf(void const* data, std::size_t length, int copy, int* status, std::string encapsulated_syntax = {})
      : Dicom_OtherType(data, length, copy, status, std::move(encapsulated_syntax)) {}
  Dicom_VR GetVR() const override { return VR; }
  std::unique_ptr<Dicom_Type> Clone() const override { return std::make_unique<Self>(static_cast<Self const&>(*this)); }
  Self Duplicate() const { return static_cast<Self const&>(*this); }
};

#define DICOM_OTHER_CLASS(Name, VR)                                                                                    \
  class DISK_EXPORT Name : public Dicom_OtherOf<Name, Dicom_VR::VR> {                                                  \
  public:                                                                                                              \
    using Dicom_OtherOf::Dicom_OtherOf;                                                                                \
  };

DICOM_OTHER_CLASS(Dicom_OB, OB)
DICOM_OTHER_CLASS(Dicom_OD, OD)
DICOM_OTHER_CLASS(Dicom_OF, OF)
DICOM_OTHER_CLASS(Dicom_OL, OL)
DICOM_OTHER_CLASS(Dicom_OV, OV)
DICOM_OTHER_CLASS(Dicom_OW, OW)
#undef DICOM_OTHER_CLASS

/// Bytes of unknown meaning; also the value of an element whose VR this layer doesn't know, which it keeps.
class DISK_EXPORT Dicom_UN : public Dicom_OtherOf<Dicom_UN, Dicom_VR::UN> {
public:
  using Dicom_OtherOf::Dicom_OtherOf;
  Dicom_UN(Dicom_VR vr, void const* data, std::size_t length, int copy, int* status)
      : Dicom_OtherOf(data, length, copy, status), vr_(vr) {}
  Dicom_VR GetVR() const override { return vr_; }

private:
  Dicom_VR vr_ = Dicom_VR::UN;
};

DISK_EXPORT extern Dicom_OB const OB_NULL;
DISK_EXPORT extern Dicom_OD const OD_NULL;
DISK_EXPORT extern Dicom_OF const OF_NULL;
DISK_EXPORT extern Dicom_OL const OL_NULL;
DISK_EXPORT extern Dicom_OV const OV_NULL;
DISK_EXPORT extern Dicom_OW const OW_NULL;
DISK_EXPORT extern Dicom_UN const UN_NULL;
