// Wide text and UTF-8.
#pragma once

#include <infra/Disk_Export.h>
#include <infra/RWCString.h>
#include <infra/RWWString.h>

/// Null gives the empty string in both. What is no character (a surrogate, a number above 10FFFF, bytes that
/// are no well-formed UTF-8) becomes U+FFFD.
DISK_EXPORT RWCString ToUTF8(const wchar_t* text);
DISK_EXPORT RWWString FromUTF8(char const* text);
