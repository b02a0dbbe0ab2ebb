// Any bytes are given to the reader of files; what it reads must keep the property of tests/support/DataSetProperty.h.
// The last byte of the input says whether they are a file, or a bare data set and in which syntax.
#include "Fail.h"
#include "support/DataSetProperty.h"

namespace {

/// A deflated data set that isn't compressed: blocks of bytes as they are.
std::string Stored(std::string const& bytes) {
  constexpr std::size_t kMost = 0xFFFF;
  std::string text;
  for (std::size_t at = 0; at == 0 || at < bytes.size(); at += kMost) {
    std::size_t const length = std::min(kMost, bytes.size() - at);
    text += char(at + length == bytes.size());
    text += DataSetBytes().Number(length, 2) + DataSetBytes().Number(~length, 2) + bytes.substr(at, length);
  }
  return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static char const* const syntaxes[] = {"1.2.840.10008.1.2.1",    "1.2.840.10008.1.2",      "1.2.840.10008.1.2.2",
                                         "1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.1.99", "1.2.840.10008.1.2.1.99"};
  if (size == 0) return 0;
  std::string const bytes(reinterpret_cast<char const*>(data), size - 1);
  unsigned const form = data[size - 1] & 7;
  FailIf(form < 2 ? DataSetProperty::Broken(bytes)
                  : DataSetProperty::Broken(DataSetBytes::File(syntaxes[form - 2], form == 7 ? Stored(bytes) : bytes)));
  return 0;
}
