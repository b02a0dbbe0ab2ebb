#include "program/AddressSpace.h"

#include <cstddef>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>

namespace {

constexpr std::size_t kSmallStack = std::size_t(1) << 20;
constexpr int kLargeBlock = 128 << 10;

} // namespace

void SpareAddressSpace() {
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) == -1 || limit.rlim_cur == RLIM_INFINITY) return;
  mallopt(M_ARENA_MAX, 1);
  mallopt(M_MMAP_THRESHOLD, kLargeBlock); // fixed: otherwise it grows with the objects
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kSmallStack);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}
