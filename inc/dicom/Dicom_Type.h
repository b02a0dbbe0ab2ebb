#pragma once
#include <dicom/Dicom_VR.h>
#include <infra/Disk_Export.h>

#include <concepts>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

class Dicom_StringType;

/// The value of an element. Classes derive from it, one for each value representation.
///
/// A value owns what it holds unless its constructor was told not to copy. Text is UTF-8 in memory, without trailing
/// padding, whatever character set the data set has that it came from. The null constant of a class (UI_NULL, ...)
/// is its empty value: an attribute that is absent and one that is empty compare alike.
///
/// Matching follows C-FIND: an empty key, or a text key of asterisks alone, matches everything; lists of UIDs, wild
/// cards `*` and `?`, ranges of date, time and date-time; a value of several parts matches if one part does. The
/// rules stand in Dicom_Match.h.
class DISK_EXPORT Dicom_Type {
public:
  virtual ~Dicom_Type() = default;

  virtual Dicom_VR GetVR() const = 0;
  virtual bool IsEmpty() const = 0;
  /// The number of values; 0 for an empty element.
  virtual int GetNValues() const = 0;
  /// The value as text, several joined by `\`; empty for what has no text form (OB, UN, SQ and their like).
  virtual std::string GetText() const = 0;
  /// This value, when it is of a VR of text; null for others.
  virtual Dicom_StringType const* AsString() const { return nullptr; }
  /// The length in bytes with which the value is dumped in UTF-8: always even.
  virtual std::size_t GetLength() const = 0;
  /// Appends the value's bytes, unpadded: text in UTF-8, numbers and words in little endian order. Nothing for SQ.
  virtual void AppendBytes(std::string& bytes) const = 0;
  /// A copy that shares nothing with this value.
  virtual std::unique_ptr<Dicom_Type> Clone() const = 0;

  /// Text is compared without padding, numbers by value; values of different kinds by their text.
  virtual bool operator==(Dicom_Type const& other) const = 0;
  virtual bool operator!=(Dicom_Type const& other) const { return !(*this == other); }

  /// For values of two classes, whose conversions to numbers and to each other's bases would compete otherwise.
  template <std::derived_from<Dicom_Type> A, std::derived_from<Dicom_Type> B>
  requires(!std::same_as<A, B>) friend bool operator==(A const& a, B const& b) {
    return static_cast<Dicom_Type const&>(a) == static_cast<Dicom_Type const&>(b);
  }

  /// Non-zero when this value of a record satisfies the value `key` of an identifier.
  virtual int Match(Dicom_Type const& key) const = 0;
  /// As Match, and hands back what a response is to hold: `*result` is a new value for the caller to own (all parts
  /// of a value of which one part matched), or null without a match. 0, or -1 when the two can't be compared.
  virtual int MatchRetrieve(Dicom_Type const& key, Dicom_Type** result) const;

protected:
  Dicom_Type() = default;
  Dicom_Type(Dicom_Type const&) = default;
  Dicom_Type& operator=(Dicom_Type const&) = default;
};
