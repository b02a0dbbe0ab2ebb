#include "dicom/values/Dicom_Decimal.h"

#include <dicom/Dicom_Match.h>
#include <dicom/Dicom_Msg.h>
#include <infra/Util_Clock.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <set>
#include <tuple>

namespace {

std::string_view WithoutPadding(std::string_view text) {
  std::size_t n = text.size();
  while (n > 0 && (text[n - 1] == ' ' || text[n - 1] == '\0'))
    --n;
  return text.substr(0, n);
}

/// `count` digits of `text` from `position` as a number; 0 unless all are digits.
int Digits(std::string_view text, std::size_t position, std::size_t count) {
  if (position + count > text.size()) return 0;
  int number = 0;
  for (char c : text.substr(position, count)) {
    if (c < '0' || c > '9') return 0;
    number = number * 10 + (c - '0');
  }
  return number;
}

std::string Printed(char const* format, int a, int b, int c) {
  char text[40];
  std::snprintf(text, sizeof text, format, a, b, c);
  return text;
}

/// The fraction of a second in a time, in millionths.
int Fraction(std::string_view time) {
  std::size_t const point = time.find('.');
  if (point == std::string_view::npos) return 0;
  std::string digits(time.substr(point + 1, 6));
  digits.resize(6, '0');
  return Digits(digits, 0, 6);
}

/// A date-time without its offset from UTC.
std::string_view WithoutOffset(std::string_view text) { return text.substr(0, text.find_first_of("+-")); }

/// Old dates and times have `separator` between their fields.
int Field(std::string_view text, char separator, std::size_t first, int index, std::size_t width) {
  bool const old = text.size() > first && text[first] == separator;
  std::size_t const position = index == 0 ? 0 : first + std::size_t(index - 1) * width + (old ? std::size_t(index) : 0);
  return Digits(text, position, index == 0 ? first : width);
}

} // namespace

int Dicom_Type::MatchRetrieve(Dicom_Type const& key, Dicom_Type** result) const {
  if (!result) return -1;
  *result = nullptr;
  if (!key.IsEmpty() && (GetVR() == Dicom_VR::SQ) != (key.GetVR() == Dicom_VR::SQ)) return -1;
  if (Match(key)) *result = Clone().release();
  return 0;
}

// Text

Dicom_StringType::Dicom_StringType(std::string_view text) : text_(WithoutPadding(text)) {}

Dicom_StringType::Dicom_StringType(char const* bytes, int length, int* status) {
  bool ok = bytes != nullptr;
  if (ok) {
    std::string_view const text =
        WithoutPadding(length < 0 ? std::string_view(bytes) : std::string_view(bytes, std::size_t(length)));
    ok = text.find('\0') == std::string_view::npos;
    if (ok) text_ = text;
  }
  if (status) *status = ok ? 0 : -1;
}

int Dicom_StringType::GetNValues() const {
  if (text_.empty()) return 0;
  return Dicom_IsMultiValueText(GetVR()) ? 1 + int(std::count(text_.begin(), text_.end(), '\\')) : 1;
}

std::size_t Dicom_StringType::GetLength() const {
  return (std::max<std::size_t>(text_.size(), width_) + 1) & ~std::size_t(1);
}

std::string_view Dicom_StringType::ValueView(int i) const {
  std::string_view rest = text_;
  if (!Dicom_IsMultiValueText(GetVR())) return i == 0 ? rest : std::string_view();
  for (; i > 0; --i) {
    std::size_t const separator = rest.find('\\');
    if (separator == std::string_view::npos) return {};
    rest.remove_prefix(separator + 1);
  }
  return i == 0 ? rest.substr(0, rest.find('\\')) : std::string_view();
}

bool Dicom_StringType::operator==(Dicom_Type const& other) const {
  auto const* text = dynamic_cast<Dicom_StringType const*>(&other);
  return text ? text_ == text->text_ : text_ == other.GetText();
}

int Dicom_StringType::Match(Dicom_Type const& key) const {
  if (key.GetVR() == Dicom_VR::SQ && !key.IsEmpty()) return 0;
  return Dicom_MatchText(GetVR(), text_, key.GetText()) ? 1 : 0;
}

