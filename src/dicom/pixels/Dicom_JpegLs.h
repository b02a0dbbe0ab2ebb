#pragma once
#include "dicom/pixels/Dicom_ImagePixel.h"

#include <dicom/Dicom_Compressor.h>

#include <cstddef>
#include <string>
#include <string_view>

/// JPEG-LS of one frame of 8 or 16 bits allocated and 1 or 3 samples. Planes become a scan each, other colour
/// one interleaved scan.

/// Whether the transfer syntax is JPEG-LS, lossless or near-lossless.
bool Dicom_IsJpegLs(std::string_view syntax);

/// The bits per sample to code `pixels` with so that all come back: the bits stored where the codec can have
/// them and nothing (a sign, an overlay) stands above them, else the bits allocated.
int Dicom_JpegLsPrecision(Dicom_ImagePixel const& image, std::string_view pixels);

/// Writes the stream of `frame`, FrameBytes() long, to `out`. Its length; 0 when it is longer than
/// `capacity`; -1, with `*error`, when the codec fails.
std::ptrdiff_t Dicom_EncodeJpegLs(Dicom_ImagePixel const& image, int precision, std::string_view frame, char* out,
                                  std::size_t capacity, std::string* error);

/// Whether the stream's header agrees with the attributes; tells in `*failure` why not. `*by_plane` becomes the
/// order of its samples, which is that of the decoded ones; the attributes have no say in it. Costs next to
/// nothing.
bool Dicom_CheckJpegLs(Dicom_ImagePixel const& image, std::string_view stream, bool* by_plane,
                       Dicom_DecodingFailure* failure);

/// Decodes a stream that was checked into the FrameBytes() at `out`. False, with `*failure`, for one that it can't.
bool Dicom_DecodeJpegLs(Dicom_ImagePixel const& image, std::string_view stream, char* out,
                        Dicom_DecodingFailure* failure);
