#include <cerrno>
#include <cstdlib>
#include <infra/Util_Buffer.h>
#include <new>

std::shared_ptr<Util_Buffer> Util_Buffer::Make(size_t size) noexcept {
  auto* const data = static_cast<char*>(std::malloc(size ? size : 1));
  try {
    if (data) return std::shared_ptr<Util_Buffer>(new Util_Buffer(data, size));
  } catch (std::bad_alloc const&) {
    std::free(data);
  }
  errno = ENOMEM;
  return nullptr;
}

Util_Buffer::~Util_Buffer() { std::free(data_); }
