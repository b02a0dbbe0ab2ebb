#pragma once
#include "dicom/pixels/Dicom_ImagePixel.h"

#include <string_view>

/// Whether `stream` is a JPEG stream (of any process, but neither JPEG-LS nor JPEG 2000) whose frame header
/// agrees with the attributes: a decoder that goes by the attributes leaves memory unset where the stream
/// holds less.
bool Dicom_CheckJpeg(Dicom_ImagePixel const& image, std::string_view stream);
