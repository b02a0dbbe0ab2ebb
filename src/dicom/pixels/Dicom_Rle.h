#pragma once
#include "dicom/pixels/Dicom_ImagePixel.h"

#include <string>
#include <string_view>

/// The transfer syntax of run length encoded pixels.
constexpr std::string_view kRleSyntax = "1.2.840.10008.1.2.5";

/// Decodes one frame, for whole bytes per sample: its native pixels in the order that the attributes tell.
/// Empty when the bytes aren't a frame of that form. Allocates nothing before `frame` can hold that many
/// pixels.
std::string Dicom_DecodeRle(Dicom_ImagePixel const& image, std::string_view frame);
