#include <cerrno>
#include <cstdlib>
#include <infra/Klb_GError.h>
#include <infra/Util_Buffer.h>
#include <new>

std::shared_ptr<Util_Buffer> Util_Buffer::Make(size_t size) noexcept {
  try {
    // owned as a whole from here on: making a shared pointer can fail too
    std::unique_ptr<Util_Buffer> buffer(new Util_Buffer(nullptr, size));
    buffer->data_ = static_cast<char*>(std::malloc(size ? size : 1));
    if (buffer->data_) return buffer;
  } catch (std::bad_alloc const&) {
  }
  KlbGError.SetSystem(ENOMEM); // who has a code of its own sets that
  errno = ENOMEM;
  return nullptr;
}

Util_Buffer::~Util_Buffer() { std::free(data_); }
