// The standard DICOMDIR, and the redo record beside it. The last byte of the input tells which; and whether it is the
// whole file, or the records behind a sound beginning, or the redo record without its checksum.
#include "Fail.h"
#include "support/DataSetBytes.h"
#include "support/FileSetExercise.h"

#include <Disk/Disk_StoreParams.h>
#include <zlib.h>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static FileSetExercise set(Disk_StoreParams::STANDARD_STRUCTURE);
  static std::string const dicomdir = set.files["DICOMDIR"];
  static std::size_t const begin = dicomdir.find("\x04\0\x20\x12SQ", 0, 6) + 12;
  if (size == 0) return 0;
  std::string bytes(reinterpret_cast<char const*>(data), size - 1);
  unsigned const choice = data[size - 1] & 3;
  DataSetBytes const b;
  if (choice == 1) bytes = dicomdir.substr(0, begin - 4) + b.Number(bytes.size(), 4) + bytes;
  if (choice == 3) bytes += b.Number(crc32(0, reinterpret_cast<Bytef const*>(bytes.data()), uInt(bytes.size())), 4);
  FailIf(set.RunWith(choice < 2 ? "DICOMDIR" : "DICOMDIR.redo", bytes));
  return 0;
}
