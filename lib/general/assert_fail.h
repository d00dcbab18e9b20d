// lib/general/assert_fail.h
// ASSERT and the allocation failure report: both write one ERROR line; ASSERT aborts.
// Here:     the macro and its entry points, free of streams so that hot headers stay small.
// Not here: the log itself (log.h), the crash report that follows the abort (crash.h).
#pragma once
#include <cstdint>

namespace veld {
// Reports a false condition (condition text, function, line, base name of the file, build time) and aborts.
[[noreturn]] void assert_failed(const char* cond, const char* func, int line, const char* file);

// The form of the array templates: names one or two values and the element type.
[[noreturn]] void assert_failed_index(const char* cond, const char* name, int64_t value, const char* func,
                                      const char* type, int line, const char* file);

// Writes "ERROR: <tag> allocation failed, size n x bytes" (an image: x size, y size, bytes) and ends the run with
// exit value 1: the size that was asked for explains it, a stack would not.
[[noreturn]] void alloc_failed(const char* tag, uint64_t n, uint64_t bytes);
[[noreturn]] void alloc_failed(const char* tag, uint64_t xsize, uint64_t ysize, uint64_t bytes);

// The same for an allocation by new that failed on this thread.
[[noreturn]] void allocation_failed();

// For faults of the program, never of the input. Always compiled in.
#define ASSERT(cond)                                      \
  do {                                                    \
    if (!(cond)) [[unlikely]]                             \
      assert_failed(#cond, __func__, __LINE__, __FILE__); \
  } while (0)
}  // namespace veld
