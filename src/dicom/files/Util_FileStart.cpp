#include "dicom/files/Util_FileStart.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/Dicom_TransferSyntax.h>
#include <dicom/Dicom_UIDic.h>

namespace {

constexpr std::size_t kPreamble = 128;
constexpr std::uint32_t kGroupLengthTag = 0x00020000;
constexpr std::uint32_t kTransferSyntaxTag = 0x00020010;

bool LooksLikeVR(char const* p) { return Dicom_IsKnownVR(Dicom_VR(Dicom_Load16(p, false))); }

/// A data set without meta information is recognised by its first element: a low group, and a length that fits.
/// In what is a DICOM file by its prefix, all that has to be told is whether VRs are explicit.
Dicom_UI GuessSyntax(std::string_view bytes, bool is_dicom) {
  if (bytes.size() < 8) return UI_NULL;
  char const* const p = bytes.data();
  auto const plausible = [](std::uint32_t tag) { return tag >> 16 == 0x0008 && (tag & 0xFFFF) <= 0x0100; };
  if (plausible(Dicom_LoadTag(p, false))) {
    if (LooksLikeVR(p + 4)) return Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN;
    if (Dicom_Load32(p + 4, false) <= bytes.size() - 8) return Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN;
  } else if (plausible(Dicom_LoadTag(p, true)) && LooksLikeVR(p + 4)) {
    return Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN;
  }
  if (!is_dicom) return UI_NULL;
  return LooksLikeVR(p + 4) ? Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN : Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN;
}

} // namespace

Util_FileStart Util_ReadFileStart(std::string_view bytes, bool complete) {
  Util_FileStart start;
  std::size_t offset = 0;
  bool const magic = bytes.size() >= kPreamble + 4 && bytes.substr(kPreamble, 4) == "DICM";
  if (magic) offset = kPreamble + 4;

  // meta information is in explicit VR little endian, whatever follows
  char const *p = bytes.data() + offset, *const end = bytes.data() + bytes.size();
  bool meta = false;
  char const* stated_end = nullptr; // often wrong, so it counts only where nothing else tells the end
  std::uint32_t last = 0;
  Dicom_RawElement e;
  while (end - p >= 8 && Dicom_Load16(p, false) == 0x0002) {
    // in big endian the group 0200 looks like this one, and a data set may have elements of this group for its own
    bool const goes_on = start.syntax != Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN && Dicom_LoadTag(p, false) > last;
    if (p == stated_end && start.syntax != UI_NULL && !(goes_on && LooksLikeVR(p + 4))) break;
    if (!Dicom_ReadElement(p, end, {true, false}, &e)) {
      start.error = complete ? "the file meta information is cut short" : "the file meta information is too long";
      return start;
    }
    meta = true;
    if (e.tag == kTransferSyntaxTag && start.syntax == UI_NULL)
      start.syntax = Dicom_UI(std::string_view(e.value, e.length));
    p = e.next;
    last = e.tag;
    if (e.tag == kGroupLengthTag && !stated_end && e.length == 4 &&
        Dicom_Load32(e.value, false) <= std::size_t(end - p))
      stated_end = p + Dicom_Load32(e.value, false);
  }
  start.data_set = std::size_t(p - bytes.data());
  if (start.syntax != UI_NULL) return start;
  start.syntax = GuessSyntax(bytes.substr(start.data_set), magic || meta);
  if (start.syntax != UI_NULL) return start;
  start.error = magic || meta ? "no data set follows the file meta information"
                              : "not a DICOM file: neither the prefix DICM nor the start of a data set";
  return start;
}
