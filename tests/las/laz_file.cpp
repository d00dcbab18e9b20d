// tests/las/laz_file.cpp
#include "tests/las/laz_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace veld {
namespace {
template <typename T>
void put(uint8_t* at, T value) {
  std::memcpy(at, &value, sizeof value);
}

}  // namespace

std::vector<uint8_t> made_records(int format, uint32_t nextra, uint64_t n, Flight flight, uint32_t seed) {
  static const uint32_t base[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
  const uint32_t length = base[format] + nextra;
  std::mt19937 rng(seed);
  std::vector<uint8_t> records(n * length);
  if (flight == Flight::random) {
    for (uint8_t& byte : records) byte = uint8_t(rng());
    return records;
  }
  const bool extended = format >= 6;
  const auto noise = [&rng](int range) { return int(rng() % uint32_t(2 * range + 1)) - range; };
  double time = 151234567.0, angle = 0;
  uint64_t packet = 60;
  uint32_t nreturns = 1, r = 1, channel = 0;
  int scan = 1;
  for (uint64_t i = 0; i < n; i++) {
    uint8_t* p = records.data() + i * length;
    if (r >= nreturns) {  // a new pulse
      time += 0.000004;
      angle += 0.0123 * scan;
      if (angle > 25 || angle < -25) scan = -scan;
      nreturns = rng() % 4 != 0 ? 1 : 2 + rng() % 4;
      r = 1;
      if (rng() % 8 == 0) channel = rng() & 3;
    } else {
      r++;
    }
    put(p, int32_t(63701200 + std::lround(angle * 1500) + noise(20)));
    put(p + 4, int32_t(485012345 + int64_t(i / 40) + noise(15)));
    put(p + 8, int32_t(40680 - 180 * int(r) + std::lround(900 * std::sin(double(i) / 3000)) + noise(30)));
    put(p + 12, uint16_t((nreturns == 1 ? 400 : 80) + int(rng() % 150)));
    const uint8_t kind = r == nreturns && rng() % 3 != 0 ? 2 : uint8_t(3 + rng() % 3);
    if (extended) {
      p[14] = uint8_t(nreturns << 4 | r);
      p[15] = uint8_t((rng() % 50 == 0 ? 8 : 0) | channel << 4 | (scan > 0 ? 64 : 0));
      p[16] = kind;
      p[17] = uint8_t(channel);
      put(p + 18, int16_t(std::lround(angle / 0.006)));
      put(p + 20, uint16_t(117));
    } else {
      p[14] = uint8_t(std::min(nreturns, 5u) << 3 | std::min(r, 5u) | (scan > 0 ? 64 : 0));
      p[15] = kind;
      p[16] = uint8_t(std::lround(angle));
      p[17] = uint8_t(channel);
      put(p + 18, uint16_t(117));
    }
    const bool with_time = extended || format == 1 || format >= 3;
    if (with_time) put(p + (extended ? 22 : 20), time);
    static const int rgb_at[11] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};
    if (rgb_at[format] > 0) {
      const int grey = 90 + int(i / 500 % 100);
      for (int band = 0; band < 3; band++)
        put(p + rgb_at[format] + 2 * band, uint16_t((grey + 12 * band + noise(9)) << 8));
    }
    if (format == 8 || format == 10) put(p + 36, uint16_t((60 + noise(20)) << 8));
    static const int wave_at[11] = {0, 0, 0, 0, 28, 34, 0, 0, 0, 30, 38};
    if (wave_at[format] > 0) {
      uint8_t* wave = p + wave_at[format];
      const uint32_t size = r == 1 ? 128 : 64;
      wave[0] = uint8_t(1 + (nreturns > 2));
      put(wave + 1, packet);
      put(wave + 9, size);
      put(wave + 13, float(1500 + 700 * r + noise(50)));
      put(wave + 17, float(1e-4 * angle));
      put(wave + 21, 1e-5f);
      put(wave + 25, -1.5e-4f);
      if (r == nreturns) packet += rng() % 200 == 0 ? 9000000000 : size;
    }
    for (uint32_t b = 0; b < nextra; b++)
      p[base[format] + b] = b % 3 == 2 ? 7 : uint8_t(i / (9 << b % 4) + rng() % 2);
  }
  return records;
}
}  // namespace veld
