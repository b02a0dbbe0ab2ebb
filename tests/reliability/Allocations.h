// `operator new` of a program, which can be made to fail. It is weak, so that several sources of it may include this.
#pragma once

#include <cstdlib>
#include <new>

inline bool s_armed = false, s_once = false;
inline int s_ordinal = 0, s_count = 0;

inline void* Allocate(std::size_t size) {
  if (s_armed) {
    ++s_count;
    if (s_ordinal != 0 && (s_once ? s_count == s_ordinal : s_count >= s_ordinal)) return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

/// From the allocation with this number on, or that one only, all fail while they are armed; 0: none does. Starts to
/// count anew.
inline void FailAllocations(int ordinal, bool once) {
  s_ordinal = ordinal;
  s_once = once;
  s_count = 0;
}

inline void ArmAllocations(bool armed) { s_armed = armed; }

/// How many there were while they were armed.
inline int CountedAllocations() { return s_count; }

[[gnu::weak]] void* operator new(std::size_t size) {
  if (void* const memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}

[[gnu::weak]] void* operator new(std::size_t size, std::nothrow_t const&) noexcept { return Allocate(size); }
[[gnu::weak]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::weak]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
