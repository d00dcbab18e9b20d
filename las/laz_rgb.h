// las/laz_rgb.h
// Colours: RGB12 version 2 (both directions; the layered items share its coding) and version 1 (decoding).
// Private to the codec's sources.
#pragma once
#include "las/laz_bytes.h"
#include "las/laz_integer.h"

namespace veld {
struct Rgb {
  uint16_t r, g, b;
};
static_assert(sizeof(Rgb) == 6);

inline uint32_t low_byte(uint32_t v) { return v & 255; }
inline uint32_t high_byte(uint32_t v) { return v >> 8 & 255; }

template <class C>
struct RgbModels {
  static constexpr unsigned MAX_BYTES = 7 * ARITH_SYMBOL_BYTES;
  static constexpr uint32_t COLOURED = 64;  // not R == G == B
  typename C::template Symbols<128> used;
  typename C::template Symbols<256> diff[6];

  void init() {
    used.init();
    for (auto& model : diff) model.init();
  }

  // A byte that changed: coded as difference to a prediction; else the byte it was.
  LAZ_INLINE uint32_t code_byte(C& c, bool changed, int i, uint32_t prediction, uint32_t value,
                                uint32_t last) {
    return changed ? (prediction + c.symbol(diff[i], (value - prediction) & 255)) & 255 : last;
  }

  // Codes `now` against `last`. Gives the symbol for the bytes that changed: 0 if none and grey.
  LAZ_INLINE uint32_t code(C& c, const Rgb& last, Rgb& now) {
    uint32_t s = 0;
    if constexpr (C::encoding) {
      const uint32_t dr = last.r ^ now.r, dg = last.g ^ now.g, db = last.b ^ now.b;
      s = (low_byte(dr) != 0) | (high_byte(dr) != 0) << 1 | (low_byte(dg) != 0) << 2 |
          (high_byte(dg) != 0) << 3 | (low_byte(db) != 0) << 4 | (high_byte(db) != 0) << 5 |
          (now.r == now.g && now.r == now.b ? 0 : COLOURED);
    }
    s = c.symbol(used, s);
    const uint32_t rl = code_byte(c, s & 1, 0, low_byte(last.r), low_byte(now.r), low_byte(last.r));
    const uint32_t rh = code_byte(c, s & 2, 1, high_byte(last.r), high_byte(now.r), high_byte(last.r));
    now.r = uint16_t(rh << 8 | rl);
    if (s & COLOURED) {
      const int32_t dl = int32_t(rl) - int32_t(low_byte(last.r)),
                    dh = int32_t(rh) - int32_t(high_byte(last.r));
      const int32_t last_gl = int32_t(low_byte(last.g)), last_gh = int32_t(high_byte(last.g));
      const int32_t last_bl = int32_t(low_byte(last.b)), last_bh = int32_t(high_byte(last.b));
      const uint32_t gl =
          code_byte(c, s & 4, 2, clamp_byte(dl + last_gl), low_byte(now.g), uint32_t(last_gl));
      const int32_t dl2 = (dl + int32_t(gl) - last_gl) / 2;
      const uint32_t bl =
          code_byte(c, s & 16, 4, clamp_byte(dl2 + last_bl), low_byte(now.b), uint32_t(last_bl));
      const uint32_t gh =
          code_byte(c, s & 8, 3, clamp_byte(dh + last_gh), high_byte(now.g), uint32_t(last_gh));
      const int32_t dh2 = (dh + int32_t(gh) - last_gh) / 2;
      const uint32_t bh =
          code_byte(c, s & 32, 5, clamp_byte(dh2 + last_bh), high_byte(now.b), uint32_t(last_bh));
      now.g = uint16_t(gh << 8 | gl);
      now.b = uint16_t(bh << 8 | bl);
    } else {
      now.g = now.b = now.r;
    }
    return s;
  }
};

template <class C>
struct Rgb12v2 {
  static constexpr unsigned SIZE = 6;
  static constexpr unsigned MAX_BYTES = RgbModels<C>::MAX_BYTES;
  RgbModels<C> models;
  Rgb last;

  void start(const uint8_t* first) {
    models.init();
    last = laz_get<Rgb>(first);
  }
  LAZ_INLINE void code(C& c, typename C::Byte* record) {
    Rgb now = last;
    if constexpr (C::encoding) now = laz_get<Rgb>(record);
    models.code(c, last, now);
    last = now;
    if constexpr (!C::encoding) laz_put(record, now);
  }
};

struct Rgb12v1 {
  using C = ArithDecoder;
  static constexpr unsigned SIZE = 6;
  static constexpr unsigned MAX_BYTES = ARITH_SYMBOL_BYTES + 6 * 8;
  C::Symbols<64> used;
  IntegerModel<C, 8, 6> byte_model;
  uint8_t last[6];

  void start(const uint8_t* first) {
    used.init();
    byte_model.init();
    std::memcpy(last, first, SIZE);
  }
  void code(C& c, uint8_t* record) {
    const uint32_t s = c.symbol(used);
    for (uint32_t i = 0; i < 6; i++)
      if (s >> i & 1) last[i] = uint8_t(byte_model.code(c, last[i], 0, i));
    std::memcpy(record, last, SIZE);
  }
};
}  // namespace veld
