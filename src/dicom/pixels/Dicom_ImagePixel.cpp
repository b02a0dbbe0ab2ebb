#include "dicom/pixels/Dicom_ImagePixel.h"

#include "dicom/encoding/Dicom_DataSetReader.h"

#include <dicom/IOD_Msg.h>

namespace {

std::uint32_t Number(Dicom_Msg const& msg, Dicom_Tag const& tag, std::uint32_t otherwise = 0) {
  auto const number = msg.Value<Dicom_US>(tag);
  return number.IsEmpty() ? otherwise : number[0];
}

} // namespace

Dicom_ImagePixel::Dicom_ImagePixel(Dicom_Msg const& msg)
    : rows(Number(msg, Dicom_Tag(0x0028, 0x0010))), columns(Number(msg, Dicom_Tag(0x0028, 0x0011))),
      samples(Number(msg, Dicom_Tag(0x0028, 0x0002), 1)), bits_allocated(Number(msg, Dicom_Tag(0x0028, 0x0100))),
      bits_stored(Number(msg, Dicom_Tag(0x0028, 0x0101), bits_allocated)),
      high_bit(Number(msg, Dicom_Tag(0x0028, 0x0102), bits_stored - 1)),
      by_plane(samples > 1 && Number(msg, Dicom_Tag(0x0028, 0x0006)) == 1) {
  auto const number_of_frames = msg.Value<Dicom_IS>(Dicom_Tag(0x0028, 0x0008));
  frames = number_of_frames.IsEmpty() ? 1 : int(number_of_frames);
  std::string const colours = msg.Text(Dicom_Tag(0x0028, 0x0004));
  subsampled = samples == 3 && (colours.find("_422") != std::string::npos || colours.find("_420") != std::string::npos);
}

std::uint64_t Dicom_ImagePixel::FrameBits() const {
  std::uint64_t const all = std::uint64_t(rows) * columns * samples * bits_allocated;
  return subsampled ? all / 3 * 2 : all;
}

bool Dicom_ImagePixel::IsLengthOfPixels(std::uint64_t length) const {
  std::uint64_t const frame = FrameBytes();
  if (frame == 0 || frames < 1 || std::uint64_t(frames) > length / frame) return false;
  std::uint64_t const pixels = frame * std::uint64_t(frames);
  return length == pixels || length == pixels + (pixels & 1);
}

Dicom_OtherType const* Dicom_PixelData(Dicom_Msg const& msg) {
  return dynamic_cast<Dicom_OtherType const*>(msg.Get(Dicom_Tag(kPixelDataTag)));
}

std::unique_ptr<Dicom_OtherType> Dicom_MakePixelData(Dicom_ImagePixel const& image, std::string_view bytes, bool copy) {
  if (image.bits_allocated > 8) return std::make_unique<Dicom_OW>(bytes.data(), bytes.size(), copy, nullptr);
  return std::make_unique<Dicom_OB>(bytes.data(), bytes.size(), copy, nullptr);
}
