// las/laz_point10.h
// POINT10: the 20 bytes that point formats 0 to 5 share, coding of version 2 (both directions) and version 1
// (decoding). Private to the codec's sources.
#pragma once
#include "las/laz_bytes.h"
#include "las/laz_integer.h"

namespace veld {
// Class of a return by number of returns and return number: returns of like echoes share their predictors.
inline constexpr uint8_t LAZ_RETURN_CLASS[8][8] = {
    {15, 14, 13, 12, 11, 10, 9, 8},  {14, 0, 1, 3, 6, 10, 10, 9},   {13, 1, 2, 4, 7, 11, 11, 10},
    {12, 3, 4, 5, 8, 12, 12, 11},    {11, 6, 7, 8, 9, 13, 13, 12},  {10, 10, 11, 12, 13, 14, 14, 13},
    {9, 10, 11, 12, 13, 14, 15, 14}, {8, 9, 10, 11, 12, 13, 14, 15}};

struct Point10 {
  int32_t x, y, z;
  uint16_t intensity;
  uint8_t flags;  // return number, number of returns, scan direction, edge
  uint8_t classification;
  uint8_t angle;
  uint8_t user;
  uint16_t source;
};
static_assert(sizeof(Point10) == 20);

template <class C>
struct Point10v2 {
  static constexpr unsigned SIZE = 20;
  static constexpr unsigned MAX_BYTES = 5 * ARITH_SYMBOL_BYTES + 5 * 8;
  template <int S>
  using Symbols = typename C::template Symbols<S>;

  Point10 last;
  uint32_t generation = 0;
  uint16_t last_intensity[16];
  int32_t last_z[8];
  Median5 median_x[16], median_y[16];
  Symbols<64> changed_model;
  Symbols<256> angle_model[2];
  IntegerModel<C, 16, 4> intensity_model;
  IntegerModel<C, 16, 1> source_model;
  IntegerModel<C, 32, 2> dx_model;
  IntegerModel<C, 32, 22> dy_model;
  IntegerModel<C, 32, 20> z_model;
  Symbols<256> flags_model[256], class_model[256], user_model[256];

  void start(const uint8_t* first) {
    generation++;
    std::memcpy(&last, first, SIZE);
    last.intensity = 0;  // the first point's is no predictor
    std::memset(last_intensity, 0, sizeof last_intensity);
    std::memset(last_z, 0, sizeof last_z);
    for (int i = 0; i < 16; i++) median_x[i] = median_y[i] = Median5();
    changed_model.init();
    for (auto& model : angle_model) model.init();
    intensity_model.init();
    source_model.init();
    dx_model.init();
    dy_model.init();
    z_model.init();
  }

  LAZ_INLINE uint32_t code_byte(C& c, Symbols<256>* models, uint8_t previous, uint8_t value) {
    Symbols<256>& model = models[previous];
    model.init_once(generation);
    return c.symbol(model, value);
  }

