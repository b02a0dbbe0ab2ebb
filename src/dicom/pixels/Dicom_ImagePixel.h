#pragma once
#include <cstdint>
#include <memory>
#include <string_view>

class Dicom_Msg;
class Dicom_OtherType;

/// What the attributes of an image say about the form of its pixels. They are as untrusted as the rest of the
/// object: compare with the bytes that are there before anything is made from them.
struct Dicom_ImagePixel {
  explicit Dicom_ImagePixel(Dicom_Msg const& msg);

  /// The bits of one frame. All fields at their highest don't overflow it.
  std::uint64_t FrameBits() const;
  /// The same in bytes, where frames take whole ones.
  std::uint64_t FrameBytes() const { return FrameBits() / 8; }
  /// Whether `length` bytes are those of all frames, an odd number with or without the byte that makes it
  /// even.
  bool IsLengthOfPixels(std::uint64_t length) const;

  std::uint32_t rows, columns;
  std::uint32_t samples;        // per pixel; 1 where that isn't told
  std::uint32_t bits_allocated; // per sample
  std::uint32_t bits_stored, high_bit;
  std::int64_t frames; // 1 where that isn't told
  bool by_plane;       // all of the first sample, then all of the second, ...
  bool subsampled;     // fewer samples for colour than for brightness
};

/// The value of Pixel Data, or null when there is none.
Dicom_OtherType const* Dicom_PixelData(Dicom_Msg const& msg);
/// A value for native Pixel Data: OW above 8 bits, else OB. Without `copy` the bytes stay the caller's.
std::unique_ptr<Dicom_OtherType> Dicom_MakePixelData(Dicom_ImagePixel const& image, std::string_view bytes, bool copy);
