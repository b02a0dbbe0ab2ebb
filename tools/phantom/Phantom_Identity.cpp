#include "Phantom_Identity.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace Phantom {

namespace {

using Days = std::chrono::sys_days;
using namespace std::chrono_literals;

constexpr Days kFirstBirth = 1930y / 1 / 1;
constexpr Days kFirstStudy = 2019y / 1 / 2;
constexpr int kBirthDays = 32'000; // to 2017: everybody is born before the first study
constexpr int kStudyDays = 2'000;

constexpr std::uint64_t Mix(std::uint64_t x) {
  x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9;
  x = (x ^ x >> 27) * 0x94D049BB133111EB;
  return x ^ x >> 31;
}

std::string DateText(Days day) {
  std::chrono::year_month_day const date(day);
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02u%02u", int(date.year()), unsigned(date.month()), unsigned(date.day()));
  return text;
}

Days BirthDay(Object const& object) {
  return kFirstBirth + std::chrono::days(Number(object, Purpose::Patient, Level::Patient) % kBirthDays);
}

Days StudyDay(Object const& object) {
  return kFirstStudy + std::chrono::days(Number(object, Purpose::StudyDay, Level::Study) % kStudyDays);
}

// 128 bits in decimal.
std::string DecimalText(std::uint64_t high, std::uint64_t low) {
  std::uint32_t words[4] = {std::uint32_t(high >> 32), std::uint32_t(high), std::uint32_t(low >> 32),
                            std::uint32_t(low)};
  std::string digits;
  while (words[0] | words[1] | words[2] | words[3]) {
    std::uint64_t rest = 0;
    for (std::uint32_t& word : words) {
      rest = rest << 32 | word;
      word = std::uint32_t(rest / 10);
      rest %= 10;
    }
    digits += char('0' + rest);
  }
  std::reverse(digits.begin(), digits.end());
  return digits;
}

} // namespace

std::uint64_t Hash(std::initializer_list<std::uint64_t> numbers) {
  std::uint64_t hash = 0;
  for (std::uint64_t const number : numbers)
    hash = Mix((hash + 0x9E3779B97F4A7C15) ^ Mix(number + 0x632BE59BD9B4E019));
  return hash;
}

std::uint64_t Number(Object const& object, Purpose purpose, Level level) {
  auto const at = [&](Level place, int number) { return level >= place ? std::uint64_t(number) : 0; };
  return Hash({object.seed, std::uint64_t(purpose), at(Level::Patient, object.patient), at(Level::Study, object.study),
               at(Level::Series, object.series), at(Level::Image, object.image)});
}

Dicom_UI MakeUid(Object const& object, Purpose purpose, Level level) {
  std::uint64_t const number = Number(object, purpose, level);
  // version and variant of a UUID of its maker's own kind
  std::uint64_t const high = (Mix(number) & ~0xF000ULL) | 0x8000;
  std::uint64_t const low = (Mix(~number) & ~(3ULL << 62)) | 2ULL << 62;
  return Dicom_UI("2.25." + DecimalText(high, low));
}

Dicom_LO PatientId(Object const& object) {
  char text[48];
  std::snprintf(text, sizeof text, "PH%llu-%05d", static_cast<unsigned long long>(object.seed), object.patient);
  return Dicom_LO(text);
}

Dicom_UI StudyUid(Object const& object) { return MakeUid(object, Purpose::Study, Level::Study); }
Dicom_UI SeriesUid(Object const& object) { return MakeUid(object, Purpose::Series, Level::Series); }
Dicom_UI InstanceUid(Object const& object) { return MakeUid(object, Purpose::Instance, Level::Image); }

std::string BirthDate(Object const& object) { return DateText(BirthDay(object)); }
std::string StudyDate(Object const& object) { return DateText(StudyDay(object)); }
std::string DateBeforeStudy(Object const& object, int days) {
  return DateText(StudyDay(object) - std::chrono::days(days));
}

std::string AgeInStudy(Object const& object) {
  constexpr double kDaysOfYear = 365.2425;
  int const years = int(double((StudyDay(object) - BirthDay(object)).count()) / kDaysOfYear);
  char text[16];
  std::snprintf(text, sizeof text, "%03dY", years);
  return text;
}

std::string TimeAfterStudy(Object const& object, long long milliseconds) {
  constexpr long long kOpens = 7LL * 3600 * 1000;
  constexpr long long kOpen = 10LL * 3600 * 1000;
  constexpr long long kDay = 24LL * 3600 * 1000;
  auto const study = kOpens + (long long)(Number(object, Purpose::StudyTime, Level::Study) % kOpen) / 1000 * 1000;
  long long const time = (study + milliseconds) % kDay;
  char text[32];
  std::snprintf(text, sizeof text, "%02d%02d%02d.%03d", int(time / 3'600'000), int(time / 60'000 % 60),
                int(time / 1000 % 60), int(time % 1000));
  return text;
}

} // namespace Phantom
