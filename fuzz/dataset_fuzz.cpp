// Any bytes are given to the reader of files; what it reads must keep the property of tests/support/DataSetProperty.h.
// The last byte of the input, in half of all cases, says in which syntax the rest is to be read as a bare data set.
#include "support/DataSetProperty.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static char const* const s_syntaxes[] = {"1.2.840.10008.1.2.1", "1.2.840.10008.1.2", "1.2.840.10008.1.2.2",
                                           "1.2.840.10008.1.2.4.50"};
  if (size == 0) return 0;
  std::string_view const bytes(reinterpret_cast<char const*>(data), size - 1);
  unsigned const selector = data[size - 1];
  std::string const broken =
      selector & 4 ? DataSetProperty::Broken(DataSetBytes::File(s_syntaxes[selector & 3], std::string(bytes)))
                   : DataSetProperty::Broken(bytes);
  if (broken.empty()) return 0;
  std::fprintf(stderr, "%s\n", broken.c_str());
  std::abort();
}
