#include "dicom/files/Util_Inflate.h"

#include <cerrno>
#include <infra/Klb_GError.h>
#include <zlib.h>

namespace {

/// zlib's state, released with its scope.
class Stream {
public:
  explicit Stream(int window_bits) { ready_ = inflateInit2(&z_, window_bits) == Z_OK; }
  ~Stream() {
    if (ready_) inflateEnd(&z_);
  }
  Stream(Stream const&) = delete;
  Stream& operator=(Stream const&) = delete;
  bool Ready() const { return ready_; }
  z_stream& Get() { return z_; }

private:
  z_stream z_{};
  bool ready_ = false;
};

/// Inflates, into `out` when it isn't null, and counts the bytes, to somewhat beyond `capacity` at most. Z_STREAM_END
/// when all is well.
int Run(std::string_view deflated, int window_bits, char* out, std::size_t capacity, std::size_t* count) {
  Stream stream(window_bits);
  *count = 0;
  if (!stream.Ready()) return Z_MEM_ERROR;
  z_stream& z = stream.Get();
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(deflated.data()));
  z.avail_in = uInt(deflated.size());
  char scratch[64 * 1024];
  int result = Z_OK;
  while (result == Z_OK) {
    z.next_out = reinterpret_cast<Bytef*>(out ? out + *count : scratch);
    std::size_t const room = out ? capacity - *count : sizeof scratch;
    z.avail_out = uInt(room);
    result = inflate(&z, Z_NO_FLUSH);
    *count += room - z.avail_out;
    if (*count > capacity) return Z_DATA_ERROR;
  }
  return result;
}

} // namespace

// Counting first costs the work twice, but no memory for what turns out to be too much or damaged.
std::shared_ptr<Util_Buffer const> Util_Inflate(std::string_view deflated, std::string* error) {
  int window_bits = -MAX_WBITS;
  std::size_t count = 0;
  int result = Run(deflated, window_bits, nullptr, kMaximalInflated, &count);
  if (result == Z_DATA_ERROR && count == 0) {
    window_bits = MAX_WBITS;
    result = Run(deflated, window_bits, nullptr, kMaximalInflated, &count);
  }
  if (result != Z_STREAM_END) {
    if (count > kMaximalInflated)
      *error = "the deflated data set is larger than " + std::to_string(kMaximalInflated) + " bytes";
    else
      *error = result == Z_MEM_ERROR ? "out of memory" : "the deflated data set is damaged or cut short";
    if (result == Z_MEM_ERROR) KlbGError.SetSystem(ENOMEM);
    return nullptr;
  }
  std::shared_ptr<Util_Buffer> const buffer = Util_Buffer::Make(count);
  if (!buffer || (count > 0 && Run(deflated, window_bits, buffer->data(), count, &count) != Z_STREAM_END)) {
    *error = "out of memory";
    return nullptr;
  }
  return buffer;
}
