#include "image/raster_out.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "image/jpeg_out.h"
#include "image/label.h"
#include "image/tiff_out.h"
#include "lib/general/assert_fail.h"
#include "lib/general/log.h"

namespace veld {
namespace {
// Position of a value in a range: 0 at the bottom, 1 at the top.
float fraction(const ImgScale& s, float range, float value) {
  float t = s.mix ? (value + range) / (2 * range) : (value - s.z0) / range;
  if (s.cyclic) t -= std::floor(t);
  return std::clamp(t, 0.0f, 1.0f);
}

double bottom_of(const ImgScale& s, float range) {
  return s.mix ? -static_cast<double>(range) : static_cast<double>(s.z0);
}
double width_of(const ImgScale& s, float range) { return static_cast<double>(range) * (s.mix ? 2 : 1); }

// A number as short as it is exact enough for a name.
std::string bound_text(double v) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.4g", v);
  return text;
}

struct Part {  // one file of each kind
  int x0 = 0, xsize = 0, ysize = 0;
  std::string name;
  std::unique_ptr<TiffOut> tiff;
  std::unique_ptr<JpegOut> jpeg;
  bool constant = true;
  bool first = true;
  uint32_t value = 0;  // of the first pixel, coded
};

uint32_t bits_of(float v) {
  uint32_t u;
  std::memcpy(&u, &v, 4);
  return u;
}
}  // namespace

uint8_t code8(const ImgScale& s, float value) {
  return value == IMG_NODATA ? uint8_t{0} : static_cast<uint8_t>(1.5f + 254 * fraction(s, s.range, value));
}
uint16_t code16(const ImgScale& s, float value) {
  return value == IMG_NODATA ? uint16_t{0}
                             : static_cast<uint16_t>(1.5f + 65534 * fraction(s, s.range16, value));
}

struct RasterOut::State {
  std::string name, title;
  ImgParam par;
  ImgScale scale;
  ImgPlace place;
  bool rgb = false;
  int xsize = 0, ysize = 0;
  int nx = 1, ny = 1;  // parts
  int row = 0;         // rows that have come
  Pixel pixel = Pixel::u8;
  std::vector<Part> parts;  // of the present row of parts
  int nwritten = 0, nempty = 0;
  Vector<RGBchar> table;
  RGBchar none;                 // colour of pixels without a value
  std::vector<uint8_t> level;   // codes of a row, 8 bits
  std::vector<uint8_t> sample;  // samples of a row for the TIFF
  std::vector<RGBchar> colour;  // of a row for the JPEG

  int part_size(int total, int n, int i) const {
    const int most = (total + n - 1) / n;
    return std::min(most, total - i * most);
  }
  int part_start(int total, int n, int i) const { return i * ((total + n - 1) / n); }
  TiffSpec tiff_spec(const Part& p, int y0) const;
  bool open_parts();
  bool close_parts();
  bool put_row(const float* values, const RGBchar* colours);
  bool put_part(Part& p, const float* values, const RGBchar* colours);
};

TiffSpec RasterOut::State::tiff_spec(const Part& p, int y0) const {
  TiffSpec t;
  t.pixel = pixel;
  t.xsize = p.xsize, t.ysize = p.ysize;
  t.cog = par.cog;
  t.place = {place.x0 + p.x0 * place.GSD, place.y0 - y0 * place.GSD, place.GSD};
  t.crs = par.crs;
  t.nthreads = par.nthreads;
  t.unit = scale.unit;
  const float range = pixel == Pixel::u16 ? scale.range16 : scale.range;
  if (pixel != Pixel::f32) {
    t.scale = scale.cyclic ? 0 : width_of(scale, range) / (pixel == Pixel::u16 ? 65534 : 254);
    t.offset = bottom_of(scale, range) - t.scale;
  }
  return t;
}

bool RasterOut::State::open_parts() {
  const int iy = row / part_size(ysize, ny, 0);
  parts.clear();
  parts.resize(static_cast<size_t>(nx));
  for (int ix = 0; ix < nx; ix++) {
    Part& p = parts[static_cast<size_t>(ix)];
    p.x0 = part_start(xsize, nx, ix);
    p.xsize = part_size(xsize, nx, ix);
    p.ysize = part_size(ysize, ny, iy);
    p.name = name;
    if (nx * ny > 1) p.name += "_r" + std::to_string(iy) + "_c" + std::to_string(ix);
    if (par.OUTTIFF) {
      p.tiff = std::make_unique<TiffOut>();
      if (!p.tiff->open(p.name + ".tif", tiff_spec(p, row))) return false;
    }
    if (par.OUTJPEG) {
      p.jpeg = std::make_unique<JpegOut>();
      const int samples = rgb || scale.color > 0 ? 3 : 1;
      if (!p.jpeg->open(p.name + ".jpg", p.xsize, p.ysize, samples, par.quality)) return false;
    }
  }
  return true;
}

