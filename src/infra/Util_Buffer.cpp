#include <cerrno>
#include <cstdlib>
#include <infra/Klb_GError.h>
#include <infra/Util_Buffer.h>
#include <memory>
#include <new>

namespace {

/// Files are read into large blocks, and from a page of the file cache a processor may copy slowly when the target's
/// place in its own page lies shortly behind: at a fifth of the speed up to 31 bytes behind, where malloc begins its
/// largest blocks. Half a page away the copy is the fastest.
constexpr size_t kPage = 4096, kLarge = 32 * kPage;

} // namespace

std::shared_ptr<Util_Buffer> Util_Buffer::Make(size_t size) noexcept {
  try {
    // owned as a whole from here on: making a shared pointer can fail too
    std::unique_ptr<Util_Buffer> buffer(new Util_Buffer(size));
    bool const large = size >= kLarge;
    size_t room = size + (large ? 2 * kPage : 1); // never nothing
    void* begin = buffer->block_ = room > size ? std::malloc(room) : nullptr;
    if (begin && large) begin = static_cast<char*>(std::align(kPage, size + kPage / 2, begin, room)) + kPage / 2;
    buffer->data_ = static_cast<char*>(begin);
    if (begin) return buffer;
  } catch (std::bad_alloc const&) {
  }
  KlbGError.SetSystem(ENOMEM); // who has a code of its own sets that
  errno = ENOMEM;
  return nullptr;
}

Util_Buffer::~Util_Buffer() { std::free(block_); }
