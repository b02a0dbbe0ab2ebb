#pragma once
#include <dicom/Dicom_VR.h>
#include <infra/Disk_Export.h>

#include <string_view>

/// The matching rules of C-FIND on texts in UTF-8.
///
/// | Kind of value          | Rule                                                                                |
/// |------------------------|-------------------------------------------------------------------------------------|
/// | any, empty key         | matches                                                                             |
/// | any text, key of `*`s  | matches                                                                             |
/// | UI                     | the key is a list: one of its UIDs equals one of the value's                        |
/// | DA, TM, DT             | a range `a-b`, `a-`, `-b`, ends included, compared to the precision that both have; |
/// |                        | else the same point, compared to the precision of the key                           |
/// | IS, DS                 | one of the values is equal in text or in number                                     |
/// | PN                     | as text, without regard to case or to empty trailing components; the whole name, or |
/// |                        | one component group of it when the key holds no `=`                                 |
/// | other text             | wild cards: `*` any characters, `?` one character; else equal without padding       |
///
/// A value of several parts matches if one part does. A key of several parts matches as a list.
DISK_EXPORT bool Dicom_MatchText(Dicom_VR vr, std::string_view value, std::string_view key);

/// True when the two texts stand for one number.
DISK_EXPORT bool Dicom_SameNumber(std::string_view a, std::string_view b);

/// Whether text that has `*` and `?` as wild cards matches; linear in `value` for a key without `*`, else at most
/// the product of the lengths.
DISK_EXPORT bool Dicom_MatchWildcards(std::string_view value, std::string_view key);
