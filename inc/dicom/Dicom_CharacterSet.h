#pragma once
#include <infra/Disk_Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

enum class Dicom_CharacterCode : uint8_t; ///< the single coded sets, a matter of the implementation

/// How the text of a data set is encoded, as its Specific Character Set (0008,0005) says, and the two ways
/// between that and UTF-8, in which all text is kept in memory.
//
/// An object never changes; any number of threads may use it. Conversion is the C library's iconv, one call
/// per piece between two ISO 2022 escapes. A thread keeps the converters that it used, at most two per code.
//
///   auto set = Dicom_CharacterSet::Make("\\ISO 2022 IR 87");
///   std::string name = set->ToUtf8(bytes, Dicom_CharacterSet::Delimiters::PersonName);
//
/// Separate values after decoding: in Shift-JIS, GBK and GB18030 a backslash byte can be half a character.
class DISK_EXPORT Dicom_CharacterSet {
public:
  /// Which characters bring the initial set back, besides CR, LF, FF and TAB.
  enum class Delimiters {
    PersonName, // '^', '=' and backslash: PN
    MultiValue, // backslash: LO SH UC
    Text,       // none: LT ST UT
  };

  /// The set for a value of (0008,0005), padded or not; empty stands for an absent element too. Wrong
  /// spellings ("ISO-IR 100", "iso_ir_100", "UTF-8") are understood; unknown terms are passed over. Never
  /// null. Values that mean the same usually give the same object.
  static std::shared_ptr<Dicom_CharacterSet const> Make(std::string_view specific_character_set_value);

  /// UTF-8 text is the encoded text: ISO_IR 192.
  bool IsUtf8() const { return kind_ == Kind::Utf8; }
  /// Nothing but ISO 646 can be written.
  bool IsAscii() const { return kind_ == Kind::Ascii; }
  /// The terms in the standard's spelling, backslash between them: what (0008,0005) is to hold. May be empty.
  std::string_view Terms() const { return terms_; }

  /// Decodes. Never fails: what can't be decoded becomes the Latin-1 character of the byte when all terms are
  /// single byte sets, and U+FFFD otherwise. Beyond the standard's rules:
  /// - Without a set (or with ISO_IR 6 alone) bytes that are valid UTF-8 are that, others are Latin-1.
  /// - ISO_IR 13 is read as Shift-JIS. That is JIS X 0201 as long as bytes 81-9F and E0-FC are absent, which
  ///   mean nothing in JIS X 0201; many files bear Shift-JIS under this term. 5C and 7E are '\' and '~', not
  ///   yen and overline.
  /// - Known escapes are obeyed even if their set isn't among the terms; unknown ones stay in the text. There
  ///   are no escapes in UTF-8, GB18030 and GBK, nor without a set.
  /// - Bytes above 7F where no set is designated for them are read in the set designated last, else in that of
  ///   the first term that has one: many writers leave out the escape or its repetition after a delimiter.
  std::string ToUtf8(std::string_view bytes, Delimiters kind) const;

  /// Encodes into `bytes`, whose old content is replaced. False when a character isn't in the set, `utf8`
  /// isn't valid UTF-8 or holds an ESC that would be taken for an escape; `bytes` is unspecified then. Strict
  /// where ToUtf8 is lenient. Of several terms the current one is preferred, then the first that has the
  /// character; the initial set is back before delimiters and at the end.
  bool FromUtf8(std::string_view utf8, Delimiters kind, std::string& bytes) const;

private:
  enum class Kind { Ascii, Utf8, Alone, Extended };

  Dicom_CharacterSet() = default;

  Kind kind_ = Kind::Ascii;
  std::vector<Dicom_CharacterCode> codes_; // as in the terms; the first is the initial set
  std::string terms_;
};

/// Valid UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
DISK_EXPORT bool Dicom_IsValidUtf8(std::string_view text);

/// Only bytes below 80, and no ESC: the same text in every character set of DICOM.
DISK_EXPORT bool Dicom_IsPlainAscii(std::string_view text);
