// las/laz_integer.h
// Integers coded against a prediction: the number of bits of the difference, then its value.
// Here:     IntegerModel, for both directions. Private to the codec's sources.
// Not here: the arithmetic coder (laz_arith.h), the predictions (the items).
#pragma once
#include "las/laz_arith.h"

namespace veld {
// BITS: width of the integers; CONTEXTS: independent models of the number of bits. The models of the value
// are shared by all contexts and made on first use.
template <class C, int BITS, int CONTEXTS>
struct IntegerModel {
  static constexpr int NVALUE = BITS < 31 ? BITS : 31;
  static constexpr unsigned MAX_BYTES = 8;  // of one integer: two symbols, raw bits in two parts
  using Bits = typename C::template EvenSymbols<BITS + 1>;
  using Value = typename C::template EvenSymbols<256>;

  uint32_t k = 0;  // number of bits of the latest difference
  uint32_t generation = 0;
  BitModel value0;
  Bits nbits[CONTEXTS];
  Value value[NVALUE];  // value[k - 1]: the upper 8 bits of differences of k bits

  void init() {
    for (Bits& model : nbits) model.init();
    value0.init();
    generation++;
  }

  LAZ_NOINLINE void init_value(Value& model) {
    model.init(k < 8 ? 1u << k : 256);
    model.generation = generation;
  }

  // The integer, modulo 2^BITS; `real` is looked at by the encoder only.
  LAZ_INLINE uint32_t code(C& c, uint32_t prediction, uint32_t real, uint32_t context) {
    return code_with(c, nbits[context], prediction, real);
  }

  // The same with a context that stands outside.
  LAZ_INLINE uint32_t code_with(C& c, Bits& context, uint32_t prediction, uint32_t real) {
    constexpr uint32_t MASK = uint32_t((uint64_t(1) << BITS) - 1);
    uint32_t diff = 0;
    if constexpr (C::encoding) {
      diff = real - prediction;
      if constexpr (BITS < 32) diff = uint32_t(int32_t(diff << (32 - BITS)) >> (32 - BITS));
      const uint32_t magnitude = int32_t(diff) <= 0 ? 0u - diff : diff - 1;
      k = uint32_t(std::bit_width(magnitude));
    }
    k = c.symbol(context, k);
    if (k == 0) {
      diff = c.bit(value0, diff);
    } else if (BITS < 32 || k < 32) {
      Value& model = value[k - 1];
      if (model.generation != generation) [[unlikely]]
        init_value(model);
      if constexpr (C::encoding) diff += int32_t(diff) < 0 ? (1u << k) - 1 : ~0u;
      if (k <= 8) {
        diff = c.symbol(model, diff);
      } else {
        const uint32_t nraw = k - 8;
        const uint32_t upper = c.symbol(model, diff >> nraw);
        diff = upper << nraw | c.bits(nraw, diff & ((1u << nraw) - 1));
      }
      if constexpr (!C::encoding) diff += 1 - ((diff >> (k - 1) ^ 1) << k);
    } else {
      diff = 0x80000000u;
    }
    if constexpr (C::encoding) return real;
    return (prediction + diff) & MASK;
  }
};
}  // namespace veld
