#include "Phantom_DataSet.h"

#include <charconv>
#include <cmath>
#include <dicom/Dicom_DataDictionary.h>
#include <vector>

namespace Phantom {

namespace {

template <class V>
std::unique_ptr<Dicom_Type> Numbers(std::string_view text) {
  std::vector<typename V::Value> numbers;
  for (char const *p = text.data(), *const end = p + text.size(); p < end; ++p) {
    typename V::Value number{};
    p = std::from_chars(p, end, number).ptr;
    numbers.push_back(number);
  }
  return std::make_unique<V>(std::move(numbers));
}

std::unique_ptr<Dicom_Type> MakeValue(Dicom_VR vr, std::string_view text) {
  switch (vr) {
  case Dicom_VR::AE:
    return std::make_unique<Dicom_AE>(text);
  case Dicom_VR::AS:
    return std::make_unique<Dicom_AS>(text);
  case Dicom_VR::CS:
    return std::make_unique<Dicom_CS>(text);
  case Dicom_VR::DA:
    return std::make_unique<Dicom_DA>(text);
  case Dicom_VR::DS:
    return std::make_unique<Dicom_DS>(text);
  case Dicom_VR::DT:
    return std::make_unique<Dicom_DT>(text);
  case Dicom_VR::IS:
    return std::make_unique<Dicom_IS>(text);
  case Dicom_VR::LO:
    return std::make_unique<Dicom_LO>(text);
  case Dicom_VR::LT:
    return std::make_unique<Dicom_LT>(text);
  case Dicom_VR::PN:
    return std::make_unique<Dicom_PN>(text);
  case Dicom_VR::SH:
    return std::make_unique<Dicom_SH>(text);
  case Dicom_VR::ST:
    return std::make_unique<Dicom_ST>(text);
  case Dicom_VR::TM:
    return std::make_unique<Dicom_TM>(text);
  case Dicom_VR::UI:
    return std::make_unique<Dicom_UI>(text);
  case Dicom_VR::UT:
    return std::make_unique<Dicom_UT>(text);
  case Dicom_VR::AT:
    return Numbers<Dicom_AT>(text);
  case Dicom_VR::FD:
    return Numbers<Dicom_FD>(text);
  case Dicom_VR::FL:
    return Numbers<Dicom_FL>(text);
  case Dicom_VR::SL:
    return Numbers<Dicom_SL>(text);
  case Dicom_VR::SS:
    return Numbers<Dicom_SS>(text);
  case Dicom_VR::UL:
    return Numbers<Dicom_UL>(text);
  case Dicom_VR::US:
    return Numbers<Dicom_US>(text);
  default:
    return std::make_unique<Dicom_UN>(text.data(), text.size(), 1, nullptr);
  }
}

} // namespace

void Add(Dicom_Msg& msg, std::uint32_t tag, std::string_view text) {
  Dicom_VR const vr = Dicom_DataDictionary::VROf(std::uint16_t(tag >> 16), std::uint16_t(tag));
  msg.Add(Dicom_ME(Dicom_Tag(tag), MakeValue(vr, text)));
}

void Add(Dicom_Msg& msg, std::uint32_t tag, int number) { Add(msg, tag, std::to_string(number)); }

void Add(Dicom_Msg& msg, std::uint32_t tag, double number) { Add(msg, tag, Decimal(number)); }

void AddAll(Dicom_Msg& msg, std::span<Constant const> constants) {
  for (auto const& [tag, text] : constants)
    Add(msg, tag, text);
}

void AddAll(Dicom_Msg& msg, std::initializer_list<Constant> constants) {
  AddAll(msg, std::span<Constant const>(constants.begin(), constants.size()));
}

std::string Decimal(double number) {
  long long const scaled = std::llround(std::fabs(number) * 10000);
  std::string digits = std::to_string(scaled % 10000 + 10000).substr(1);
  digits.erase(digits.find_last_not_of('0') + 1);
  std::string const sign = number < 0 && scaled != 0 ? "-" : "";
  return sign + std::to_string(scaled / 10000) + (digits.empty() ? "" : "." + digits);
}

Dicom_Msg& Items::New() {
  auto* const item = new Dicom_Msg;
  sequence_->Append(item, true);
  return *item;
}

void Items::Into(Dicom_Msg& msg, std::uint32_t tag) {
  msg.Add(Dicom_ME(Dicom_Tag(tag), std::make_unique<Dicom_SQ>(sequence_.release())));
}

void AddCode(Dicom_Msg& msg, std::uint32_t tag, Code const& code) {
  Items items;
  AddAll(items.New(), {{0x00080100, code.value}, {0x00080102, code.scheme}, {0x00080104, code.meaning}});
  items.Into(msg, tag);
}

void AddReference(Dicom_Msg& item, Dicom_UI const& sop_class, Dicom_UI const& sop_instance) {
  Add(item, 0x00081150, sop_class.View());
  Add(item, 0x00081155, sop_instance.View());
}

} // namespace Phantom
