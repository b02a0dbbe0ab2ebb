#include "dicom/pixels/Dicom_JpegLs.h"

#include <charls/charls.h>

#include <algorithm>
#include <cstring>
#include <new>

// The deprecated C functions of this codec share their names with those of another version that DCMTK brings
// along: only the classes are safe to use where both may be in one process.

namespace {

charls::interleave_mode Interleave(Dicom_ImagePixel const& image) {
  return image.samples == 1 || image.by_plane ? charls::interleave_mode::none : charls::interleave_mode::sample;
}

/// Makes `count` samples of 8 bits, which stand in the second half of the memory, ones of 16.
void Widen(char* out, std::size_t count) {
  char const* const bytes = out + count;
  for (std::size_t i = 0; i < count; ++i) {
    char const low = bytes[i];
    out[2 * i] = low;
    out[2 * i + 1] = '\0';
  }
}

/// Where the bytes end before a marker ends the data, the decoder counts through 31 bits before it gives up. Writers
/// pad a stream with zeros behind its marker, or with the bytes FF that may stand in front of any.
bool EndsInMarker(std::string_view stream) {
  while (stream.ends_with('\0') || stream.ends_with('\xFF'))
    stream.remove_suffix(1);
  return stream.ends_with("\xFF\xD9");
}

/// What the decoder has against a stream: it doesn't know all that the standard has.
Dicom_DecodingFailure FailureOf(charls::jpegls_error const& error) {
  using charls::jpegls_errc;
  for (jpegls_errc const unknown :
       {jpegls_errc::parameter_value_not_supported, jpegls_errc::encoding_not_supported,
        jpegls_errc::bit_depth_for_transform_not_supported, jpegls_errc::color_transform_not_supported,
        jpegls_errc::jpegls_preset_extended_parameter_type_not_supported})
    if (error.code() == unknown) return {Dicom_DecodingFailure::NoCodec, error.what()};
  return {Dicom_DecodingFailure::Damaged, error.what()};
}

} // namespace

bool Dicom_IsJpegLs(std::string_view syntax) {
  return syntax == "1.2.840.10008.1.2.4.80" || syntax == "1.2.840.10008.1.2.4.81";
}

int Dicom_JpegLsPrecision(Dicom_ImagePixel const& image, std::string_view pixels) {
  std::size_t const unit = image.bits_allocated / 8;
  // samples of up to 8 bits would have to stand in bytes; some decoders know nothing below 6
  std::uint32_t const least = unit == 1 ? 6 : 9;
  std::uint32_t const precision = std::max(least, image.bits_stored);
  std::uint16_t used = 0;
  for (std::size_t i = 0; i + unit <= pixels.size(); i += unit) {
    std::uint16_t sample = 0;
    std::memcpy(&sample, pixels.data() + i, unit);
    used |= sample;
  }
  return int(precision < image.bits_allocated && used >> precision == 0 ? precision : image.bits_allocated);
}

std::ptrdiff_t Dicom_EncodeJpegLs(Dicom_ImagePixel const& image, int precision, std::string_view frame, char* out,
                                  std::size_t capacity, std::string* error) {
  try {
    charls::jpegls_encoder encoder;
    encoder.frame_info({image.columns, image.rows, precision, int(image.samples)})
        .interleave_mode(Interleave(image))
        .destination(out, capacity);
    return std::ptrdiff_t(encoder.encode(frame.data(), frame.size()));
  } catch (charls::jpegls_error const& failure) {
    if (failure.code() == charls::jpegls_errc::destination_buffer_too_small) return 0;
    if (failure.code() == charls::jpegls_errc::not_enough_memory) throw std::bad_alloc();
    *error = failure.what();
    return -1;
  }
}

bool Dicom_CheckJpegLs(Dicom_ImagePixel const& image, std::string_view stream, bool* by_plane,
                       Dicom_DecodingFailure* failure) {
  if (!EndsInMarker(stream)) {
    *failure = {Dicom_DecodingFailure::Damaged, "its end is missing"};
    return false;
  }
  try {
    charls::jpegls_decoder const decoder(stream.data(), stream.size());
    charls::frame_info const& info = decoder.frame_info();
    *by_plane = image.samples > 1 && decoder.interleave_mode() == charls::interleave_mode::none;
    if (info.height == image.rows && info.width == image.columns &&
        std::uint32_t(info.component_count) == image.samples &&
        std::uint32_t(info.bits_per_sample) <= image.bits_allocated)
      return true;
    *failure = {Dicom_DecodingFailure::Damaged,
                std::to_string(info.height) + " rows and " + std::to_string(info.width) + " columns of " +
                    std::to_string(info.component_count) + " x " + std::to_string(info.bits_per_sample) +
                    " bits don't agree with the attributes"};
  } catch (charls::jpegls_error const& error) {
    *failure = FailureOf(error);
  }
  return false;
}

bool Dicom_DecodeJpegLs(Dicom_ImagePixel const& image, std::string_view stream, char* out,
                        Dicom_DecodingFailure* failure) {
  try {
    charls::jpegls_decoder const decoder(stream.data(), stream.size());
    std::size_t const length = std::size_t(image.FrameBytes());
    if (decoder.frame_info().bits_per_sample <= 8 && image.bits_allocated == 16) {
      decoder.decode(out + length / 2, length / 2);
      Widen(out, length / 2);
    } else {
      decoder.decode(out, length);
    }
    return true;
  } catch (charls::jpegls_error const& error) {
    if (error.code() == charls::jpegls_errc::not_enough_memory) throw std::bad_alloc();
    *failure = FailureOf(error);
    return false;
  }
}