bool RasterOut::State::close_parts() {
  for (Part& p : parts) {
    if (p.constant && !par.empty) {
      nempty++;
      p.tiff.reset();
      p.jpeg.reset();
      continue;
    }
    nwritten++;
    const ImgPlace at = {place.x0 + p.x0 * place.GSD, place.y0 - (row - p.ysize) * place.GSD, place.GSD};
    if (p.tiff &&
        (!p.tiff->close() || (par.OUTWF && !save_worldfile(p.name + ".tif", at, par.OUTDATAUNIT)))) {
      ERROR_MSG("save_TIFF failed, file " << p.name << ".tif");
      return false;
    }
    if (p.jpeg &&
        (!p.jpeg->close() || (par.OUTWF && !save_worldfile(p.name + ".jpg", at, par.OUTDATAUNIT)))) {
      ERROR_MSG("save_JPEG failed, file " << p.name << ".jpg");
      return false;
    }
  }
  parts.clear();
  return true;
}

bool RasterOut::State::put_part(Part& p, const float* values, const RGBchar* colours) {
  const auto value_at = [&](int x) {
    if (rgb) return static_cast<uint32_t>(colours[x].r << 16 | colours[x].g << 8 | colours[x].b);
    return pixel == Pixel::f32   ? bits_of(values[x])
           : pixel == Pixel::u16 ? code16(scale, values[x])
                                 : level[static_cast<size_t>(x)];
  };
  if (p.constant) {
    if (p.first) p.value = value_at(p.x0);
    p.first = false;
    for (int x = p.x0; p.constant && x < p.x0 + p.xsize; x++) p.constant = value_at(x) == p.value;
  }
  const auto x0 = static_cast<size_t>(p.x0);
  if (p.tiff && !p.tiff->put_rows(sample.data() + x0 * static_cast<size_t>(pixel_bytes(pixel)), 1))
    return false;
  if (!p.jpeg) return true;
  return p.jpeg->put_rows(rgb || scale.color > 0 ? &colour[x0].r : &level[x0], 1);
}

bool RasterOut::State::put_row(const float* values, const RGBchar* colours) {
  ASSERT(row < ysize);
  if (parts.empty() && !open_parts()) return false;
  if (rgb) {
    std::copy_n(colours, xsize, colour.begin());
    std::memcpy(sample.data(), colours, static_cast<size_t>(xsize) * 3);
  } else {
    for (int x = 0; x < xsize; x++) level[static_cast<size_t>(x)] = code8(scale, values[x]);
    if (par.OUTJPEG && scale.color > 0)
      for (int x = 0; x < xsize; x++) {
        const int i = level[static_cast<size_t>(x)];
        colour[static_cast<size_t>(x)] = i == 0 ? none : table[i];
      }
    if (pixel == Pixel::f32) {
      std::memcpy(sample.data(), values, static_cast<size_t>(xsize) * 4);
    } else if (pixel == Pixel::u16) {
      for (int x = 0; x < xsize; x++) {
        const uint16_t c = code16(scale, values[x]);
        std::memcpy(sample.data() + 2 * static_cast<size_t>(x), &c, 2);
      }
    } else {
      std::copy_n(level.begin(), xsize, sample.begin());
    }
  }
  for (Part& p : parts)
    if (!put_part(p, values, colours)) return false;
  row++;
  return row % part_size(ysize, ny, 0) != 0 && row != ysize ? true : close_parts();
}

RasterOut::RasterOut() = default;
RasterOut::~RasterOut() = default;

bool RasterOut::open(const std::string& name, const std::string& title, const ImgParam& par,
                     const ImgScale& scale, const ImgPlace& place, int xsize, int ysize) {
  ASSERT(scale.range > 0 && scale.range <= scale.range16);
  s_ = std::make_unique<State>();
  State& s = *s_;
  s.name = name, s.title = title;
  s.par = par;
  s.scale = scale;
  s.place = place;
  s.xsize = xsize, s.ysize = ysize;
  s.nx = (xsize + par.maxsize - 1) / par.maxsize;
  s.ny = (ysize + par.maxsize - 1) / par.maxsize;
  s.pixel = par.tiff_float ? Pixel::f32 : scale.b16 ? Pixel::u16 : Pixel::u8;
  s.table = make_colormap(scale.color, par.inv);
  s.none = no_data_color(scale.color, par.inv);
  s.level.resize(static_cast<size_t>(xsize));
  s.colour.resize(static_cast<size_t>(xsize));
  s.sample.resize(static_cast<size_t>(xsize) * 4);
  LOG_LINE("Writing " << title << " image " << name << " as "
                      << (par.OUTTIFF ? (s.pixel == Pixel::u16 ? "TIFF[16-bit] " : "TIFF ") : "")
                      << (par.OUTJPEG ? "JPEG " : "") << (par.OUTWF ? "+ WorldFile " : ""));
  if (s.nx * s.ny > 1)
    LOG_MSG("... saving " << s.nx * s.ny << " max " << (par.OUTTIFF ? "TIFF" : "JPEG")
                          << " tiles, image size exceeds " << par.maxsize << " pixels");
  return true;
}

