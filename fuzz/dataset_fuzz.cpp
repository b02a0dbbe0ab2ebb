// Any bytes are given to the reader of files; what it reads must keep the property of tests/support/DataSetProperty.h.
// The last byte of the input says whether they are a file, or a bare data set and in which syntax.
#include "Fail.h"
#include "support/DataSetProperty.h"
#include "support/Deflated.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static char const* const syntaxes[] = {"1.2.840.10008.1.2.1",    "1.2.840.10008.1.2",      "1.2.840.10008.1.2.2",
                                         "1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.1.99", "1.2.840.10008.1.2.1.99"};
  if (size == 0) return 0;
  std::string const bytes(reinterpret_cast<char const*>(data), size - 1);
  unsigned const form = data[size - 1] & 7;
  FailIf(DataSetProperty::Broken(
      form < 2 ? bytes : DataSetBytes::File(syntaxes[form - 2], form == 7 ? Deflated(bytes, -15, 0) : bytes)));
  return 0;
}
