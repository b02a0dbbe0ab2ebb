#include "dicom/values/Dicom_Decimal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

std::size_t Dicom_ParseDecimal(std::string_view text, double* number) {
  std::size_t start = std::min(text.find_first_not_of(' '), text.size());
  if (start < text.size() && text[start] == '+') ++start;
  std::size_t const digits = start + (start < text.size() && text[start] == '-' ? 1 : 0);
  constexpr std::string_view kFirst = "0123456789."; // neither "inf" nor "nan"
  if (digits >= text.size() || kFirst.find(text[digits]) == std::string_view::npos) return 0;
  double value = 0;
  auto const [end, error] = std::from_chars(text.data() + start, text.data() + text.size(), value);
  if (error == std::errc::invalid_argument) return 0;
  std::string_view const taken = text.substr(start, std::size_t(end - text.data()) - start);
  if (error == std::errc::result_out_of_range) {
    std::size_t const exponent = taken.find_first_of("eE");
    bool const tiny = exponent != std::string_view::npos && taken.substr(exponent + 1).starts_with('-');
    value = tiny ? 0 : std::numeric_limits<double>::max();
    if (taken[0] == '-') value = -value;
  }
  *number = value;
  return start + taken.size();
}

std::string Dicom_PrintDecimal(double number) {
  constexpr std::ptrdiff_t kMost = 16;
  if (!std::isfinite(number)) return {};
  char text[48];
  auto result = std::to_chars(text, text + sizeof text, number);
  for (int precision = 16; result.ptr - text > kMost; --precision)
    result = std::to_chars(text, text + sizeof text, number, std::chars_format::general, precision);
  return std::string(text, result.ptr);
}