bool RasterOut::open_rgb(const std::string& name, const std::string& title, const ImgParam& par,
                         const ImgPlace& place, int xsize, int ysize) {
  ImgParam p = par;
  p.tiff_float = false;
  if (!open(name, title, p, ImgScale(), place, xsize, ysize)) return false;
  s_->rgb = true;
  s_->pixel = Pixel::rgb;
  return true;
}

bool RasterOut::put_rows(const float* rows, int n) {
  if (!s_->par.any()) return true;
  for (int i = 0; i < n; i++)
    if (!s_->put_row(rows + static_cast<size_t>(i) * static_cast<size_t>(s_->xsize), nullptr)) return false;
  return true;
}

bool RasterOut::put_rows(const RGBchar* rows, int n) {
  ASSERT(s_->rgb);
  if (!s_->par.any()) return true;
  for (int i = 0; i < n; i++)
    if (!s_->put_row(nullptr, rows + static_cast<size_t>(i) * static_cast<size_t>(s_->xsize))) return false;
  return true;
}

bool RasterOut::close() {
  State& s = *s_;
  if (!s.par.any()) return true;
  ASSERT(s.row == s.ysize);
  LOG_LINE("nwritten=" << s.nwritten << " empty=" << s.nempty);
  if (s.nwritten == 0) {
    WARNING_MSG("skipped all tiles (constant value), " << s.title << " image " << s.name);
    return true;
  }
  const char* format = s.pixel == Pixel::u16 ? "TIFF[16-bit]" : s.par.OUTTIFF ? "TIFF" : "JPEG";
  const float range = s.pixel == Pixel::u16 ? s.scale.range16 : s.scale.range;
  const double bottom = bottom_of(s.scale, range);
  if (s.rgb) {
    LOG_MSG("Writing " << s.title << " image " << s.name);
    return true;
  }
  LOG_MSG("Writing " << s.title << " " << format << " image " << s.name << ", color code: black=" << bottom
                     << ", white=" << bottom + width_of(s.scale, range) << " " << s.scale.unit);
  return s.scale.color == 0 || save_cmap(s.name, s.par, s.scale);
}

uint64_t RasterOut::memory(const ImgParam& par, const ImgScale& scale, int xsize) {
  const uint64_t bytes = par.tiff_float ? 4 : scale.b16 ? 2 : 1;
  const uint64_t x = static_cast<uint64_t>(xsize);
  return x * 12 +
         (par.OUTTIFF ? x * 512 * bytes * (par.cog ? 2 : 1) : 0);  // bands of 256 rows, a half on top, coded
}

bool save_cmap(const std::string& name, const ImgParam& par, const ImgScale& scale) {
  constexpr int BAR = 32, HEIGHT = 255, EDGE = 8, TEXT = 2, LINE = TEXT * (LETTER_HEIGHT + 3), NTICKS = 5;
  constexpr int LETTERS = 10;  // the longest words
  const double bottom = bottom_of(scale, scale.range), width = width_of(scale, scale.range);
  const std::string file = name + "_cmap_" + bound_text(bottom) + "_" + bound_text(bottom + width) + ".jpg";
  LOG_MSG("Writing color map (bottom=" << bottom << " top=" << bottom + width << "): " << file);
  const Vector<RGBchar> table = make_colormap(scale.color, par.inv);
  const RGBchar ground = par.inv ? RGBchar{255, 255, 255} : RGBchar{0, 0, 0};
  const RGBchar ink = par.inv ? RGBchar{0, 0, 0} : RGBchar{255, 255, 255};
  const int top = EDGE + LINE + 2 * TEXT, below = top + HEIGHT + LINE, text_x = EDGE + BAR + 3 * EDGE;
  Image<RGBchar> img(text_x + LETTERS * LETTER_WIDTH * TEXT + EDGE, below + LINE + EDGE, ground);
  const auto box = [&](int y0, int y1, const auto& colour_at) {  // with a rim
    for (int y = y0 - 1; y <= y1; y++)
      for (int x = EDGE - 1; x <= EDGE + BAR; x++)
        img(x, y) = y < y0 || y == y1 || x < EDGE || x == EDGE + BAR ? ink : colour_at(y);
  };
  box(top, top + HEIGHT, [&](int y) { return table[255 - (y - top)]; });
  for (int k = 0; k < NTICKS; k++) {
    const int y = top + (NTICKS - 1 - k) * (HEIGHT - 1) / (NTICKS - 1);
    for (int x = EDGE + BAR; x < EDGE + BAR + EDGE; x++) img(x, y) = ink;
    draw_label(img, text_x - EDGE, y - LETTER_HEIGHT * TEXT / 2,
               bound_text(bottom + k * width / (NTICKS - 1)), TEXT, ink);
  }
  draw_label(img, EDGE, EDGE / 2, scale.unit, TEXT, ink);
  const RGBchar none = no_data_color(scale.color, par.inv);
  box(below, below + LETTER_HEIGHT * TEXT, [&](int) { return none; });
  draw_label(img, text_x - EDGE, below, "no data", TEXT, ink);
  JpegOut out;
  return out.open(file, img.xsize(), img.ysize(), 3, 95) && out.put_rows(&img.row(0)->r, img.ysize()) &&
         out.close();
}
}  // namespace veld
