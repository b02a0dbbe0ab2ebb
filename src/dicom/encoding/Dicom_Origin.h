#pragma once
#include <dicom/Dicom_CharacterSet.h>
#include <infra/Util_Buffer.h>

#include <memory>
#include <string>
#include <vector>

/// How the elements of some bytes are laid out.
struct Dicom_Encoding {
  bool explicit_vr = true;
  bool big_endian = false;
  friend bool operator==(Dicom_Encoding, Dicom_Encoding) = default;
};

/// The set of text that nothing is declared about.
inline std::shared_ptr<Dicom_CharacterSet const> const& Dicom_UndeclaredSet() {
  static std::shared_ptr<Dicom_CharacterSet const> const s_set = Dicom_CharacterSet::Make({});
  return s_set;
}

/// A value of undefined length, an item among them: where it starts, and where its delimiter stands.
struct Dicom_Extent {
  char const* value = nullptr;
  char const* end = nullptr;
};
using Dicom_Extents = std::vector<Dicom_Extent>;

/// Where the elements of a message come from: the bytes, which never change, and what is needed to read them.
/// Shared by all messages and items that were read from the same bytes.
struct Dicom_Origin : std::enable_shared_from_this<Dicom_Origin> {
  std::shared_ptr<Util_Buffer const> buffer; // null when the bytes are a caller's
  Dicom_Encoding encoding;
  /// The bytes are what this library would write: even lengths, ascending tags, no group lengths, no stray
  /// delimiters. Such bytes are copied whole.
  bool canonical = false;
  /// The values of undefined length, in ascending order, as the check found them. Without this list a reader would walk
  /// over a nested value again at each level.
  std::shared_ptr<Dicom_Extents const> extents;
  /// Implicit VR: the Pixel Representation says that the pixel attributes are signed.
  bool signed_pixels = false;
  /// Below the outermost data set stand fragments, as those of a compressed icon.
  bool nested_fragments = false;
  /// How deep data sets are nested in the bytes, at most, the outermost counted.
  int depth = 1;
  std::shared_ptr<Dicom_CharacterSet const> character_set = Dicom_UndeclaredSet();
  std::string syntax_uid; // of the file; tells how encapsulated pixels are compressed
};
