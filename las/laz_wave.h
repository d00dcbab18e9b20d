// las/laz_wave.h
// Wave packet fields: WAVEPACKET13 version 1, and the coding that WAVEPACKET14 shares with it.
// Private to the codec's sources.
#pragma once
#include "las/laz_bytes.h"
#include "las/laz_integer.h"

namespace veld {
constexpr unsigned LAZ_WAVE_SIZE = 29;

template <class C>
struct WaveModels {
  static constexpr unsigned MAX_BYTES = 2 * ARITH_SYMBOL_BYTES + 9 + 5 * 8;
  typename C::template Symbols<256> index;
  typename C::template Symbols<4> offset_kind[4];  // by the previous point's kind
  IntegerModel<C, 32, 1> offset_model, size_model, return_model;
  IntegerModel<C, 32, 3> direction_model;
  int32_t last_diff;
  uint32_t last_kind;

  void init() {
    index.init();
    for (auto& model : offset_kind) model.init();
    offset_model.init();
    size_model.init();
    return_model.init();
    direction_model.init();
    last_diff = 0;
    last_kind = 0;
  }

  // Codes the 29 bytes of `now` against `last`, and makes them the new `last`. Gives the coder as it then is.
  C code(C c, uint8_t* last, typename C::Byte* now) {
    enum : uint32_t { SAME, FOLLOWS, NEAR, FAR };  // the packet's place seen from the last packet
    uint8_t p[LAZ_WAVE_SIZE] = {};
    if constexpr (C::encoding) std::memcpy(p, now, LAZ_WAVE_SIZE);
    p[0] = uint8_t(c.symbol(index, p[0]));

    const uint64_t last_offset = laz_get<uint64_t>(last + 1);
    const uint32_t last_size = laz_get<uint32_t>(last + 9);
    uint64_t diff = laz_get<uint64_t>(p + 1) - last_offset;
    uint32_t kind = SAME;
    if constexpr (C::encoding) {
      const bool near = int64_t(diff) == int32_t(uint32_t(diff));
      if (diff != 0) kind = !near ? FAR : diff == last_size && last_size < 1u << 31 ? FOLLOWS : NEAR;
    }
    last_kind = kind = c.symbol(offset_kind[last_kind], kind);
    uint64_t offset = last_offset;
    if (kind == FOLLOWS) {
      offset += last_size;
    } else if (kind == NEAR) {
      last_diff = int32_t(offset_model.code(c, uint32_t(last_diff), uint32_t(diff), 0));
      offset += uint64_t(int64_t(last_diff));
    } else if (kind == FAR) {
      offset = laz_get<uint64_t>(p + 1);
      const uint64_t low = c.bits(32, uint32_t(offset));
      offset = uint64_t(c.bits(32, uint32_t(offset >> 32))) << 32 | low;
    }
    laz_put(p + 1, offset);
    laz_put(p + 9, size_model.code(c, last_size, laz_get<uint32_t>(p + 9), 0));
    laz_put(p + 13, return_model.code(c, laz_get<uint32_t>(last + 13), laz_get<uint32_t>(p + 13), 0));
    for (uint32_t axis = 0; axis < 3; axis++) {
      const unsigned at = 17 + 4 * axis;
      laz_put(p + at, direction_model.code(c, laz_get<uint32_t>(last + at), laz_get<uint32_t>(p + at), axis));
    }
    std::memcpy(last, p, LAZ_WAVE_SIZE);
    if constexpr (!C::encoding) std::memcpy(now, p, LAZ_WAVE_SIZE);
    return c;
  }
};

template <class C>
struct WavePacket13 {
  static constexpr unsigned SIZE = LAZ_WAVE_SIZE;
  static constexpr unsigned MAX_BYTES = WaveModels<C>::MAX_BYTES;
  WaveModels<C> models;
  uint8_t last[SIZE];

  void start(const uint8_t* first) {
    models.init();
    std::memcpy(last, first, SIZE);
  }
  void code(C& c, typename C::Byte* record) { c = models.code(c, last, record); }
};
}  // namespace veld
