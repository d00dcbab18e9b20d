#include "image/tiff_layout.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace veld {
namespace {
enum FieldType : uint16_t { ASCII = 2, SHORT = 3, LONG = 4, DOUBLE = 12, LONG8 = 16 };

struct Field {
  uint16_t tag;
  FieldType type;
  uint64_t count;
  std::vector<uint8_t> value;
};

using Fields = std::vector<Field>;

template <typename T>
void append(std::vector<uint8_t>& to, const T* from, size_t n) {
  const size_t at = to.size();
  to.resize(at + n * sizeof(T));
  if (n > 0) std::memcpy(to.data() + at, from, n * sizeof(T));
}

template <typename T>
void add(Fields& fields, uint16_t tag, FieldType type, const std::vector<T>& values) {
  Field f{tag, type, values.size(), {}};
  append(f.value, values.data(), values.size());
  fields.push_back(std::move(f));
}
void add_short(Fields& f, uint16_t tag, uint16_t v) { add(f, tag, SHORT, std::vector<uint16_t>{v}); }
void add_long(Fields& f, uint16_t tag, int v) {
  add(f, tag, LONG, std::vector<uint32_t>{static_cast<uint32_t>(v)});
}
void add_text(Fields& f, uint16_t tag, const std::string& text) {
  add(f, tag, ASCII, std::vector<char>(text.c_str(), text.c_str() + text.size() + 1));
}

void add_sizes(Fields& f, uint16_t tag, const std::vector<uint64_t>& v, bool big) {
  if (big)
    add(f, tag, LONG8, v);
  else
    add(f, tag, LONG, std::vector<uint32_t>(v.begin(), v.end()));
}

// Scale, offset and unit in the words that common readers of GeoTIFF understand.
std::string metadata(const TiffHead& h) {
  char text[512];
  std::string xml = "<GDALMetadata>";
  const struct {
    const char *name, *role;
    double value;
  } items[] = {{"SCALE", "scale", h.scale}, {"OFFSET", "offset", h.offset}};
  for (const auto& item : items) {
    std::snprintf(text, sizeof(text), "<Item name=\"%s\" sample=\"0\" role=\"%s\">%.12g</Item>", item.name,
                  item.role, item.value);
    xml += text;
  }
  if (!h.unit.empty()) xml += "<Item name=\"UNITTYPE\" sample=\"0\" role=\"unittype\">" + h.unit + "</Item>";
  return xml + "</GDALMetadata>";
}

void add_geo(Fields& f, const TiffHead& h) {
  add(f, 33550, DOUBLE, std::vector<double>{h.place.GSD, h.place.GSD, 0});
  add(f, 33922, DOUBLE, std::vector<double>{0, 0, 0, h.place.x0, h.place.y0, 0});
  if (!h.keys.directory.empty()) add(f, 34735, SHORT, h.keys.directory);
  if (!h.keys.doubles.empty()) add(f, 34736, DOUBLE, h.keys.doubles);
  if (!h.keys.text.empty()) add_text(f, 34737, h.keys.text);
}

Fields level_fields(const TiffHead& h, const TiffLevel& level, bool first,
                    const std::vector<uint64_t>& offsets, bool big) {
  Fields f;
  const auto samples = static_cast<size_t>(pixel_samples(h.pixel));
  add_long(f, 254, first ? 0 : 1);
  add_long(f, 256, level.xsize);
  add_long(f, 257, level.ysize);
  add(f, 258, SHORT, std::vector<uint16_t>(samples, static_cast<uint16_t>(sample_bits(h.pixel))));
  add_short(f, 259, TIFF_DEFLATE);
  add_short(f, 262, h.pixel == Pixel::rgb ? 2 : 1);
  add_short(f, 277, static_cast<uint16_t>(samples));
  add_short(f, 284, 1);
  add_short(f, 317, static_cast<uint16_t>(tiff_predictor(h.pixel)));
  if (h.tiled) {
    add_long(f, 322, h.bwidth);
    add_long(f, 323, h.bheight);
    add_sizes(f, 324, offsets, big);
    add_sizes(f, 325, level.sizes, big);
  } else {
    add_sizes(f, 273, offsets, big);
    add_long(f, 278, h.bheight);
    add_sizes(f, 279, level.sizes, big);
  }
  add(f, 339, SHORT, std::vector<uint16_t>(samples, h.pixel == Pixel::f32 ? 3 : 1));
  if (first) {
    add_geo(f, h);
    if (h.scale != 0 && h.pixel != Pixel::rgb) add_text(f, 42112, metadata(h));
  }
  if (!h.nodata.empty()) add_text(f, 42113, h.nodata);
  std::sort(f.begin(), f.end(), [](const Field& a, const Field& b) { return a.tag < b.tag; });
  return f;
}

uint64_t even(uint64_t n) { return (n + 1) & ~uint64_t{1}; }

uint64_t directory_bytes(const Fields& fields, bool big) {
  const uint64_t entry = big ? 20 : 12, inlined = big ? 8 : 4;
  uint64_t n = (big ? 8 : 2) + fields.size() * entry + (big ? 8 : 4);
  for (const Field& f : fields)
    if (f.value.size() > inlined) n += even(f.value.size());
  return even(n);
}

template <typename T>
void put(std::vector<uint8_t>& out, T value) {
  append(out, &value, 1);
}
void put_offset(std::vector<uint8_t>& out, uint64_t value, bool big) {
  if (big)
    put(out, value);
  else
    put(out, static_cast<uint32_t>(value));
}

// The directory at position `at` of the file, its long values right behind it.
void put_directory(std::vector<uint8_t>& out, const Fields& fields, uint64_t at, uint64_t next, bool big) {
  const uint64_t inlined = big ? 8 : 4;
  uint64_t values = at + (big ? 8 : 2) + fields.size() * (big ? 20 : 12) + (big ? 8 : 4);
  std::vector<uint8_t> behind;
  if (big)
    put(out, static_cast<uint64_t>(fields.size()));
  else
    put(out, static_cast<uint16_t>(fields.size()));
  for (const Field& f : fields) {
    put(out, f.tag);
    put(out, static_cast<uint16_t>(f.type));
    put_offset(out, f.count, big);
    if (f.value.size() <= inlined) {
      std::vector<uint8_t> value = f.value;
      value.resize(inlined, 0);
      append(out, value.data(), value.size());
      continue;
    }
    put_offset(out, values + behind.size(), big);
    append(behind, f.value.data(), f.value.size());
    if (behind.size() & 1) behind.push_back(0);
  }
  put_offset(out, next, big);
  append(out, behind.data(), behind.size());
  out.resize(out.size() + ((at + out.size()) & 1), 0);
}

std::vector<uint8_t> lay_out(const TiffHead& h, bool big, uint64_t& nbytes) {
  const size_t n = h.levels.size();
  std::vector<uint64_t> at(n + 1);  // of the directories; the last is that of the first block
  at[0] = big ? 16 : 8;
  for (size_t i = 0; i < n; i++)
    at[i + 1] = at[i] + directory_bytes(level_fields(h, h.levels[i], i == 0, h.levels[i].sizes, big), big);
  std::vector<std::vector<uint64_t>> offsets(n);
  nbytes = at[n];
  for (size_t i = n; i-- > 0;)
    for (const uint64_t size : h.levels[i].sizes) {
      offsets[i].push_back(nbytes);
      nbytes += size;
    }
  std::vector<uint8_t> out;
  put(out, uint16_t{0x4949});  // little-endian
  put(out, static_cast<uint16_t>(big ? 43 : 42));
  if (big) {
    put(out, uint16_t{8});
    put(out, uint16_t{0});
  }
  put_offset(out, at[0], big);
  for (size_t i = 0; i < n; i++) {
    const Fields fields = level_fields(h, h.levels[i], i == 0, offsets[i], big);
    std::vector<uint8_t> directory;
    put_directory(directory, fields, at[i], i + 1 < n ? at[i + 1] : 0, big);
    append(out, directory.data(), directory.size());
    out.resize(at[i + 1], 0);
  }
  return out;
}
}  // namespace

std::vector<uint8_t> make_tiff_head(const TiffHead& head, uint64_t& nbytes) {
  std::vector<uint8_t> bytes = lay_out(head, false, nbytes);
  if (nbytes <= UINT32_MAX) return bytes;
  return lay_out(head, true, nbytes);
}
}  // namespace veld
