// A block of heap memory of a fixed size. It isn't filled when it is made, so that a file can be read into it
// without touching each page twice. Once filled it is shared as `std::shared_ptr<Util_Buffer const>` and
// never changes.
#pragma once

#include <infra/Disk_Export.h>

#include <cstddef>
#include <memory>

class DISK_EXPORT Util_Buffer {
public:
  /// Null, with errno ENOMEM, when there is no memory.
  static std::shared_ptr<Util_Buffer> Make(size_t size) noexcept;

  ~Util_Buffer();
  Util_Buffer(Util_Buffer const&) = delete;
  Util_Buffer& operator=(Util_Buffer const&) = delete;

  char const* data() const { return data_; }
  char* data() { return data_; }
  size_t size() const { return size_; }

  /// Forgets the bytes from `size` on; no more than there are.
  void Truncate(size_t size) {
    if (size < size_) size_ = size;
  }

private:
  explicit Util_Buffer(size_t size) : size_(size) {}

  void* block_ = nullptr; // what was allocated; the data may begin behind its start
  char* data_ = nullptr;
  size_t size_;
};
