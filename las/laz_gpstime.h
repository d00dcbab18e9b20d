// las/laz_gpstime.h
// GPS times, as bit patterns: up to four interleaved sequences, each predicted by multiples of a stored step.
// Here:     the coding that GPSTIME11 version 2 and the time layer of POINT14 share, and GPSTIME11 version 1
//           (decoding). Private to the codec's sources.
#pragma once
#include <cmath>

#include "las/laz_bytes.h"
#include "las/laz_integer.h"

namespace veld {
// WITH_UNCHANGED: the pointwise form, whose symbols include "same time as before".
template <class C, bool WITH_UNCHANGED>
struct GpsSequences {
  static constexpr unsigned MAX_BYTES = 4 * ARITH_SYMBOL_BYTES + 8 + 6;
  static constexpr int32_t MULTIPLE_MAX = 500, MULTIPLE_MIN = -10;
  static constexpr uint32_t NEGATIVE = 500, LARGE_NEGATIVE = 510, UNCHANGED = 511;
  static constexpr uint32_t FULL = WITH_UNCHANGED ? 512 : 511;  // + 1 .. 3: another sequence
  static constexpr uint32_t ZERO_STEP = WITH_UNCHANGED ? 1 : 0;
  static constexpr uint32_t ZERO_FULL = ZERO_STEP + 1;  // + 1 .. 3: another sequence

  typename C::template Symbols<int(FULL) + 4> multi_model;      // with a step: which multiple
  typename C::template Symbols<int(ZERO_FULL) + 4> zero_model;  // without a step
  IntegerModel<C, 32, 9> step_model;
  uint32_t current, next;
  uint64_t time[4];
  int32_t step[4];
  uint32_t nextreme[4];  // unusual multiples in a row

  void start(uint64_t first) {
    multi_model.init();
    zero_model.init();
    step_model.init();
    seed(first);
  }
  void seed(uint64_t first) {
    current = next = 0;
    for (int i = 0; i < 4; i++) time[i] = 0, step[i] = 0, nextreme[i] = 0;
    time[0] = first;
  }

  LAZ_INLINE void bump(int32_t x) {
    if (++nextreme[current] > 3) {
      step[current] = x;
      nextreme[current] = 0;
    }
  }
  LAZ_NOINLINE C code_full(C c,
                           uint64_t real) {  // the coder by value: its state stays in registers elsewhere
    const uint32_t high = step_model.code(c, uint32_t(time[current] >> 32), uint32_t(real >> 32), 8);
    const uint32_t low = c.bits(32, uint32_t(real));
    next = (next + 1) & 3;
    current = next;
    time[current] = uint64_t(high) << 32 | low;
    step[current] = 0;
    nextreme[current] = 0;
    return c;
  }
  // Codes the difference to the current sequence under the symbol of a multiple.
  LAZ_INLINE void code_multiple(C& c, uint32_t s, int32_t real) {
    const int32_t base = step[current];
    uint32_t prediction, context;
    if (s == 1) {
      prediction = uint32_t(base), context = 1;
    } else if (s == 0) {
      prediction = 0, context = 7;
    } else if (s <= NEGATIVE) {
      prediction = s * uint32_t(base), context = s < 10 ? 2 : s < uint32_t(MULTIPLE_MAX) ? 3 : 4;
    } else if (s < LARGE_NEGATIVE) {
      prediction = (NEGATIVE - s) * uint32_t(base), context = 5;
    } else {
      prediction = uint32_t(MULTIPLE_MIN) * uint32_t(base), context = 6;
    }
    const int32_t x = int32_t(step_model.code(c, prediction, uint32_t(real), context));
    time[current] += uint64_t(int64_t(x));
    if (s == 1)
      nextreme[current] = 0;
    else if (s == 0 || s == uint32_t(MULTIPLE_MAX) || s == LARGE_NEGATIVE)
      bump(x);
  }
  LAZ_INLINE void code_first_step(C& c, int32_t real) {
    const int32_t x = int32_t(step_model.code(c, 0, uint32_t(real), 0));
    step[current] = x;
    time[current] += uint64_t(int64_t(x));
    nextreme[current] = 0;
  }

  LAZ_INLINE uint64_t decode(C& c) {
    for (int nswitch = 0; nswitch < 4; nswitch++) {  // an encoder switches once at most
      if (step[current] == 0) {
        const uint32_t s = c.symbol(zero_model);
        if (WITH_UNCHANGED && s == 0) return time[current];
        if (s <= ZERO_FULL) {
          if (s == ZERO_STEP)
            code_first_step(c, 0);
          else
            c = code_full(c, 0);
          return time[current];
        }
        current = (current + s - ZERO_FULL) & 3;
      } else {
        const uint32_t s = c.symbol(multi_model);
        if (s <= LARGE_NEGATIVE) {
          code_multiple(c, s, 0);
          return time[current];
        }
        if (WITH_UNCHANGED && s == UNCHANGED) return time[current];
        if (s == FULL) {
          c = code_full(c, 0);
          return time[current];
        }
        current = (current + s - FULL) & 3;
      }
    }
    c.bad = 1;
    return time[current];
  }

