// las/laz_arith.h
// The arithmetic coder of LAZ: adaptive models, and a decoder and an encoder with the same calls.
// Here:     bit and symbol models, ArithDecoder, ArithEncoder. Private to the codec's sources.
// Not here: integers against a prediction (laz_integer.h), the items (laz_point10.h and its siblings).
//
// The items are written once for both directions: c.symbol(model, s) of the encoder codes s and gives it
// back, that of the decoder ignores s and gives the symbol read. Neither tests for the end of its buffer:
// their callers see to it that MAX bytes a point (the items' max_bytes) are there.
#pragma once
#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace veld {
#ifndef LAZ_INLINE  // builds that look into each branch can do without, and are then built ten times as fast
#define LAZ_INLINE __attribute__((always_inline)) inline
#endif
#define LAZ_NOINLINE __attribute__((noinline))

// The points' loops exist twice: for any x86-64, and with the bit instructions of all since about 2014, which
// make them a seventh faster. The results are the same.
#if defined(__x86_64__)
#define LAZ_BIT_INSTRUCTIONS __attribute__((target("bmi,bmi2,lzcnt,sse4.1")))
inline bool has_bit_instructions() {
  static const bool has = [] {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    const bool lzcnt = __get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx) && (ecx & bit_LZCNT) != 0;
    return lzcnt && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
           __builtin_cpu_supports("sse4.1");
  }();
  return has;
}
#else
#define LAZ_BIT_INSTRUCTIONS
inline bool has_bit_instructions() { return false; }
#endif

constexpr uint32_t ARITH_MIN_LENGTH = 1u << 24;
constexpr uint32_t ARITH_MAX_LENGTH = 0xFFFFFFFFu;
constexpr int ARITH_BIT_SHIFT = 13;     // precision of the bit model's probability
constexpr int ARITH_SYMBOL_SHIFT = 15;  // and of the symbol models' distribution
constexpr int ARITH_SYMBOL_BYTES = 2;   // most bytes that a symbol or 16 raw bits take
constexpr int ARITH_LOOK_AHEAD = 4;     // bytes that the decoder looks at behind those it takes

// The address as it is, but in a register: else the compiler works it out again for each use of a model.
template <class T>
LAZ_INLINE T* in_register(T* at) {
  asm("" : "+r"(at));
  return at;
}

struct BitModel {
  uint32_t p0, c0, n, cycle, left;  // probability and count of zeros, count of bits, bits between updates

  void init() {
    c0 = 1;
    n = 2;
    p0 = 1u << (ARITH_BIT_SHIFT - 1);
    cycle = left = 4;
  }
  void update() {
    n += cycle;
    if (n > 1u << ARITH_BIT_SHIFT) {
      n = (n + 1) >> 1;
      c0 = (c0 + 1) >> 1;
      if (c0 == n) n++;
    }
    p0 = (c0 * (0x80000000u / n)) >> (31 - ARITH_BIT_SHIFT);
    cycle = std::min((5 * cycle) >> 2, 64u);
    left = cycle;
  }
};

// Model of up to S symbols. The decoder's has two means to find a symbol: a guess, the symbol that takes most
// of the interval if there is such a one (WITH_GUESS), and a table of starting points of the search: table[k]
// is the largest symbol that starts at or below k / 2^TABLE_BITS of the interval.
template <int S, bool DECODING, bool WITH_GUESS>
struct SymbolModel {
  static constexpr bool GUESSES = DECODING && WITH_GUESS;
  static constexpr int TABLE_BITS = S > 64 ? 9 : 7;
  static constexpr uint32_t GUESS_SHARE = 19000;  // of 2^15, from which on a guess pays
  static constexpr uint32_t NO_GUESS = ~0u;
  struct Entry {
    uint16_t dist, count;  // start of the symbol's share of the interval, times 2^15; occurrences
  };
  struct Nothing {};
  using Index = std::conditional_t<(S > 256), uint16_t, uint8_t>;
  static constexpr uint32_t AT_ONCE = 8 / sizeof(Index);  // entries of the table that are filled together
  using Table = std::conditional_t<DECODING, std::array<Index, (1 << TABLE_BITS) + AT_ONCE>, Nothing>;

