#pragma once
#include <dicom/Dicom_Dictionary.h>
#include <dicom/Dicom_Msg.h>

/// A data set with accessors by name.
///
/// For each attribute of IOD_Attributes.inc there are `V Get<Name>() const`, the value or the null constant of its
/// class when the attribute is absent, and `int Set<Name>(V const&)`, which stores a copy: 0, or -1 when the message
/// can't take it, and then it is unchanged.
class IOD_Msg : public Dicom_Msg {
public:
  using Dicom_Msg::Dicom_Msg;
  IOD_Msg() = default;
  IOD_Msg(Dicom_Msg const& msg) : Dicom_Msg(msg) {}
  IOD_Msg(Dicom_Msg&& msg) : Dicom_Msg(std::move(msg)) {}

#define IOD_ATTRIBUTE(Name, Class, Tag)                                                                                \
  Class Get##Name() const { return Value<Class>(Tag); }                                                                \
  int Set##Name(Class const& value) { return Set(Tag, value); }
#include <dicom/IOD_Attributes.inc>
#undef IOD_ATTRIBUTE

  /// The day of Verification DateTime (0040,A030).
  Dicom_DA GetVerificationDateTime() const { return Value<Dicom_DT>(kVerificationDateTime).Date(); }
  int SetVerificationDateTime(Dicom_DA const& date) { return Set(kVerificationDateTime, Dicom_DT(date.GetText())); }

  /// Stamps the message with the version of the writing program; with the library's own for a null `version`.
  int AddKolbaExeVersion(Dicom_LO const& version);

private:
  static constexpr Dicom_Tag kVerificationDateTime{0x0040, std::uint16_t(0xA030)};
};
