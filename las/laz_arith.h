// las/laz_arith.h
// The arithmetic coder of LAZ: adaptive models, and a decoder and an encoder with the same calls.
// Here:     bit and symbol models, ArithDecoder, ArithEncoder. Private to the codec's sources.
// Not here: integers against a prediction (laz_integer.h), the items (laz_point10.h and its siblings).
//
// The items are written once for both directions: c.symbol(model, s) of the encoder codes s and gives it back,
// that of the decoder ignores s and gives the symbol read. Neither tests for the end of its buffer: their
// callers see to it that MAX bytes a point (the items' max_bytes) are there.
#pragma once
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#define LAZ_INLINE __attribute__((always_inline)) inline

constexpr uint32_t ARITH_MIN_LENGTH = 1u << 24;
constexpr uint32_t ARITH_MAX_LENGTH = 0xFFFFFFFFu;
constexpr int ARITH_BIT_SHIFT = 13;     // precision of the bit model's probability
constexpr int ARITH_SYMBOL_SHIFT = 15;  // and of the symbol models' distribution
constexpr int ARITH_SYMBOL_BYTES = 2;   // most bytes that a symbol or 16 raw bits take

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

// Model of up to S symbols. The decoder's has a table of starting points of the search for a symbol:
// table[k] is the largest symbol that starts at or below k / 2^TABLE_BITS of the interval.
template <int S, bool WITH_TABLE>
struct SymbolModel {
  static constexpr int TABLE_BITS = S > 64 ? 8 : 7;
  struct Entry {
    uint16_t dist, count;  // start of the symbol's share of the interval, times 2^15; occurrences
  };
  struct NoTable {};
  using Index = std::conditional_t<(S > 256), uint16_t, uint8_t>;
  using Table = std::conditional_t<WITH_TABLE, std::array<Index, 1 << TABLE_BITS>, NoTable>;

  uint32_t left, cycle, total;
  uint32_t nsym;
  uint32_t generation = 0;  // chunk in which it was last initialised, for models made on first use
  [[no_unique_address]] Table table;
  Entry entry[S + 1];  // the last one is the end of the interval

  void init(uint32_t n = S) {
    nsym = n;
    for (uint32_t i = 0; i < n; i++) entry[i].count = 1;
    entry[n] = {0xFFFF, 0};
    total = 0;
    cycle = n;
    update();
    cycle = left = (n + 6) >> 1;
  }
  LAZ_INLINE void init_once(uint32_t n, uint32_t now) {
    if (generation != now) [[unlikely]] {
      generation = now;
      init(n);
    }
  }
  __attribute__((noinline)) void update() {
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
    if constexpr (WITH_TABLE) fill_table();
    cycle = std::min((5 * cycle) >> 2, (n + 6) << 3);
    left = cycle;
  }
  void fill_table() {
    constexpr int SHIFT = ARITH_SYMBOL_SHIFT - TABLE_BITS;
    constexpr uint32_t SIZE = 1u << TABLE_BITS;
    uint32_t k = 0;
    for (uint32_t i = 1; i < nsym; i++) {
      const uint32_t end = (entry[i].dist + (1u << SHIFT) - 1) >> SHIFT;  // first k at or above symbol i
      while (k < end) table[k++] = Index(i - 1);
    }
    while (k < SIZE) table[k++] = Index(nsym - 1);
  }
};

// floor(2^26 / (i + 1025)): reciprocals that are never too large, for the decoder's first guess of a symbol.
inline constexpr std::array<uint16_t, 1024> ARITH_RECIPROCAL = [] {
  std::array<uint16_t, 1024> table{};
  for (uint32_t i = 0; i < 1024; i++) table[i] = uint16_t((1u << 26) / (i + 1025));
  return table;
}();

// value < length holds at all times, whatever the bytes: every interval that is chosen contains value.
struct ArithDecoder {
  static constexpr bool encoding = false;
  using Byte = uint8_t;  // of the records: written
  template <int S>
  using Symbols = SymbolModel<S, true>;

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

  LAZ_INLINE void renormalise() {
    while (length < ARITH_MIN_LENGTH) {
      value = value << 8 | *at++;
      length <<= 8;
    }
  }

  LAZ_INLINE uint32_t bit(BitModel& model, uint32_t = 0) {
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
    renormalise();
    if (--model.left == 0) [[unlikely]]
      model.update();
    return b;
  }

  template <int S>
  LAZ_INLINE uint32_t symbol(Symbols<S>& model, uint32_t = 0) {
    // First guess from value / length, rounded down: value and length shifted until length has 32 bits, and a
    // reciprocal of its upper 11 bits. The search goes upwards from there.
    const int shift = std::countl_zero(length);
    const uint32_t reciprocal = ARITH_RECIPROCAL[((length << shift) >> 21) & 1023];
    const uint32_t k = uint32_t((uint64_t(value << shift) * reciprocal) >> (47 - Symbols<S>::TABLE_BITS));
    uint32_t s = model.table[k];
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
    renormalise();
    model.entry[s].count++;
    if (--model.left == 0) [[unlikely]]
      model.update();
    return s;
  }

  LAZ_INLINE uint32_t bits_up_to_19(uint32_t n) {
    length >>= n;
    const uint32_t v = value / length;
    value -= v * length;
    renormalise();
    bad |= v >> n;
    return v;
  }
  LAZ_INLINE uint32_t bits(uint32_t n, uint32_t = 0) {  // 1 .. 32
    if (n <= 19) return bits_up_to_19(n);
    const uint32_t low = bits_up_to_19(16);
    return bits_up_to_19(n - 16) << 16 | low;
  }
};

struct ArithEncoder {
  static constexpr bool encoding = true;
  using Byte = const uint8_t;  // of the records: read
  template <int S>
  using Symbols = SymbolModel<S, false>;

  uint32_t base = 0, length = ARITH_MAX_LENGTH;
  uint8_t* at = nullptr;  // next byte

  void start(uint8_t* bytes) {
    base = 0;
    length = ARITH_MAX_LENGTH;
    at = bytes;
  }

  LAZ_INLINE void add(uint32_t x) {
    base += x;
    if (base < x) [[unlikely]]  // carry; it never reaches beyond the first byte of the stream
      for (uint8_t* byte = at - 1; ++*byte == 0; byte--) {
      }
  }
  LAZ_INLINE void renormalise() {
    while (length < ARITH_MIN_LENGTH) {
      *at++ = uint8_t(base >> 24);
      base <<= 8;
      length <<= 8;
    }
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

  template <int S>
  LAZ_INLINE uint32_t symbol(Symbols<S>& model, uint32_t s) {
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

  void finish() {  // takes up to 5 more bytes
    const uint32_t old = base;
    int nzeros = 3;
    if (length > 2 * ARITH_MIN_LENGTH) {
      base += ARITH_MIN_LENGTH;
      length = ARITH_MIN_LENGTH >> 1;
    } else {
      base += ARITH_MIN_LENGTH >> 1;
      length = ARITH_MIN_LENGTH >> 9;
      nzeros = 2;
    }
    if (base < old)
      for (uint8_t* byte = at - 1; ++*byte == 0; byte--) {
      }
    renormalise();
    while (nzeros-- > 0) *at++ = 0;
  }
};
