#pragma once
#include <dicom/Dicom_Msg.h>
#include <infra/Disk_Export.h>

#include <string>

/// Why pixels can't be decoded.
struct DISK_EXPORT Dicom_DecodingFailure {
  enum Kind {
    None,
    NoCodec, ///< they are compressed by another codec, or in a form of which this one knows nothing
    Damaged, ///< the stream is damaged, or contradicts the attributes
    NoMemory
  };
  Kind kind = None;
  std::string text; ///< for people
};

/// Compresses and decompresses the pixels of an object, without loss, in place.
///
/// Type 0 is JPEG-LS lossless (1.2.840.10008.1.2.4.80): one fragment per frame, with an offset table. Objects whose
/// pixels are encapsulated already, that have none, or whose pixels the codec doesn't take, are left as they are.
class DISK_EXPORT Dicom_Compressor {
public:
  /// 0: the object isn't compressed. 1: its pixels are encapsulated. `*flag`, which may be null, gets the same.
  int GetKolbaCompressionVersion(Dicom_Msg const& msg, int* flag) const;
  /// 0 when the object is compressed or was left alone (a log line of level 6 says why), -1 when the codec failed or
  /// `type` isn't one; the object is unchanged then.
  [[nodiscard]] int Compress(Dicom_Msg* msg, int type) const;
  /// Decodes encapsulated JPEG-LS pixels to the bytes that Compress was given, and a compressed icon with them. Returns
  /// 0, also for native pixels. Returns -1 when another codec compressed them, when they are damaged, or when the
  /// attributes tell another size; the object is unchanged then, and `*failure`, which may be null, tells why. An icon
  /// that can't be decoded is removed.
  [[nodiscard]] int Decompress(Dicom_Msg* msg, Dicom_DecodingFailure* failure = nullptr) const;
  /// Decodes the pixels as Decompress does, a frame at a time, and keeps nothing. The same result; nothing is logged.
  [[nodiscard]] int TryDecompress(Dicom_Msg const& msg, Dicom_DecodingFailure* failure) const;
};
