#include <dicom/Dicom_Match.h>

#include "dicom/values/Dicom_Decimal.h"

#include <algorithm>
#include <clocale>
#include <cwctype>
#include <string>

namespace {

std::string_view Trimmed(std::string_view text, char const* characters) {
  std::size_t const last = text.find_last_not_of(characters);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

/// The length of the UTF-8 character that begins at `i`.
std::size_t CharacterLength(std::string_view text, std::size_t i) {
  std::size_t n = 1;
  while (i + n < text.size() && (static_cast<unsigned char>(text[i + n]) & 0xC0) == 0x80)
    ++n;
  return n;
}

/// Calls `visit` for each part between backslashes until it gives true.
template <class Visit>
bool AnyPart(std::string_view text, Visit visit) {
  for (;;) {
    std::size_t const separator = text.find('\\');
    if (visit(text.substr(0, separator))) return true;
    if (separator == std::string_view::npos) return false;
    text.remove_prefix(separator + 1);
  }
}

/// Lower case by the rules of Unicode, whatever locale the program runs in.
std::string Folded(std::string_view text) {
  static locale_t const s_unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    std::size_t const n = CharacterLength(text, i);
    auto const first = static_cast<unsigned char>(text[i]);
    if (n == 1) {
      result += char(first >= 'A' && first <= 'Z' ? first + 32 : first);
    } else if (n == 2 && s_unicode) { // the alphabets that have case, but for rare ones
      wint_t const lower =
          towlower_l(wint_t((first & 0x1F) << 6 | (static_cast<unsigned char>(text[i + 1]) & 0x3F)), s_unicode);
      if (lower >= 0x80 && lower < 0x800) {
        result += char(0xC0 | (lower >> 6));
        result += char(0x80 | (lower & 0x3F));
      } else {
        result += text.substr(i, n);
      }
    } else {
      result += text.substr(i, n);
    }
    i += n;
  }
  return result;
}

/// A group of a person's name without empty trailing components.
std::string NameKey(std::string_view name) { return Folded(Trimmed(name, "^= ")); }

bool MatchName(std::string_view value, std::string_view key) {
  std::string const wanted = NameKey(key);
  if (Dicom_MatchWildcards(NameKey(value), wanted)) return true;
  if (key.find('=') != std::string_view::npos) return false;
  for (std::string_view rest = value; !rest.empty();) {
    std::size_t const separator = rest.find('=');
    if (Dicom_MatchWildcards(NameKey(rest.substr(0, separator)), wanted)) return true;
    if (separator == std::string_view::npos) break;
    rest.remove_prefix(separator + 1);
  }
  return false;
}

/// Dates and times of the old form lose their separators, and an offset from UTC goes, so that texts compare.
std::string PointInTime(Dicom_VR vr, std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char const c = text[i];
    if (vr == Dicom_VR::DT && (c == '+' || c == '-')) break;
    if (c == ' ' || c == ':' || (vr == Dicom_VR::DA && c == '.')) continue;
    result += c;
  }
  return result;
}

/// The position of the hyphen of a range, or npos. In a date-time a hyphen can begin an offset from UTC, which has
/// four digits and stands at the end of a point.
std::size_t RangeHyphen(Dicom_VR vr, std::string_view key) {
  std::size_t const hyphen = key.find('-');
  if (vr != Dicom_VR::DT || hyphen == std::string_view::npos || hyphen == 0) return hyphen;
  std::string_view const behind = key.substr(hyphen + 1);
  std::size_t const next = behind.find('-');
  bool const offset =
      hyphen >= 8 && (next == 4 || (next == std::string_view::npos && behind.size() == 4 && behind < "1500"));
  return !offset ? hyphen : next == std::string_view::npos ? next : hyphen + 1 + next;
}

bool MatchTime(Dicom_VR vr, std::string_view value, std::string_view key) {
  std::string const point = PointInTime(vr, value);
  if (point.empty()) return false;
  // comparing to the precision that both have: what may lie within the range is within
  auto const compare = [&](std::string const& end) {
    std::size_t const n = std::min(point.size(), end.size());
    return point.compare(0, n, end, 0, n);
  };
  std::size_t const hyphen = RangeHyphen(vr, key);
  if (hyphen == std::string_view::npos) {
    std::string const wanted = PointInTime(vr, key);
    return point.compare(0, wanted.size(), wanted) == 0;
  }
  std::string const from = PointInTime(vr, key.substr(0, hyphen)), to = PointInTime(vr, key.substr(hyphen + 1));
  return compare(from) >= 0 && compare(to) <= 0;
}

bool MatchPart(Dicom_VR vr, std::string_view value, std::string_view key) {
  switch (vr) {
  case Dicom_VR::UI:
    return value == key;
  case Dicom_VR::DA:
  case Dicom_VR::TM:
  case Dicom_VR::DT:
    return MatchTime(vr, value, key);
  case Dicom_VR::IS:
  case Dicom_VR::DS:
    return value == key || Dicom_SameNumber(value, key);
  case Dicom_VR::PN:
    return MatchName(value, key);
  default:
    return Dicom_MatchWildcards(Trimmed(value, " "), Trimmed(key, " "));
  }
}

} // namespace

bool Dicom_SameNumber(std::string_view a, std::string_view b) {
  auto const parse = [](std::string_view text, double* number) {
    std::size_t const taken = Dicom_ParseDecimal(text, number);
    return taken > 0 && taken == Trimmed(text, " ").size();
  };
  double x = 0, y = 0;
  return parse(a, &x) && parse(b, &y) && x == y;
}

bool Dicom_MatchWildcards(std::string_view value, std::string_view key) {
  std::size_t v = 0, k = 0;
  std::size_t star = std::string_view::npos, resume = 0; // where to go on when what follows the last `*` fails
  while (v < value.size()) {
    if (k < key.size() && key[k] == '*') {
      star = ++k;
      resume = v;
    } else if (k < key.size() && key[k] == '?') {
      ++k;
      v += CharacterLength(value, v);
    } else if (k < key.size() && key[k] == value[v]) {
      ++k;
      ++v;
    } else if (star != std::string_view::npos) {
      k = star;
      v = ++resume;
    } else {
      return false;
    }
  }
  return key.find_first_not_of('*', k) == std::string_view::npos;
}

bool Dicom_MatchText(Dicom_VR vr, std::string_view value, std::string_view key) {
  if (key.find_first_not_of('*') == std::string_view::npos) return true;
  if (!Dicom_IsMultiValueText(vr)) return MatchPart(vr, value, key);
  if (value == key) return true;
  return AnyPart(value, [&](std::string_view part) {
    return AnyPart(key, [&](std::string_view wanted) { return !wanted.empty() && MatchPart(vr, part, wanted); });
  });
}