Dicom_CS Dicom_CS::RmSubElement(Dicom_CS const& part) const {
  std::string result;
  bool removed = false;
  for (int i = 0; i < GetNValues(); ++i) {
    std::string_view const value = WithoutPadding(ValueView(i));
    if (!removed && value == part.View()) {
      removed = true;
      continue;
    }
    if (!result.empty()) result += '\\';
    result += value;
  }
  return Dicom_CS(result);
}

Dicom_CS Dicom_CS::operator|(Dicom_CS const& other) const {
  std::string result;
  std::set<std::string_view> known;
  for (std::string_view rest : {View(), other.View()}) {
    while (!rest.empty()) {
      std::string_view const part = rest.substr(0, rest.find('\\'));
      rest.remove_prefix(std::min(part.size() + 1, rest.size()));
      if (WithoutPadding(part).empty() || !known.insert(WithoutPadding(part)).second) continue;
      if (!result.empty()) result += '\\';
      result += WithoutPadding(part);
    }
  }
  return Dicom_CS(result);
}

Dicom_DA::Dicom_DA(int year, int month, int day) : Dicom_DA(Printed("%04d%02d%02d", year, month, day)) {}
Dicom_DA Dicom_DA::GetCurrentDate() {
  std::tm now{};
  if (Util_Clock::LocalTime(Util_Clock::Now(), &now) == -1) return DA_NULL;
  return Dicom_DA(now.tm_year + 1900, now.tm_mon + 1, now.tm_mday);
}
int Dicom_DA::Year() const { return Digits(text_, 0, 4); }
int Dicom_DA::Month() const { return Field(text_, '.', 4, 1, 2); }
int Dicom_DA::Day() const { return Field(text_, '.', 4, 2, 2); }
bool Dicom_DA::operator<(Dicom_DA const& other) const {
  return std::tuple(Year(), Month(), Day()) < std::tuple(other.Year(), other.Month(), other.Day());
}

Dicom_TM::Dicom_TM(int hours, int minutes, int seconds) : Dicom_TM(Printed("%02d%02d%02d", hours, minutes, seconds)) {}
Dicom_TM Dicom_TM::GetTickCount() {
  std::tm now{};
  if (Util_Clock::LocalTime(Util_Clock::Now(), &now) == -1) return TM_NULL;
  return Dicom_TM(now.tm_hour, now.tm_min, now.tm_sec);
}
int Dicom_TM::Hours() const { return Digits(text_, 0, 2); }
int Dicom_TM::Minutes() const { return Field(text_, ':', 2, 1, 2); }
int Dicom_TM::Seconds() const { return Field(text_, ':', 2, 2, 2); }
bool Dicom_TM::operator<(Dicom_TM const& other) const {
  auto const fields = [](Dicom_TM const& t) {
    return std::tuple(t.Hours(), t.Minutes(), t.Seconds(), Fraction(t.View()));
  };
  return fields(*this) < fields(other);
}

Dicom_DT::Dicom_DT(Dicom_DA const& date, Dicom_TM const& time, int* status)
    : Dicom_DT(date, time.Hours(), time.Minutes(), time.Seconds(), status) {}

Dicom_DT::Dicom_DT(Dicom_DA const& date, int hours, int minutes, double seconds, int* status) {
  if (status) *status = date == DA_NULL ? -1 : 0;
  if (date == DA_NULL) return;
  text_ = Printed("%04d%02d%02d", date.Year(), date.Month(), date.Day()) +
          Printed("%02d%02d%02d", hours, minutes, int(seconds));
}

Dicom_DA Dicom_DT::Date() const { return Dicom_DA(WithoutOffset(text_).substr(0, 8)); }
Dicom_TM Dicom_DT::Time() const {
  std::string_view const point = WithoutOffset(text_);
  return point.size() > 8 ? Dicom_TM(point.substr(8)) : Dicom_TM();
}
bool Dicom_DT::operator<(Dicom_DT const& other) const {
  if (Date() < other.Date() || other.Date() < Date()) return Date() < other.Date();
  return Time() < other.Time();
}

Dicom_IS::Dicom_IS(int value, bool fixed_width) : Dicom_IS(std::string_view(std::to_string(value))) {
  if (fixed_width) width_ = 12;
}

