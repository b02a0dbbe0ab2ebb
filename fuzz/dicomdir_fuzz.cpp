// The standard DICOMDIR, and the redo record beside it. The last byte of the input tells which; and whether it is the
// whole file, or the records behind a sound beginning, or the redo record without its checksum.
#include "Fail.h"
#include "support/FileSetExercise.h"

#include <Disk/Disk_StoreParams.h>
#include <cstring>
#include <zlib.h>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  static FileSetExercise set(Disk_StoreParams::STANDARD_STRUCTURE);
  static std::string const dicomdir = set.files["DICOMDIR"];
  static std::size_t const begin = dicomdir.find("\x04\0\x20\x12SQ", 0, 6) + 12;
  if (size == 0) return 0;
  std::string bytes(reinterpret_cast<char const*>(data), size - 1);
  auto const append = [](std::string& text, std::uint32_t number) {
    for (int i = 0; i < 4; ++i)
      text += char(number >> 8 * i);
  };
  switch (data[size - 1] & 3) {
  case 0:
    FailIf(set.RunWith("DICOMDIR", bytes));
    break;
  case 1: {
    std::string prefix = dicomdir.substr(0, begin - 4);
    append(prefix, std::uint32_t(bytes.size()));
    FailIf(set.RunWith("DICOMDIR", prefix + bytes));
    break;
  }
  case 3:
    append(bytes, std::uint32_t(crc32(0, reinterpret_cast<Bytef const*>(bytes.data()), uInt(bytes.size()))));
    [[fallthrough]];
  default:
    FailIf(set.RunWith("DICOMDIR.redo", bytes));
  }
  return 0;
}
