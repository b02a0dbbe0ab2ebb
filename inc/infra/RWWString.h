// A string of wide characters, one per code point.
#pragma once

#include <infra/RWBasicString.h>

using RWWString = RWBasicString<wchar_t>;
