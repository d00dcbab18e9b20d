// Allocation by new, which remembers the size that it could not get for the ERROR line.
#include <cstdlib>
#include <new>

#include "lib/general/assert_fail.h"

namespace {
thread_local std::size_t size_asked = 0;
}

void veld::allocation_failed() { veld::alloc_failed("new", size_asked, 1); }

#ifndef VELD_SANITIZED  // sanitizers have operators of their own
void* operator new(std::size_t n) {
  if (void* const block = std::malloc(n > 0 ? n : 1)) return block;
  size_asked = n;
  throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void* operator new(std::size_t n, std::align_val_t align) {
  void* block = nullptr;
  if (posix_memalign(&block, static_cast<std::size_t>(align), n > 0 ? n : 1) == 0) return block;
  size_asked = n;
  throw std::bad_alloc();
}
void* operator new[](std::size_t n, std::align_val_t align) { return operator new(n, align); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
#endif
