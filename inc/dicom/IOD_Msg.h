#pragma once
#include <dicom/Dicom_Dictionary.h>
#include <dicom/Dicom_Msg.h>
#include <dicom/Dicom_UIDic.h>

#include <memory>
#include <string>

/// A data set with accessors by name.
///
/// For each attribute of IOD_Attributes.inc there are `V Get<Name>() const`, the value or the null constant of its
/// class when the attribute is absent, and `int Set<Name>(V const&)`, which stores a copy: 0, or -1 when the message
/// can't take it, and then it is unchanged.
class DISK_EXPORT IOD_Msg : public Dicom_Msg {
public:
  using Dicom_Msg::Dicom_Msg;
  IOD_Msg() = default;
  IOD_Msg(Dicom_Msg const& msg) : Dicom_Msg(msg) {}
  IOD_Msg(Dicom_Msg&& msg) : Dicom_Msg(std::move(msg)) {}

#define IOD_ATTRIBUTE(Name, Class, Tag)                                                                                \
  Class Get##Name() const { return Value<Class>(Tag); }                                                                \
  int Set##Name(Class const& value) { return Set(Tag, value); }
#include <dicom/IOD_Attributes.inc>
#include <infra/Disk_Export.h>
#undef IOD_ATTRIBUTE

  // Doors to memory. `error`, which may be null, tells why something failed.

  /// The message in the bytes of a DICOM file, with or without preamble and meta information. The bytes are copied
  /// once. Null when they are no such file.
  static std::unique_ptr<IOD_Msg> FromFileBytes(std::string_view bytes, std::string* error = nullptr);
  /// The message in the bytes of a data set, as a network peer sends it in the transfer syntax agreed upon.
  static std::unique_ptr<IOD_Msg> FromDataSetBytes(std::string_view bytes, Dicom_UI const& syntax,
                                                   std::string* error = nullptr);
  /// A DICOM file. Pixels that are encapsulated stay so, and the file then bears their syntax instead of `syntax`. 0;
  /// or -1, and `*bytes` is as before.
  [[nodiscard]] int ToFileBytes(std::string* bytes, Dicom_UI const& syntax = Dicom_UIDic::NATIVE_TRANSFER_SYNTAX,
                                std::string* error = nullptr) const;
  /// The data set alone. The same results; -1 also when the pixels are encapsulated in another syntax.
  [[nodiscard]] int ToDataSetBytes(std::string* bytes, Dicom_UI const& syntax, std::string* error = nullptr) const;

  /// The pixels, bytes or words, which stay the message's; OW_NULL where it has none.
  Dicom_OtherType const& GetPixelData() const;
  int SetPixelData(Dicom_OtherType const& pixels) { return Set(kPixelData, pixels); }

  /// The day of Verification DateTime (0040,A030).
  Dicom_DA GetVerificationDateTime() const { return Value<Dicom_DT>(kVerificationDateTime).Date(); }
  int SetVerificationDateTime(Dicom_DA const& date) { return Set(kVerificationDateTime, Dicom_DT(date.GetText())); }

  /// Stamps the message with the version of the writing program; with the library's own for a null `version`.
  int AddKolbaExeVersion(Dicom_LO const& version);

private:
  static constexpr Dicom_Tag kPixelData{0x7FE0, std::uint16_t(0x0010)};
  static constexpr Dicom_Tag kVerificationDateTime{0x0040, std::uint16_t(0xA030)};
};
