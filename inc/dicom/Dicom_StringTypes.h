#pragma once
#include <dicom/Dicom_Type.h>
#include <infra/Disk_Export.h>

/// What all values of text have in common. Values are separated by `\`, but for ST, LT, UT and UR, which hold one.
class DISK_EXPORT Dicom_StringType : public Dicom_Type {
public:
  bool IsEmpty() const override { return text_.empty(); }
  int GetNValues() const override;
  std::string GetText() const override { return text_; }
  Dicom_StringType const* AsString() const override { return this; }
  std::size_t GetLength() const override;
  void AppendBytes(std::string& bytes) const override { bytes += text_; }
  bool operator==(Dicom_Type const& other) const override;
  int Match(Dicom_Type const& key) const override;

  /// The text without a copy; good for as long as the value isn't assigned to.
  std::string_view View() const { return text_; }
  char const* CStr() const { return text_.c_str(); }
  /// The text of value `i`, counted from 0; empty beyond the last.
  std::string_view ValueView(int i) const;
  /// The number of bytes that the value takes at least when it is dumped; 0 but for fixed-width numbers.
  unsigned Width() const { return width_; }

protected:
  Dicom_StringType() = default;
  explicit Dicom_StringType(std::string_view text);
  Dicom_StringType(char const* bytes, int length, int* status);

  std::string text_;
  unsigned width_ = 0;
};

/// The value class of one text VR.
template <class Self, Dicom_VR VR>
class DISK_EXPORT Dicom_StringOf : public Dicom_StringType {
public:
  static constexpr Dicom_VR kVR = VR;
  Dicom_StringOf() = default;
  /// UTF-8 text; trailing blanks and NULs are padding and go.
  explicit Dicom_StringOf(std::string_view text) : Dicom_StringType(text) {}
  explicit Dicom_StringOf(std::string const& text) : Dicom_StringType(std::string_view(text)) {}
  /// `*status` (may be null) is -1, and the value empty, for a null pointer or a text with a NUL inside.
  explicit Dicom_StringOf(char const* text, int* status = nullptr) : Dicom_StringType(text, -1, status) {}
  /// The first `length` bytes of `bytes`. The value keeps a copy whatever `copy` is: text is never borrowed.
  Dicom_StringOf(char const* bytes, int length, int /*copy*/, int* status) : Dicom_StringType(bytes, length, status) {}

  Dicom_VR GetVR() const override { return VR; }
  std::unique_ptr<Dicom_Type> Clone() const override { return std::make_unique<Self>(static_cast<Self const&>(*this)); }
  Self Duplicate() const { return static_cast<Self const&>(*this); }
  Self operator[](int i) const { return Self(ValueView(i)); }
  using Dicom_StringType::operator==;
  friend bool operator==(Dicom_StringOf const& a, Dicom_StringOf const& b) { return a.text_ == b.text_; }
  friend bool operator!=(Dicom_StringOf const& a, Dicom_StringOf const& b) { return a.text_ != b.text_; }
};

#define DICOM_STRING_CLASS(Name, VR)                                                                                   \
  class DISK_EXPORT Name : public Dicom_StringOf<Name, Dicom_VR::VR> {                                                 \
  public:                                                                                                              \
    using Dicom_StringOf::Dicom_StringOf;                                                                              \
  };

DICOM_STRING_CLASS(Dicom_AE, AE)
DICOM_STRING_CLASS(Dicom_AS, AS)
DICOM_STRING_CLASS(Dicom_LO, LO)
DICOM_STRING_CLASS(Dicom_LT, LT)
DICOM_STRING_CLASS(Dicom_PN, PN)
DICOM_STRING_CLASS(Dicom_SH, SH)
DICOM_STRING_CLASS(Dicom_ST, ST)
DICOM_STRING_CLASS(Dicom_UC, UC)
DICOM_STRING_CLASS(Dicom_UI, UI)
DICOM_STRING_CLASS(Dicom_UR, UR)
DICOM_STRING_CLASS(Dicom_UT, UT)
#undef DICOM_STRING_CLASS