  LAZ_INLINE void code(C& c, typename C::Byte* record) {
    constexpr uint32_t FLAGS = 32, INTENSITY = 16, CLASS = 8, ANGLE = 4, USER = 2, SOURCE = 1;
    Point10 p = last;
    uint32_t changed = 0;
    if constexpr (C::encoding) {
      std::memcpy(&p, record, SIZE);
      const uint32_t m = LAZ_RETURN_CLASS[p.flags >> 3 & 7][p.flags & 7];
      changed = (p.flags != last.flags ? FLAGS : 0) | (p.intensity != last_intensity[m] ? INTENSITY : 0) |
                (p.classification != last.classification ? CLASS : 0) | (p.angle != last.angle ? ANGLE : 0) |
                (p.user != last.user ? USER : 0) | (p.source != last.source ? SOURCE : 0);
    }
    changed = c.symbol(changed_model, changed);
    if (changed & FLAGS) p.flags = uint8_t(code_byte(c, flags_model, last.flags, p.flags));
    const uint32_t r = p.flags & 7, n = p.flags >> 3 & 7;
    const uint32_t m = LAZ_RETURN_CLASS[n][r], l = n > r ? n - r : r - n;
    if (changed & INTENSITY)
      last_intensity[m] = uint16_t(intensity_model.code(c, last_intensity[m], p.intensity, std::min(m, 3u)));
    p.intensity = last_intensity[m];
    if (changed & (CLASS | ANGLE | USER | SOURCE)) {
      if (changed & CLASS)
        p.classification = uint8_t(code_byte(c, class_model, last.classification, p.classification));
      if (changed & ANGLE)
        p.angle =
            uint8_t(last.angle + c.symbol(angle_model[p.flags >> 6 & 1], uint8_t(p.angle - last.angle)));
      if (changed & USER) p.user = uint8_t(code_byte(c, user_model, last.user, p.user));
      if (changed & SOURCE) p.source = uint16_t(source_model.code(c, last.source, p.source, 0));
    }
    const uint32_t single = n == 1;
    const uint32_t last_x = uint32_t(last.x), last_y = uint32_t(last.y);
    const uint32_t dx = dx_model.code(c, uint32_t(median_x[m].get()), uint32_t(p.x) - last_x, single);
    median_x[m].add(int32_t(dx));
    p.x = int32_t(last_x + dx);
    uint32_t k = dx_model.k;
    const uint32_t dy = dy_model.code(c, uint32_t(median_y[m].get()), uint32_t(p.y) - last_y,
                                      single + (k < 20 ? k & ~1u : 20));
    median_y[m].add(int32_t(dy));
    p.y = int32_t(last_y + dy);
    k = (k + dy_model.k) / 2;
    p.z = int32_t(z_model.code(c, uint32_t(last_z[l]), uint32_t(p.z), single + (k < 18 ? k & ~1u : 18)));
    last_z[l] = p.z;
    last = p;
    if constexpr (!C::encoding) std::memcpy(record, &p, SIZE);
  }
};

inline int32_t median_of_3(const int32_t* v) {
  return std::max(std::min(v[0], v[1]), std::min(std::max(v[0], v[1]), v[2]));
}

struct Point10v1 {
  using C = ArithDecoder;
  static constexpr unsigned SIZE = 20;
  static constexpr unsigned MAX_BYTES = 4 * ARITH_SYMBOL_BYTES + 6 * 8;
  using Symbols256 = C::Symbols<256>;

  Point10 last;
  uint32_t generation = 0;
  int32_t last_dx[3], last_dy[3];  // a ring of the three latest
  uint32_t oldest;
  C::Symbols<64> changed_model;
  IntegerModel<C, 32, 1> dx_model;
  IntegerModel<C, 32, 20> dy_model, z_model;
  IntegerModel<C, 16, 1> intensity_model, source_model;
  IntegerModel<C, 8, 2> angle_model;
  Symbols256 flags_model[256], class_model[256], user_model[256];

  void start(const uint8_t* first) {
    generation++;
    std::memcpy(&last, first, SIZE);
    std::memset(last_dx, 0, sizeof last_dx);
    std::memset(last_dy, 0, sizeof last_dy);
    oldest = 0;
    changed_model.init();
    dx_model.init();
    dy_model.init();
    z_model.init();
    intensity_model.init();
    source_model.init();
    angle_model.init();
  }

  uint8_t code_byte(C& c, Symbols256* models, uint8_t previous) {
    Symbols256& model = models[previous];
    model.init_once(generation);
    return uint8_t(c.symbol(model));
  }

  void code(C& c, uint8_t* record) {
    const uint32_t dx = dx_model.code(c, uint32_t(median_of_3(last_dx)), 0, 0);
    uint32_t k = dx_model.k;
    const uint32_t dy = dy_model.code(c, uint32_t(median_of_3(last_dy)), 0, std::min(k, 19u));
    k = (k + dy_model.k) / 2;
    last.x = int32_t(uint32_t(last.x) + dx);
    last.y = int32_t(uint32_t(last.y) + dy);
    last.z = int32_t(z_model.code(c, uint32_t(last.z), 0, std::min(k, 19u)));
    const uint32_t changed = c.symbol(changed_model);
    if (changed & 32) last.intensity = uint16_t(intensity_model.code(c, last.intensity, 0, 0));
    if (changed & 16) last.flags = code_byte(c, flags_model, last.flags);
    if (changed & 8) last.classification = code_byte(c, class_model, last.classification);
    if (changed & 4) last.angle = uint8_t(angle_model.code(c, last.angle, 0, k < 3));
    if (changed & 2) last.user = code_byte(c, user_model, last.user);
    if (changed & 1) last.source = uint16_t(source_model.code(c, last.source, 0, 0));
    last_dx[oldest] = int32_t(dx);
    last_dy[oldest] = int32_t(dy);
    oldest = oldest == 2 ? 0 : oldest + 1;
    std::memcpy(record, &last, SIZE);
  }
};
}  // namespace veld
