// A string of bytes; text in memory is UTF-8.
#pragma once

#include <infra/RWBasicString.h>

using RWCString = RWBasicString<char>;
