#pragma once

#include <string>
#include <zlib.h>

/// The bytes deflated: as a data set of a file is, or with 15 bits of the window as others do; level 0 leaves them as
/// they are, in blocks.
inline std::string Deflated(std::string const& bytes, int window_bits = -15, int level = Z_BEST_SPEED) {
  z_stream z{};
  deflateInit2(&z, level, Z_DEFLATED, window_bits, 9, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, bytes.size()), '\0');
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = uInt(out.size());
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  z.avail_in = uInt(bytes.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  out.shrink_to_fit();
  deflateEnd(&z);
  return out;
}