  uint32_t left, cycle, total;
  uint32_t nsym;
  uint32_t generation = 0;  // chunk in which it was last initialised, for models made on first use
  uint32_t guess;
  Entry entry[S + 1];  // the last one is the end of the interval
  [[no_unique_address]] Table table;

  void init(uint32_t n = S) {
    nsym = n;
    for (uint32_t i = 0; i < n; i++) entry[i].count = 1;
    entry[n] = {0xFFFF, 0};
    total = 0;
    cycle = n;
    update();
    cycle = left = (n + 6) >> 1;
  }
  LAZ_INLINE void init_once(uint32_t now) {
    if (generation != now) [[unlikely]] {
      generation = now;
      init();
    }
  }
  LAZ_NOINLINE void update() {
    const uint32_t n = nsym;
    total += cycle;
    if (total > 1u << ARITH_SYMBOL_SHIFT) {
      total = 0;
      for (uint32_t i = 0; i < n; i++) {
        entry[i].count = uint16_t((entry[i].count + 1) >> 1);
        total += entry[i].count;
      }
    }
    const uint32_t scale = 0x80000000u / total;
    uint32_t sum = 0;
    for (uint32_t i = 0; i < n; i++) {
      entry[i].dist = uint16_t((scale * sum) >> (31 - ARITH_SYMBOL_SHIFT));
      sum += entry[i].count;
    }
    if constexpr (DECODING) fill_table();
    cycle = std::min((5 * cycle) >> 2, (n + 6) << 3);
    left = cycle;
  }
  void fill_table() {
    constexpr int SHIFT = ARITH_SYMBOL_SHIFT - TABLE_BITS;
    constexpr uint64_t ONES = sizeof(Index) == 1 ? 0x0101010101010101u : 0x0001000100010001u;
    guess = NO_GUESS;
    uint32_t k = 0, begin = 0;
    for (uint32_t i = 1; i <= nsym; i++) {
      const uint32_t end = i < nsym ? entry[i].dist : 1u << ARITH_SYMBOL_SHIFT;
      if (end - begin >= GUESS_SHARE) guess = i - 1;
      begin = end;
      const uint32_t k_end = (end + (1u << SHIFT) - 1) >> SHIFT;  // first one at or above symbol i
      const uint64_t indices = (i - 1) * ONES;
      do {
        std::memcpy(&table[k], &indices, sizeof indices);  // what is beyond k_end is overwritten later
        k += AT_ONCE;
      } while (k < k_end);
      k = k_end;
    }
  }
};

// floor(2^26 / (i + 1)) for i = 1024 .. 2047: reciprocals that are never too large, where the decoder begins
// its search for a symbol.
inline constexpr std::array<uint16_t, 2048> ARITH_RECIPROCAL = [] {
  std::array<uint16_t, 2048> table{};
  for (uint32_t i = 1024; i < 2048; i++) table[i] = uint16_t((1u << 26) / (i + 1));
  return table;
}();

// value < length holds at all times, whatever the bytes: every interval that is chosen contains value.
// Renormalisation is put off to the beginning of the next call, where it runs beside the search for a symbol
// instead of in front of it; settle() makes up for it before `at` is looked at.
struct ArithDecoder {
  static constexpr bool encoding = false;
  using Byte = uint8_t;  // of the records: written
  template <int S>
  using Symbols = SymbolModel<S, true, true>;
  template <int S>
  using EvenSymbols = SymbolModel<S, true, false>;  // for models where no symbol prevails

  uint32_t value = 0, length = ARITH_MAX_LENGTH;
  const uint8_t* at = nullptr;  // next byte
  uint32_t bad = 0;             // not 0: the bytes can't come from an encoder