  static bool fits(uint64_t diff) { return int64_t(diff) == int32_t(uint32_t(diff)); }

  // The multiple of the step that comes nearest. Any choice decodes to the same time.
  static uint32_t symbol_of_multiple(int32_t diff, int32_t base) {
    const float q = float(diff) / float(base);
    if (q >= float(MULTIPLE_MAX)) return uint32_t(MULTIPLE_MAX);
    if (q <= float(MULTIPLE_MIN)) return LARGE_NEGATIVE;
    const int32_t nearest = int32_t(q < 0 ? q - 0.5f : q + 0.5f);
    return nearest >= 0              ? uint32_t(nearest)
           : nearest <= MULTIPLE_MIN ? LARGE_NEGATIVE
                                     : uint32_t(int32_t(NEGATIVE) - nearest);
  }

  LAZ_INLINE void encode(C& c, uint64_t real) {
    for (;;) {
      const uint64_t diff = real - time[current];
      const bool fresh = step[current] == 0;
      if (WITH_UNCHANGED && diff == 0) {
        fresh ? c.symbol(zero_model, 0) : c.symbol(multi_model, UNCHANGED);
        return;
      }
      if (fits(diff)) {
        const int32_t x = int32_t(uint32_t(diff));
        if (fresh) {
          c.symbol(zero_model, ZERO_STEP);
          code_first_step(c, x);
        } else {
          code_multiple(c, c.symbol(multi_model, symbol_of_multiple(x, step[current])), x);
        }
        return;
      }
      uint32_t other = 1;
      while (other < 4 && !fits(real - time[(current + other) & 3])) other++;
      if (other == 4) {
        fresh ? c.symbol(zero_model, ZERO_FULL) : c.symbol(multi_model, FULL);
        c = code_full(c, real);
        return;
      }
      fresh ? c.symbol(zero_model, ZERO_FULL + other) : c.symbol(multi_model, FULL + other);
      current = (current + other) & 3;
    }
  }
};

template <class C>
struct GpsTime11v2 {
  static constexpr unsigned SIZE = 8;
  static constexpr unsigned MAX_BYTES = GpsSequences<C, true>::MAX_BYTES;
  GpsSequences<C, true> sequences;

  void start(const uint8_t* first) { sequences.start(laz_get<uint64_t>(first)); }
  LAZ_INLINE void code(C& c, typename C::Byte* record) {
    if constexpr (C::encoding)
      sequences.encode(c, laz_get<uint64_t>(record));
    else
      laz_put(record, sequences.decode(c));
  }
};

struct GpsTime11v1 {
  using C = ArithDecoder;
  static constexpr unsigned SIZE = 8;
  static constexpr unsigned MAX_BYTES = 2 * ARITH_SYMBOL_BYTES + 8 + 8;

  C::Symbols<512> multi_model;
  C::Symbols<3> zero_model;
  IntegerModel<C, 32, 6> step_model;
  uint64_t time;
  int32_t step;
  uint32_t nextreme;

  void start(const uint8_t* first) {
    multi_model.init();
    zero_model.init();
    step_model.init();
    time = laz_get<uint64_t>(first);
    step = 0;
    nextreme = 0;
  }
  void code_full(C& c) {
    const uint64_t low = c.bits(32);
    time = uint64_t(c.bits(32)) << 32 | low;
  }
  int32_t add(C& c, uint32_t prediction, uint32_t context) {
    const int32_t x = int32_t(step_model.code(c, prediction, 0, context));
    time += uint64_t(int64_t(x));
    return x;
  }
  void bump(int32_t x) {
    if (++nextreme > 3) {
      step = x;
      nextreme = 0;
    }
  }
  void code(C& c, uint8_t* record) {
    if (step == 0) {
      const uint32_t s = c.symbol(zero_model);
      if (s == 1)
        step = add(c, 0, 0);
      else if (s == 2)
        code_full(c);
    } else {
      const uint32_t s = c.symbol(multi_model);
      if (s == 1) {
        step = add(c, uint32_t(step), 1);
        nextreme = 0;
      } else if (s == 0) {
        bump(add(c, uint32_t(step / 4), 2));
      } else if (s < 510) {
        const int32_t x = add(c, s * uint32_t(step), s < 10 ? 3 : s < 50 ? 4 : 5);
        if (s == 509) bump(x);
      } else if (s == 510) {
        code_full(c);
      }
    }
    laz_put(record, time);
  }
};
}  // namespace veld
