#include <dicom/Dicom_TransferSyntax.h>
#include <dicom/Dicom_UIDic.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

/// The JPEG family, JPEG-LS, JPEG 2000, MPEG and HTJ2K share a branch, which may grow. Beside it stand RLE, frames
/// that are deflated one by one, and frames that aren't compressed at all.
bool IsEncapsulatedUid(std::string_view uid) {
  constexpr std::string_view kBranch = "1.2.840.10008.1.2.4.";
  if (uid == "1.2.840.10008.1.2.5" || uid == "1.2.840.10008.1.2.8.1" || uid == "1.2.840.10008.1.2.1.98") return true;
  return uid.starts_with(kBranch) && uid.size() > kBranch.size() &&
         uid.find_first_not_of("0123456789.", kBranch.size()) == std::string_view::npos;
}

/// The pixels of these are on a JPIP server.
bool IsDeflatedReference(std::string_view uid) {
  return uid == "1.2.840.10008.1.2.4.95" || uid == "1.2.840.10008.1.2.4.205";
}

} // namespace

Dicom_TransferSyntax::Dicom_TransferSyntax(Dicom_UI const& uid, int* error) : uid_(uid) {
  if (error) *error = 0;
  if (uid == Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN) return;
  if (uid == Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN) {
    explicit_vr_ = false;
  } else if (uid == Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN) {
    endianity_ = Dicom_Endianity::Big;
  } else if (uid == Dicom_UIDic::DEFLATED_EXPLICIT_VR_LITTLE_ENDIAN || IsDeflatedReference(uid.View())) {
    deflated_ = true;
  } else if (IsEncapsulatedUid(uid.View())) {
    encapsulated_ = true;
  } else if (error) {
    *error = -1;
  }
}

Dicom_TransferSyntax const& Dicom_TransferSyntax::Native() {
  static Dicom_TransferSyntax const s_native(Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, nullptr);
  return s_native;
}

void Dicom_Copy(void const* source, void* target, int size, int count, Dicom_Endianity endianity) {
  std::size_t const length = std::size_t(size) * std::size_t(count);
  bool const host_is_big = std::endian::native == std::endian::big;
  if (length == 0) return;
  std::memmove(target, source, length);
  if (size == 1 || (endianity == Dicom_Endianity::Big) == host_is_big) return;
  for (auto* number = static_cast<char*>(target); count > 0; --count, number += size)
    std::reverse(number, number + size);
}
