#include "output/Json.h"

#include "output/Report.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

using nlohmann::json;

std::string TagText(std::uint32_t number) {
  char text[9];
  std::snprintf(text, sizeof text, "%08X", number);
  return text;
}

std::string Base64(std::string_view bytes) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t j = i; j < i + 3; ++j)
      group = group << 8 | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0u);
    for (std::size_t digit = 0; digit < 4; ++digit)
      text += i + digit > bytes.size() ? '=' : kDigits[group >> (18 - 6 * digit) & 63];
  }
  return text;
}

template <class Number>
json NumberJson(Number value) {
  if constexpr (std::is_floating_point_v<Number>)
    if (!std::isfinite(value)) return std::isnan(value) ? "NaN" : value > 0 ? "inf" : "-inf";
  return value;
}

// Appends the numbers of `value` if it is a T.
template <class T>
bool AddNumbers(Dicom_Type const& value, json& values) {
  auto const* numbers = dynamic_cast<T const*>(&value);
  if (!numbers) return false;
  for (auto const number : numbers->Values())
    values.push_back(T::kVR == Dicom_VR::AT ? json(TagText(std::uint32_t(number))) : NumberJson(number));
  return true;
}

bool AddAnyNumbers(Dicom_Type const& value, json& values) {
  return AddNumbers<Dicom_AT>(value, values) || AddNumbers<Dicom_FD>(value, values) ||
         AddNumbers<Dicom_FL>(value, values) || AddNumbers<Dicom_SL>(value, values) ||
         AddNumbers<Dicom_SS>(value, values) || AddNumbers<Dicom_SV>(value, values) ||
         AddNumbers<Dicom_UL>(value, values) || AddNumbers<Dicom_US>(value, values) ||
         AddNumbers<Dicom_UV>(value, values);
}

json NameJson(std::string_view name) {
  json groups = json::object();
  for (char const* group : {"Alphabetic", "Ideographic", "Phonetic"}) {
    std::string_view const text = name.substr(0, name.find('='));
    if (!text.empty()) groups[group] = text;
    name.remove_prefix(std::min(text.size() + 1, name.size()));
  }
  return groups;
}

// A number in text as a number; text that is none stays text.
template <class Number>
json DecimalJson(std::string_view text) {
  std::size_t const first = text.find_first_not_of(" +"), last = text.find_last_not_of(' ');
  if (first == std::string_view::npos) return nullptr;
  std::string_view const digits = text.substr(first, last + 1 - first);
  Number number{};
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return text;
  return NumberJson(number);
}

json TextJson(Dicom_VR vr, std::string_view text) {
  if (text.empty()) return nullptr;
  switch (vr) {
  case Dicom_VR::PN:
    return NameJson(text);
  case Dicom_VR::IS:
    return DecimalJson<std::int64_t>(text);
  case Dicom_VR::DS:
    return DecimalJson<double>(text);
  default:
    return text;
  }
}

json ElementJson(Dicom_ME const& element) {
  Dicom_Type const& value = *element.GetValue();
  char vr[3];
  Dicom_VRName(value.GetVR(), vr);
  json result = {{"vr", vr}};
  if (value.IsEmpty()) return result;
  if (auto const* bytes = dynamic_cast<Dicom_OtherType const*>(&value)) {
    result["InlineBinary"] = Base64(bytes->Bytes());
    return result;
  }
  json& values = result["Value"] = json::array();
  if (auto const* sequence = dynamic_cast<Dicom_SQ const*>(&value)) {
    for (int i = 0; i < sequence->GetNValues(); ++i)
      values.push_back(DicomJson(*sequence->GetSequence()->Get(i)));
  } else if (auto const* text = dynamic_cast<Dicom_StringType const*>(&value)) {
    for (int i = 0; i < text->GetNValues(); ++i)
      values.push_back(TextJson(value.GetVR(), text->ValueView(i)));
  } else {
    AddAnyNumbers(value, values);
  }
  return result;
}

} // namespace

nlohmann::json DicomJson(Dicom_Msg const& msg) {
  json result = json::object();
  for (int i = 0; i < msg.GetNElements(); ++i) {
    Dicom_ME const& element = *msg.GetElement(i);
    result[TagText(element.GetTag().Number())] = ElementJson(element);
  }
  return result;
}

std::string JsonText(nlohmann::json const& json) {
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json FailuresJson(Report const& report, char const* what) {
  nlohmann::json failures = nlohmann::json::array();
  for (auto const& [failed, cause] : report.Failures())
    failures.push_back({{what, failed}, {"cause", cause}});
  return failures;
}
