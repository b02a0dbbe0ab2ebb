// The directory files and VERSIONs of a private file-set. The last byte of the input tells which file it is; and
// whether it is the whole file, or the records in one that is otherwise sound.
#include "Fail.h"
#include "support/DataSetBytes.h"
#include "support/FileSetExercise.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static FileSetExercise set(0);
  static std::string const study = set.files.lower_bound("S")->first.substr(0, 8);
  static std::string const series = set.files.upper_bound(study + "/LOCKFILE")->first.substr(0, 17);
  if (size == 0) return 0;
  std::string const bytes(reinterpret_cast<char const*>(data), size - 1);
  unsigned const selector = data[size - 1];
  std::string const names[] = {"DICOMDIR", study + "/DIRFILE", series + "/DIRFILE", study + "/VERSION"};
  bool const only_records = selector & 4;
  FailIf(set.RunWith(
      names[selector & 3],
      only_records ? DataSetBytes::File("1.2.840.10008.1.2.1", DataSetBytes().Sequence(0x00041220, bytes)) : bytes));
  return 0;
}