  void start(const uint8_t* bytes) {  // 4 bytes must be there
    length = ARITH_MAX_LENGTH;
    value = uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 | bytes[3];
    at = bytes + 4;
    bad = 0;
    if (value == length) {
      value = 0;
      bad = 1;
    }
  }

  LAZ_INLINE void settle() {
    while (length < ARITH_MIN_LENGTH) {
      value = value << 8 | *at++;
      length <<= 8;
    }
  }

  LAZ_INLINE uint32_t bit(BitModel& model, uint32_t = 0) {
    settle();
    const uint32_t x = model.p0 * (length >> ARITH_BIT_SHIFT);
    uint32_t b;
    if (value < x) {
      length = x;
      model.c0++;
      b = 0;
    } else {
      value -= x;
      length -= x;
      b = 1;
    }
    if (--model.left == 0) [[unlikely]]
      model.update();
    return b;
  }

  template <class Model>
  LAZ_INLINE uint32_t symbol(Model& any_model, uint32_t = 0) {
    Model& model = *in_register(&any_model);
    uint32_t s = model.guess;
    if (!Model::GUESSES || s == Model::NO_GUESS || !try_guess(model, s)) s = search(model);
    model.entry[s].count++;
    if (--model.left == 0) [[unlikely]]
      model.update();
    return s;
  }

  LAZ_INLINE uint32_t bits_up_to_19(uint32_t n) {
    settle();
    length >>= n;
    const uint32_t v = value / length;
    value -= v * length;
    bad |= v >> n;
    return v;
  }
  LAZ_INLINE uint32_t bits(uint32_t n, uint32_t = 0) {  // 1 .. 32
    if (n <= 19) return bits_up_to_19(n);
    const uint32_t low = bits_up_to_19(16);
    return bits_up_to_19(n - 16) << 16 | low;
  }

 private:
  template <class Model>
  LAZ_INLINE bool try_guess(Model& model, uint32_t s) {
    renormalise();
    const uint64_t unit = length >> ARITH_SYMBOL_SHIFT;
    const uint64_t low = model.entry[s].dist * unit;
    const uint64_t high = model.entry[s + 1].dist * unit;
    if (value - low >= high - low) return false;
    value -= uint32_t(low);
    length = uint32_t(std::min<uint64_t>(high, length) - low);
    return true;
  }

  LAZ_INLINE void renormalise() {  // as settle(), without a branch
    uint32_t next;
    std::memcpy(&next, at, sizeof next);
    const uint32_t nbits = uint32_t(std::countl_zero(length)) & 24;
    value = uint32_t((uint64_t(value) << 32 | __builtin_bswap32(next)) << nbits >> 32);
    length <<= nbits;
    at += nbits >> 3;
  }

  // Renormalises without a branch, and searches from value / length, rounded down: both are shifted until
  // length has 32 bits, and the reciprocal of its upper 11 bits is looked up.
  template <class Model>
  LAZ_INLINE uint32_t search(Model& model) {
    uint32_t next;
    std::memcpy(&next, at, sizeof next);
    const uint64_t ahead = uint64_t(value) << 32 | __builtin_bswap32(next);
    const uint32_t shift = uint32_t(std::countl_zero(length));
    const uint64_t reciprocal = ARITH_RECIPROCAL[(length << shift) >> 21];
    const uint32_t numerator = uint32_t(ahead << shift >> 32) & ~127u;  // without bits that are not value's
    const uint32_t k = uint32_t((numerator * reciprocal) >> (47 - Model::TABLE_BITS));
    uint32_t s = model.table[k];
    const uint32_t nbits = shift & 24;
    value = uint32_t(ahead << nbits >> 32);
    length <<= nbits;
    at += nbits >> 3;
    const uint64_t unit = length >> ARITH_SYMBOL_SHIFT;
    uint64_t low = model.entry[s].dist * unit;
    uint64_t high = model.entry[s + 1].dist * unit;
    while (high <= value) {
      s++;
      low = high;
      high = model.entry[s + 1].dist * unit;
    }
    value -= uint32_t(low);
    length = uint32_t(std::min<uint64_t>(high, length) - low);
    return s;
  }
};

