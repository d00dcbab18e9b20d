#include "tests/support/swath_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace veld {
namespace {
struct Bytes {
  std::vector<uint8_t> data;
  template <typename T>
  void put(size_t at, T value) {
    if (data.size() < at + sizeof value) data.resize(at + sizeof value);
    std::memcpy(data.data() + at, &value, sizeof value);
  }
};

constexpr size_t RECORD_LENGTH[] = {20, 28, 26, 34, 57, 63, 30, 36};  // of the point formats

void put_point(Bytes& out, size_t at, const TestPoint& p, const TestLas& how) {
  out.put(at, static_cast<int32_t>(std::lround((p.x - how.xoff) / how.scale)));
  out.put(at + 4, static_cast<int32_t>(std::lround((p.y - how.yoff) / how.scale)));
  out.put(at + 8, static_cast<int32_t>(std::lround((p.z - how.zoff) / how.scale)));
  if (how.format >= 6) {
    out.put(at + 14, static_cast<uint8_t>((p.rn & 15) | p.nr << 4));
    out.put(at + 15, static_cast<uint8_t>(p.synthetic | p.withheld << 2));
    out.put(at + 16, static_cast<uint8_t>(p.cls));
    out.put(at + 18, static_cast<int16_t>(std::lround(p.angle / 0.006)));
    out.put(at + 22, p.t);
  } else {
    out.put(at + 14, static_cast<uint8_t>((p.rn & 7) | (p.nr & 7) << 3));
    out.put(at + 15, static_cast<uint8_t>((p.cls & 31) | p.synthetic << 5 | p.withheld << 7));
    out.put(at + 16, static_cast<int8_t>(std::lround(p.angle)));
    if (how.format == 1 || how.format == 3) out.put(at + 20, p.t);
  }
}
}  // namespace

void write_test_las(const std::string& path, const std::vector<TestPoint>& points, const TestLas& how) {
  const bool ext = how.format >= 6;
  const uint16_t header = ext ? 375 : 227;
  const size_t reclen = RECORD_LENGTH[how.format];
  Bytes out;
  out.data.resize(header + points.size() * reclen);
  std::memcpy(out.data.data(), "LASF", 4);
  out.put(6, static_cast<uint16_t>(how.adjusted | ext << 4));
  out.put(24, uint8_t{1});
  out.put(25, static_cast<uint8_t>(ext ? 4 : 2));
  std::memcpy(out.data.data() + 26, "TEST", 4);
  out.put(94, header);
  out.put(96, static_cast<uint32_t>(header));
  out.put(104, static_cast<uint8_t>(how.format));
  out.put(105, static_cast<uint16_t>(reclen));
  const uint64_t count = how.count >= 0 ? static_cast<uint64_t>(how.count) : points.size();
  out.put(107, static_cast<uint32_t>(ext ? 0 : count));
  if (ext) out.put(247, count);
  double lo[3] = {1e30, 1e30, 1e30}, hi[3] = {-1e30, -1e30, -1e30};
  for (const TestPoint& p : points) {
    const double v[3] = {p.x, p.y, p.z};
    for (int i = 0; i < 3; i++) {
      lo[i] = std::min(lo[i], v[i]);
      hi[i] = std::max(hi[i], v[i]);
    }
  }
  const double offset[3] = {how.xoff, how.yoff, how.zoff};
  for (size_t i = 0; i < 3; i++) {
    out.put(131 + 8 * i, how.scale);
    out.put(155 + 8 * i, offset[i]);
    out.put(179 + 16 * i, hi[i]);
    out.put(187 + 16 * i, lo[i]);
  }
  for (size_t i = 0; i < points.size(); i++) put_point(out, header + i * reclen, points[i], how);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  const size_t size = out.data.size() - static_cast<size_t>(how.cut);
  if (!file || std::fwrite(out.data.data(), 1, size, file) != size || std::fclose(file) != 0) std::abort();
}

std::vector<TestPoint> fly_line(const TestLine& line) {
  constexpr double rad = 0.017453292519943295;
  const double fx = std::sin(line.heading * rad), fy = std::cos(line.heading * rad);  // forward
  const double step = 1.0 / std::sqrt(line.density);
  const int nlines = static_cast<int>(line.length / step), nacross = static_cast<int>(line.width / step);
  std::vector<TestPoint> points;
  points.reserve(static_cast<size_t>(nlines) * static_cast<size_t>(nacross));
  uint32_t seed = 12345;
  const auto jitter = [&] {
    seed = seed * 1664525u + 1013904223u;
    return (static_cast<double>(seed >> 8) / (1 << 24) - 0.5) * 0.8 * step;
  };
  for (int i = 0; i < nlines; i++)
    for (int j = 0; j < nacross; j++) {
      const double along = (i + 0.5) * step + jitter(), across = (j + 0.5) * step - line.width / 2 + jitter();
      TestPoint p;
      p.x = line.x0 + fx * along + fy * across;
      p.y = line.y0 + fy * along - fx * across;
      p.z = line.height(p.x, p.y);
      p.t = line.tstart + (i + static_cast<double>(j) / nacross) * step / line.speed;
      p.angle = across / line.width * 40;
      points.push_back(p);
    }
  return points;
}
}  // namespace veld
