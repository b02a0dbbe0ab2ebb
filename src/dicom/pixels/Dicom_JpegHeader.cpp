#include "dicom/pixels/Dicom_JpegHeader.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

namespace {

bool IsFrameHeader(unsigned char marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

} // namespace

bool Dicom_CheckJpeg(Dicom_ImagePixel const& image, std::string_view stream) {
  constexpr unsigned char kStartOfScan = 0xDA;
  if (!stream.starts_with("\xFF\xD8")) return false;
  stream.remove_prefix(2);
  while (stream.size() >= 10 && stream[0] == '\xFF') {
    auto const marker = static_cast<unsigned char>(stream[1]);
    if (marker == 0xFF) { // a fill byte
      stream.remove_prefix(1);
      continue;
    }
    if (IsFrameHeader(marker)) {
      auto const bits = static_cast<unsigned char>(stream[4]);
      return (bits + 7u) / 8 * 8 == image.bits_allocated && Dicom_Load16(&stream[5], true) == image.rows &&
             Dicom_Load16(&stream[7], true) == image.columns && static_cast<unsigned char>(stream[9]) == image.samples;
    }
    std::size_t const length = Dicom_Load16(&stream[2], true);
    if (marker == kStartOfScan || length + 2 > stream.size()) return false;
    stream.remove_prefix(length + 2);
  }
  return false;
}
