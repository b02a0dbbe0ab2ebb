#pragma once
#include <dicom/Dicom_StringTypes.h>
#include <infra/Disk_Export.h>

#include <string_view>

enum class Dicom_Endianity { Little, Big };

/// How a data set stands in bytes: explicit or implicit VR, byte order, and whether its pixels are encapsulated or
/// the whole is deflated. Syntaxes with encapsulated pixels are all Explicit VR Little Endian outside of the pixels.
class DISK_EXPORT Dicom_TransferSyntax {
public:
  /// `*error`, which may be null, is -1 when `uid` isn't the UID of a transfer syntax (0 otherwise). Any UID of the
  /// standard's branch for encapsulated syntaxes is taken, known by name or not, as its data set can be read and
  /// written all the same.
  Dicom_TransferSyntax(Dicom_UI const& uid, int* error = nullptr);

  Dicom_UI const& GetUID() const { return uid_; }
  Dicom_Endianity GetEndianity() const { return endianity_; }
  bool IsBigEndian() const { return endianity_ == Dicom_Endianity::Big; }
  bool IsExplicitVR() const { return explicit_vr_; }
  bool IsEncapsulated() const { return encapsulated_; }
  bool IsDeflated() const { return deflated_; }

  static Dicom_TransferSyntax const& Native();

private:
  Dicom_UI uid_;
  Dicom_Endianity endianity_ = Dicom_Endianity::Little;
  bool explicit_vr_ = true;
  bool encapsulated_ = false;
  bool deflated_ = false;
};

/// Parameters of a dump that compresses; the default stands for none.
struct DISK_EXPORT SCompressionParms {};

/// Where the bytes given to a constructor come from.
struct DISK_EXPORT Dicom_SwapInfo {
  enum Source { buffer_source = 0, msg_source = 1 };
};

/// Copies `count` numbers of `size` bytes (1, 2, 4 or 8) between this machine's byte order and `endianity`.
DISK_EXPORT void Dicom_Copy(void const* source, void* target, int size, int count, Dicom_Endianity endianity);
