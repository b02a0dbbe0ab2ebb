#include "dicom/pixels/Dicom_Rle.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <algorithm>

namespace {

constexpr std::size_t kMostSegments = 15, kHeader = 4 * (kMostSegments + 1);

/// Decodes a segment to every `step`th byte from `out` on, `count` of them. False when it holds fewer.
bool DecodeSegment(std::string_view segment, char* out, std::size_t step, std::size_t count) {
  for (std::size_t at = 0; count > 0;) {
    if (at + 1 >= segment.size()) return false;
    auto const code = static_cast<unsigned char>(segment[at++]);
    if (code == 128) continue;
    bool const repeated = code > 128;
    std::size_t const length = std::min<std::size_t>(count, repeated ? 257 - code : code + 1);
    if (!repeated && length > segment.size() - at) return false;
    for (std::size_t i = 0; i < length; ++i, out += step)
      *out = segment[repeated ? at : at + i];
    at += repeated ? 1 : length;
    count -= length;
  }
  return true;
}

} // namespace

std::string Dicom_DecodeRle(Dicom_ImagePixel const& image, std::string_view frame) {
  constexpr std::uint64_t kHighestRatio = 64; // 128 bytes from 2
  std::size_t const unit = image.bits_allocated / 8, segments = image.samples * unit;
  if (image.bits_allocated % 8 != 0 || image.subsampled || segments == 0 || segments > kMostSegments) return {};
  if (frame.size() < kHeader || image.FrameBytes() / kHighestRatio > frame.size()) return {};
  if (Dicom_Load32(frame.data(), false) != segments) return {};
  std::size_t const pixels = std::size_t(image.rows) * image.columns;
  std::string native(std::size_t(image.FrameBytes()), '\0');
  for (std::size_t i = 0; i < segments; ++i) {
    std::size_t const start = Dicom_Load32(frame.data() + 4 * (i + 1), false);
    std::size_t const end = i + 1 < segments ? Dicom_Load32(frame.data() + 4 * (i + 2), false) : frame.size();
    if (start < kHeader || start > end || end > frame.size()) return {};
    std::size_t const sample = i / unit, byte = unit - 1 - i % unit; // the highest byte comes first
    std::size_t const first = image.by_plane ? sample * pixels : sample;
    if (!DecodeSegment(frame.substr(start, end - start), native.data() + first * unit + byte,
                       image.by_plane ? unit : segments, pixels))
      return {};
  }
  return native;
}