Dicom_IS::operator int() const {
  std::string_view text = ValueView(0);
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  if (!text.empty() && text[0] == '+') text.remove_prefix(1);
  long long number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::result_out_of_range) return text[0] == '-' ? INT_MIN : INT_MAX;
  if (error != std::errc()) return 0;
  return int(std::clamp<long long>(number, INT_MIN, INT_MAX));
}

Dicom_DS::Dicom_DS(double value) { text_ = Dicom_PrintDecimal(value); }

Dicom_DS::operator double() const {
  double number = 0;
  Dicom_ParseDecimal(ValueView(0), &number);
  return number;
}

// Numbers

template <class Self, class Number, Dicom_VR VR>
std::string Dicom_NumberOf<Self, Number, VR>::GetText() const {
  std::string text;
  for (Number const value : values_) {
    if (!text.empty()) text += '\\';
    char number[48];
    auto const result = std::to_chars(number, number + sizeof number, value);
    text.append(number, result.ptr);
  }
  return text;
}

template <class Self, class Number, Dicom_VR VR>
void Dicom_NumberOf<Self, Number, VR>::AppendBytes(std::string& bytes) const {
  for (Number value : values_) {
    if constexpr (VR == Dicom_VR::AT) value = value >> 16 | value << 16; // the group comes first
    char encoded[sizeof(Number)];
    Dicom_Copy(&value, encoded, sizeof(Number), 1, Dicom_Endianity::Little);
    bytes.append(encoded, sizeof(Number));
  }
}

template <class Self, class Number, Dicom_VR VR>
bool Dicom_NumberOf<Self, Number, VR>::operator==(Dicom_Type const& other) const {
  auto const* same = dynamic_cast<Self const*>(&other);
  return same ? values_ == same->values_ : GetText() == other.GetText();
}

template <class Self, class Number, Dicom_VR VR>
int Dicom_NumberOf<Self, Number, VR>::Match(Dicom_Type const& key) const {
  if (key.GetVR() == Dicom_VR::SQ && !key.IsEmpty()) return 0;
  return Dicom_MatchText(Dicom_VR::DS, GetText(), key.GetText()) ? 1 : 0;
}

template class Dicom_NumberOf<Dicom_FD, double, Dicom_VR::FD>;
template class Dicom_NumberOf<Dicom_FL, float, Dicom_VR::FL>;
template class Dicom_NumberOf<Dicom_SL, std::int32_t, Dicom_VR::SL>;
template class Dicom_NumberOf<Dicom_SS, std::int16_t, Dicom_VR::SS>;
template class Dicom_NumberOf<Dicom_SV, std::int64_t, Dicom_VR::SV>;
template class Dicom_NumberOf<Dicom_UL, std::uint32_t, Dicom_VR::UL>;
template class Dicom_NumberOf<Dicom_US, std::uint16_t, Dicom_VR::US>;
template class Dicom_NumberOf<Dicom_UV, std::uint64_t, Dicom_VR::UV>;
template class Dicom_NumberOf<Dicom_AT, std::uint32_t, Dicom_VR::AT>;

// Bytes

Dicom_OtherType::Dicom_OtherType(void const* data, std::size_t length, int copy, int* status, std::string syntax)
    : syntax_(std::move(syntax)) {
  bool const ok = data || length == 0;
  if (status) *status = ok ? 0 : -1;
  if (!ok || length == 0) return;
  if (copy) {
    owned_.assign(static_cast<char const*>(data), length);
  } else {
    borrowed_ = static_cast<char const*>(data);
    borrowed_length_ = length;
  }
}

Dicom_OtherType::Dicom_OtherType(Dicom_OtherType const& other)
    : Dicom_Type(other), owned_(other.Bytes()), syntax_(other.syntax_) {}

Dicom_OtherType& Dicom_OtherType::operator=(Dicom_OtherType const& other) {
  if (this == &other) return *this;
  owned_ = other.Bytes();
  borrowed_ = nullptr;
  syntax_ = other.syntax_;
  return *this;
}

bool Dicom_OtherType::operator==(Dicom_Type const& other) const {
  auto const* bytes = dynamic_cast<Dicom_OtherType const*>(&other);
  return bytes ? Bytes() == bytes->Bytes() && syntax_ == bytes->syntax_ : IsEmpty() && other.IsEmpty();
}

int Dicom_OtherType::Match(Dicom_Type const& key) const { return key.IsEmpty() || *this == key; }
