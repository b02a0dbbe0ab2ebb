#pragma once
#include <dicom/Dicom_Type.h>
#include <infra/Disk_Export.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

/// `number` as a T: the nearest limit of T when it is beyond them.
template <class T>
T Dicom_Saturated(double number) {
  using Limits = std::numeric_limits<T>;
  if constexpr (std::is_floating_point_v<T>) {
    return T(std::clamp(number, double(Limits::lowest()), double(Limits::max())));
  } else {
    if (number <= double(Limits::min())) return Limits::min();
    return number >= double(Limits::max()) ? Limits::max() : T(number);
  }
}

/// The value class of one binary number VR: no, one or several numbers.
template <class Self, class Number, Dicom_VR VR>
class DISK_EXPORT Dicom_NumberOf : public Dicom_Type {
public:
  static constexpr Dicom_VR kVR = VR;
  using Value = Number;
  Dicom_NumberOf() = default;
  explicit Dicom_NumberOf(Number value) : values_{value} {}
  explicit Dicom_NumberOf(std::vector<Number> values) : values_(std::move(values)) {}

  Dicom_VR GetVR() const override { return VR; }
  bool IsEmpty() const override { return values_.empty(); }
  int GetNValues() const override { return int(values_.size()); }
  std::string GetText() const override;
  std::size_t GetLength() const override { return values_.size() * sizeof(Number); }
  void AppendBytes(std::string& bytes) const override;
  std::unique_ptr<Dicom_Type> Clone() const override { return std::make_unique<Self>(static_cast<Self const&>(*this)); }
  bool operator==(Dicom_Type const& other) const override;
  int Match(Dicom_Type const& key) const override;
  Self Duplicate() const { return static_cast<Self const&>(*this); }

  /// Value `i`, 0 beyond the last.
  Number operator[](int i) const {
    return i >= 0 && std::size_t(i) < values_.size() ? values_[std::size_t(i)] : Number();
  }
  std::vector<Number> const& Values() const { return values_; }
  friend bool operator==(Dicom_NumberOf const& a, Dicom_NumberOf const& b) { return a.values_ == b.values_; }
  friend bool operator!=(Dicom_NumberOf const& a, Dicom_NumberOf const& b) { return a.values_ != b.values_; }

private:
  std::vector<Number> values_;
};

#define DICOM_NUMBER_CLASS(Name, Number, VR)                                                                           \
  class DISK_EXPORT Name : public Dicom_NumberOf<Name, Number, Dicom_VR::VR> {                                         \
  public:                                                                                                              \
    using Dicom_NumberOf::Dicom_NumberOf;                                                                              \
    /** The first number; 0 when there is none. */                                                                     \
    operator Number() const { return (*this)[0]; }                                                                     \
  };

DICOM_NUMBER_CLASS(Dicom_FD, double, FD)
DICOM_NUMBER_CLASS(Dicom_FL, float, FL)
DICOM_NUMBER_CLASS(Dicom_SL, std::int32_t, SL)
DICOM_NUMBER_CLASS(Dicom_SS, std::int16_t, SS)
DICOM_NUMBER_CLASS(Dicom_SV, std::int64_t, SV)
DICOM_NUMBER_CLASS(Dicom_UL, std::uint32_t, UL)
DICOM_NUMBER_CLASS(Dicom_US, std::uint16_t, US)
DICOM_NUMBER_CLASS(Dicom_UV, std::uint64_t, UV)
/// Tags as values: group * 65536 + element.
DICOM_NUMBER_CLASS(Dicom_AT, std::uint32_t, AT)
#undef DICOM_NUMBER_CLASS

DISK_EXPORT extern Dicom_AT const AT_NULL;
DISK_EXPORT extern Dicom_FD const FD_NULL;
DISK_EXPORT extern Dicom_FL const FL_NULL;
DISK_EXPORT extern Dicom_SL const SL_NULL;
DISK_EXPORT extern Dicom_SS const SS_NULL;
DISK_EXPORT extern Dicom_SV const SV_NULL;
DISK_EXPORT extern Dicom_UL const UL_NULL;
DISK_EXPORT extern Dicom_US const US_NULL;
DISK_EXPORT extern Dicom_UV const UV_NULL;
