#pragma once
#include <string>
#include <string_view>

/// Numbers in text, the same in every locale.

/// Reads the decimal number that `text` begins with, blanks and a plus sign before it allowed; beyond the range of
/// double it is the largest one, or 0. The number of characters taken, 0 when there is no number.
std::size_t Dicom_ParseDecimal(std::string_view text, double* number);

/// The number as a DS may have it: 16 characters at most, as exact as they allow; empty for what is no number.
std::string Dicom_PrintDecimal(double number);
