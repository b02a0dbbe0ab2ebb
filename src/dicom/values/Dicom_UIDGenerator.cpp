#include <dicom/Dicom_UIDGenerator.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>

namespace {

/// Divides a number of four 32-bit words, the highest first, by ten; the remainder.
unsigned DivideByTen(std::array<std::uint32_t, 4>& number) {
  std::uint64_t rest = 0;
  for (std::uint32_t& word : number) {
    std::uint64_t const value = rest << 32 | word;
    word = std::uint32_t(value / 10);
    rest = value % 10;
  }
  return unsigned(rest);
}

} // namespace

Dicom_UI Dicom_UIDGenerator::Generate() const {
  thread_local std::random_device s_source;
  std::array<std::uint32_t, 4> number;
  for (std::uint32_t& word : number)
    word = s_source();
  // the marks of a random UUID, whose decimal form the branch 2.25 takes
  number[1] = (number[1] & 0xFFFF0FFF) | 0x4000;
  number[2] = (number[2] & 0x3FFFFFFF) | 0x80000000;
  std::string digits;
  while (std::any_of(number.begin(), number.end(), [](std::uint32_t word) { return word != 0; }))
    digits += char('0' + DivideByTen(number));
  std::reverse(digits.begin(), digits.end());
  return Dicom_UI("2.25." + digits);
}
