// Puts elements into data sets by number and text, so that what an object holds can stand in tables.
#pragma once

#include <cstdint>
#include <dicom/Dicom_Msg.h>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Phantom {

struct Constant {
  std::uint32_t tag; // group * 65536 + element
  std::string_view text;
};

// Adds an element with the VR that the dictionary has for it. Several values, numbers too, are separated by
// `\`; tags as values are decimal numbers.
void Add(Dicom_Msg& msg, std::uint32_t tag, std::string_view text);
void Add(Dicom_Msg& msg, std::uint32_t tag, int number);
// Up to four digits behind the point.
void Add(Dicom_Msg& msg, std::uint32_t tag, double number);
void AddAll(Dicom_Msg& msg, std::span<Constant const> constants);
void AddAll(Dicom_Msg& msg, std::initializer_list<Constant> constants);

// A number as DS has it, with up to four digits behind the point.
std::string Decimal(double number);

// The items of a sequence in the making.
//
//     Items items;
//     Add(items.New(), 0x00080100, "T-D1100");
//     items.Into(msg, 0x00082218);
class Items {
public:
  Items() : sequence_(std::make_unique<Dicom_Sequence>()) {}

  // A new item at the end; it stays the sequence's.
  Dicom_Msg& New();
  // Puts the sequence into the message, which owns it from now on; ends the use of this object.
  void Into(Dicom_Msg& msg, std::uint32_t tag);

private:
  std::unique_ptr<Dicom_Sequence> sequence_;
};

struct Code {
  std::string_view value, scheme, meaning;
};

// A sequence of one item with the code in it.
void AddCode(Dicom_Msg& msg, std::uint32_t tag, Code const& code);
// SOP class and instance of another object.
void AddReference(Dicom_Msg& item, Dicom_UI const& sop_class, Dicom_UI const& sop_instance);

} // namespace Phantom
