#pragma once

#include <cstdarg>

/// KlbGLog.Log with a list of arguments.
void Klb_LogLine(char const* format, va_list args) noexcept __attribute__((format(printf, 1, 0)));