// The latest two bytes of the output stand in `window` above the 32 bits of the interval's base, and are
// written again with each call: a carry reaches bytes behind them so rarely that its branch is never
// mispredicted.
struct ArithEncoder {
  static constexpr bool encoding = true;
  using Byte = const uint8_t;  // of the records: read
  template <int S>
  using Symbols = SymbolModel<S, false, false>;
  template <int S>
  using EvenSymbols = Symbols<S>;
  static constexpr uint64_t WINDOW = (uint64_t(1) << 48) - 1;
  static constexpr unsigned BYTES_BEFORE =
      2;  // that must exist in front of the stream; they keep their values
  static constexpr unsigned BYTES_BEHIND = 16;  // room that the latest call and finish() need

  uint64_t window = 0;
  uint32_t length = ARITH_MAX_LENGTH;
  uint8_t* at = nullptr;  // next byte

  void start(uint8_t* bytes) {
    window = uint64_t(bytes[-2]) << 40 | uint64_t(bytes[-1]) << 32;
    length = ARITH_MAX_LENGTH;
    at = bytes;
  }

  LAZ_INLINE void add(uint32_t x) {
    window += x;
    if (window > WINDOW) [[unlikely]] {  // it never reaches beyond the first byte of the stream
      window &= WINDOW;
      for (uint8_t* byte = at - 3; ++*byte == 0; byte--) {
      }
    }
  }
  LAZ_INLINE void renormalise() {
    const uint32_t nbits = uint32_t(std::countl_zero(length)) & 24;
    const uint64_t bytes = __builtin_bswap64(window << 16);
    std::memcpy(at - 2, &bytes, sizeof bytes);
    window = window << nbits & WINDOW;
    length <<= nbits;
    at += nbits >> 3;
  }

  LAZ_INLINE uint32_t bit(BitModel& model, uint32_t b) {
    const uint32_t x = model.p0 * (length >> ARITH_BIT_SHIFT);
    if (b == 0) {
      length = x;
      model.c0++;
    } else {
      add(x);
      length -= x;
    }
    renormalise();
    if (--model.left == 0) [[unlikely]]
      model.update();
    return b;
  }

  template <class Model>
  LAZ_INLINE uint32_t symbol(Model& any_model, uint32_t s) {
    Model& model = *in_register(&any_model);
    const uint64_t unit = length >> ARITH_SYMBOL_SHIFT;
    const uint64_t low = model.entry[s].dist * unit;
    const uint64_t high = model.entry[s + 1].dist * unit;  // beyond the interval for the last symbol
    add(uint32_t(low));
    length = uint32_t(std::min<uint64_t>(high, length) - low);
    renormalise();
    model.entry[s].count++;
    if (--model.left == 0) [[unlikely]]
      model.update();
    return s;
  }

  LAZ_INLINE uint32_t bits(uint32_t n, uint32_t v) {  // 1 .. 32
    uint32_t rest = v;
    if (n > 19) {
      length >>= 16;
      add((rest & 0xFFFF) * length);
      renormalise();
      rest >>= 16;
      n -= 16;
    }
    length >>= n;
    add(rest * length);
    renormalise();
    return v;
  }

  void finish() {
    const bool wide = length > 2 * ARITH_MIN_LENGTH;
    add(wide ? ARITH_MIN_LENGTH : ARITH_MIN_LENGTH >> 1);
    length = wide ? ARITH_MIN_LENGTH >> 1 : ARITH_MIN_LENGTH >> 9;
    renormalise();
    for (int nzeros = wide ? 3 : 2; nzeros > 0; nzeros--) *at++ = 0;
  }
};
}  // namespace veld