class DISK_EXPORT Dicom_CS : public Dicom_StringOf<Dicom_CS, Dicom_VR::CS> {
public:
  using Dicom_StringOf::Dicom_StringOf;
  /// The union of two values: the parts of this one, then those of `other` that it lacks.
  Dicom_CS operator|(Dicom_CS const& other) const;
  /// This value without the first of its parts that equals `part`.
  Dicom_CS RmSubElement(Dicom_CS const& part) const;
};

/// A date, YYYYMMDD. Fields of a text that isn't a date are 0. The old form YYYY.MM.DD is understood.
class DISK_EXPORT Dicom_DA : public Dicom_StringOf<Dicom_DA, Dicom_VR::DA> {
public:
  using Dicom_StringOf::Dicom_StringOf;
  Dicom_DA(int year, int month, int day);
  /// Today, by the local time; null with errno when that can't be told.
  static Dicom_DA GetCurrentDate();
  int Year() const;
  int Month() const;
  int Day() const;
  bool operator<(Dicom_DA const& other) const;
};

/// A time of day, HHMMSS.FFFFFF, cut short from the right as it likes. The old form HH:MM:SS is understood.
class DISK_EXPORT Dicom_TM : public Dicom_StringOf<Dicom_TM, Dicom_VR::TM> {
public:
  using Dicom_StringOf::Dicom_StringOf;
  Dicom_TM(int hours, int minutes, int seconds);
  /// The local time; null with errno when it can't be told.
  static Dicom_TM GetTickCount();
  int Hours() const;
  int Minutes() const;
  int Seconds() const;
  bool operator<(Dicom_TM const& other) const;
};

/// A date and time, YYYYMMDDHHMMSS.FFFFFF&ZZXX. Order and fields take no notice of the offset from UTC.
class DISK_EXPORT Dicom_DT : public Dicom_StringOf<Dicom_DT, Dicom_VR::DT> {
public:
  using Dicom_StringOf::Dicom_StringOf;
  /// `*status` (may be null) is -1 when the date is null; a null time stands for midnight.
  Dicom_DT(Dicom_DA const& date, Dicom_TM const& time, int* status);
  Dicom_DT(Dicom_DA const& date, int hours, int minutes, double seconds, int* status);
  Dicom_DA Date() const;
  Dicom_TM Time() const;
  bool operator<(Dicom_DT const& other) const;
};

/// An integer in text. Conversion saturates at the limits of int; text that is no number gives 0.
class DISK_EXPORT Dicom_IS : public Dicom_StringOf<Dicom_IS, Dicom_VR::IS> {
public:
  using Dicom_StringOf::Dicom_StringOf;
  explicit Dicom_IS(int value) : Dicom_IS(value, false) {}
  /// With `fixed_width` the dumped length doesn't depend on the number: 12 bytes, the most that an IS may have.
  Dicom_IS(int value, bool fixed_width);
  operator int() const;
};

/// A decimal number in text; text that is no number gives 0.
class DISK_EXPORT Dicom_DS : public Dicom_StringOf<Dicom_DS, Dicom_VR::DS> {
public:
  using Dicom_StringOf::Dicom_StringOf;
  explicit Dicom_DS(double value);
  operator double() const;
};

DISK_EXPORT extern Dicom_AE const AE_NULL;
DISK_EXPORT extern Dicom_AS const AS_NULL;
DISK_EXPORT extern Dicom_CS const CS_NULL;
DISK_EXPORT extern Dicom_DA const DA_NULL;
DISK_EXPORT extern Dicom_DS const DS_NULL;
DISK_EXPORT extern Dicom_DT const DT_NULL;
DISK_EXPORT extern Dicom_IS const IS_NULL;
DISK_EXPORT extern Dicom_LO const LO_NULL;
DISK_EXPORT extern Dicom_LT const LT_NULL;
DISK_EXPORT extern Dicom_PN const PN_NULL;
DISK_EXPORT extern Dicom_SH const SH_NULL;
DISK_EXPORT extern Dicom_ST const ST_NULL;
DISK_EXPORT extern Dicom_TM const TM_NULL;
DISK_EXPORT extern Dicom_UC const UC_NULL;
DISK_EXPORT extern Dicom_UI const UI_NULL;
DISK_EXPORT extern Dicom_UR const UR_NULL;
DISK_EXPORT extern Dicom_UT const UT_NULL;
