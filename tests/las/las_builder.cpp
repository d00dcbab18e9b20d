#include "tests/las/las_builder.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>

#include "tests/las/laz_file.h"

namespace veld {
namespace {
constexpr int BASE[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

struct Bytes {
  std::string text;
  template <typename T>
  Bytes& put(T value) {
    text.append(reinterpret_cast<const char*>(&value), sizeof value);
    return *this;
  }
  Bytes& field(const std::string& value, size_t size) {
    std::string padded = value.substr(0, size);
    padded.resize(size, '\0');
    text += padded;
    return *this;
  }
};

std::string record_bytes(const BuiltRecord& r, bool extended) {
  Bytes b;
  b.put(uint16_t{0}).field(r.user_id, 16).put(r.record_id);
  if (extended)
    b.put(uint64_t{r.data.size()});
  else
    b.put(static_cast<uint16_t>(r.data.size()));
  b.field(r.description, 32);
  return b.text + r.data;
}

struct Summary {
  std::array<uint64_t, 15> by_return{};
  int32_t lo[3] = {INT_MAX, INT_MAX, INT_MAX}, hi[3] = {INT_MIN, INT_MIN, INT_MIN};
};

Summary summarise(const std::string& records, size_t reclen, bool extended) {
  Summary s;
  for (size_t at = 0; at + reclen <= records.size(); at += reclen) {
    const int r = records[at + 14] & (extended ? 15 : 7);
    if (r > 0) s.by_return[static_cast<size_t>(r) - 1]++;
    for (int axis = 0; axis < 3; axis++) {
      int32_t v;
      std::memcpy(&v, records.data() + at + 4 * axis, 4);
      s.lo[axis] = std::min(s.lo[axis], v);
      s.hi[axis] = std::max(s.hi[axis], v);
    }
  }
  return s;
}
}  // namespace

BuiltLas build_las(const LasBuild& how) {
  BuiltLas out;
  const size_t reclen = static_cast<size_t>(BASE[how.format] + how.nextra);
  const std::vector<uint8_t> made =
      made_records(how.format, static_cast<uint32_t>(how.nextra), how.npoints, Flight::smooth, how.seed);
  out.records.assign(made.begin(), made.end());
  const bool extended = how.format >= 6;
  const Summary s = summarise(out.records, reclen, extended);

  std::string vlrs, evlrs;
  for (const BuiltRecord& r : how.vlrs) vlrs += record_bytes(r, false);
  vlrs.append(static_cast<size_t>(how.gap), '\xDD');
  const size_t nominal = how.minor >= 4 ? 375 : how.minor == 3 ? 235 : 227;
  const size_t header_size = nominal + static_cast<size_t>(how.user_header);
  out.points_at = header_size + vlrs.size();
  const uint64_t points_end = out.points_at + out.records.size();
  uint64_t waves_at = 0;
  for (const BuiltRecord& r : how.evlrs) evlrs += record_bytes(r, true);
  if (!how.waves.empty()) {
    waves_at = points_end + evlrs.size();
    evlrs += record_bytes({"LASF_Spec", 65535, how.waves, "waves"}, true);
  }
  const uint32_t nevlr = static_cast<uint32_t>(how.evlrs.size() + (how.waves.empty() ? 0 : 1));

  const uint32_t legacy = how.minor >= 4 && extended ? 0 : static_cast<uint32_t>(how.npoints);
  Bytes b;
  b.field("LASF", 4).put(uint16_t{7}).put(static_cast<uint16_t>((extended ? 0x10 : 0) | 1));
  b.field("0123456789abcdef", 16).put(uint8_t{1}).put(static_cast<uint8_t>(how.minor));
  b.field("built for a test", 32).field("a builder with a name of 32 bytes", 32);
  b.put(uint16_t{123}).put(uint16_t{2021}).put(static_cast<uint16_t>(header_size));
  b.put(static_cast<uint32_t>(out.points_at)).put(static_cast<uint32_t>(how.vlrs.size()));
  b.put(static_cast<uint8_t>(how.format)).put(static_cast<uint16_t>(reclen)).put(legacy);
  for (size_t r = 0; r < 5; r++) b.put(legacy ? static_cast<uint32_t>(s.by_return[r]) : 0U);
  for (int axis = 0; axis < 3; axis++) b.put(how.scale);
  const double offset[3] = {500000, 5000000, 0};
  for (const double o : offset) b.put(o);
  for (int axis = 0; axis < 3; axis++) {
    const bool any = how.npoints > 0;
    b.put(any ? s.hi[axis] * how.scale + offset[axis] : 0.)
        .put(any ? s.lo[axis] * how.scale + offset[axis] : 0.);
  }
  if (how.minor >= 3) b.put(waves_at);
  if (how.minor >= 4) {
    b.put(nevlr ? points_end : uint64_t{0}).put(nevlr).put(how.npoints);
    for (const uint64_t n : s.by_return) b.put(n);
  }
  b.text.append(static_cast<size_t>(how.user_header), 'u');
  out.bytes = b.text + vlrs + out.records + evlrs;
  return out;
}

std::string extra_bytes_descriptor(uint8_t type, uint8_t options, const std::string& name) {
  Bytes b;
  b.put(uint16_t{0}).put(type).put(options).field(name, 32);
  b.text.resize(112, '\0');
  for (const double v : {0.5, 1., 1., 10., 0., 0.}) b.put(v);  // scale, offset
  return b.field("described", 32).text;
}
}  // namespace veld
