#include "image/tiff_out.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>

#include "image/tiff_layout.h"
#include "lib/DataStructure/nodata.h"
#include "lib/general/assert_fail.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "lib/threads/pool.h"

namespace veld {
namespace {
constexpr int TILE = 256;       // side of a tile, pixels
constexpr int STRIP_ROWS = 64;  // rows of a strip

// A level in the making: the rows of blocks that are whole go coded into a spool file.
struct Band {
  int xsize = 0, ysize = 0;
  int bwidth = 0, bheight = 0, nx = 0;
  int row0 = 0, nrows = 0;      // first row in the band, rows in it
  std::vector<uint8_t> pixels;  // bheight rows of nx * bwidth pixels
  std::vector<uint64_t> sizes;
  ResultFile spool;  // never committed: it is gone with the writer
  BufBinFileOut out{BULK_BUFFER};
};

void fill_empty(Pixel pixel, std::vector<uint8_t>& bytes) {
  if (pixel != Pixel::f32) {
    std::fill(bytes.begin(), bytes.end(), uint8_t{0});
    return;
  }
  for (size_t i = 0; i + 4 <= bytes.size(); i += 4) std::memcpy(bytes.data() + i, &NODATA, 4);
}

// Mean of the samples of a 2 x 2 block that have a value; `none` where no sample has. T's own rounding.
template <typename T>
T mean4(const T (&v)[4], bool has_none, T none) {
  double sum = 0;
  int n = 0;
  for (const T x : v)
    if (!has_none || x != none) sum += static_cast<double>(x), n++;
  if (n == 0) return none;
  if constexpr (std::is_floating_point_v<T>) return static_cast<T>(sum / n);
  const auto mean = static_cast<T>(std::lround(sum / n));
  return mean;
}

// One row of a level from two rows of the level above it.
template <typename T>
void halve_rows(const uint8_t* upper, const uint8_t* lower, int xsize, int samples, bool has_none, T none,
                uint8_t* out) {
  const auto* a = reinterpret_cast<const T*>(upper);
  const auto* b = reinterpret_cast<const T*>(lower);
  auto* to = reinterpret_cast<T*>(out);
  for (int x = 0; x < (xsize + 1) / 2; x++) {
    const int left = 2 * x * samples, right = std::min(2 * x + 1, xsize - 1) * samples;
    for (int s = 0; s < samples; s++)
      to[x * samples + s] = mean4<T>({a[left + s], a[right + s], b[left + s], b[right + s]}, has_none, none);
  }
}
}  // namespace

struct TiffOut::State {
  TiffSpec spec;
  TiffHead head;
  ResultFile file;
  std::deque<Band> levels;

  int pixel_size() const { return pixel_bytes(spec.pixel); }
  size_t band_row(const Band& b) const {
    return static_cast<size_t>(b.nx) * static_cast<size_t>(b.bwidth) * static_cast<size_t>(pixel_size());
  }
  bool push(size_t level, const uint8_t* row);
  bool flush(size_t level);
  bool code(Band& band);
  bool assemble();
};

// Codes the blocks of a full (or the last) band on threads and appends them to the spool in order.
bool TiffOut::State::code(Band& b) {
  const int height = spec.cog ? b.bheight : b.nrows;
  std::vector<std::vector<uint8_t>> coded(static_cast<size_t>(b.nx));
  const size_t block_row = static_cast<size_t>(b.bwidth) * static_cast<size_t>(pixel_size());
  const int64_t failed = run_units(b.nx, spec.nthreads, [&](int64_t i, int) {
    std::vector<uint8_t> block(block_row * static_cast<size_t>(height));
    for (int y = 0; y < height; y++)
      std::memcpy(block.data() + static_cast<size_t>(y) * block_row,
                  b.pixels.data() + static_cast<size_t>(y) * band_row(b) + static_cast<size_t>(i) * block_row,
                  block_row);
    return encode_block(spec.pixel, block.data(), b.bwidth, height, coded[static_cast<size_t>(i)]);
  });
  if (failed >= 0) {
    ERROR_MSG("save_TIFF failed, file " << file.part());
    return false;
  }
  for (const std::vector<uint8_t>& c : coded) {
    b.sizes.push_back(c.size());
    if (!b.out.write(c.data(), c.size())) return false;
  }
  return true;
}

bool TiffOut::State::flush(size_t level) {
  Band& b = levels[level];
  if (b.nrows == 0) return true;
  if (!code(b)) return false;
  if (level + 1 < levels.size()) {
    Band& next = levels[level + 1];
    std::vector<uint8_t> row(static_cast<size_t>(next.xsize) * static_cast<size_t>(pixel_size()));
    const bool none = spec.nodata && spec.pixel != Pixel::rgb;
    for (int y = 0; y < b.nrows; y += 2) {
      const uint8_t* upper = b.pixels.data() + static_cast<size_t>(y) * band_row(b);
      const uint8_t* lower = y + 1 < b.nrows ? upper + band_row(b) : upper;
      if (spec.pixel == Pixel::f32)
        halve_rows<float>(upper, lower, b.xsize, 1, none, NODATA, row.data());
      else if (spec.pixel == Pixel::u16)
        halve_rows<uint16_t>(upper, lower, b.xsize, 1, none, 0, row.data());
      else
        halve_rows<uint8_t>(upper, lower, b.xsize, pixel_samples(spec.pixel), none, 0, row.data());
      if (!push(level + 1, row.data())) return false;
    }
  }
  b.row0 += b.nrows;
  b.nrows = 0;
  fill_empty(spec.pixel, b.pixels);
  return true;
}

bool TiffOut::State::push(size_t level, const uint8_t* row) {
  Band& b = levels[level];
  std::memcpy(b.pixels.data() + static_cast<size_t>(b.nrows) * band_row(b), row,
              static_cast<size_t>(b.xsize) * static_cast<size_t>(pixel_size()));
  return ++b.nrows < b.bheight || flush(level);
}

// Head and spools become the file.
bool TiffOut::State::assemble() {
  for (Band& b : levels) head.levels.push_back({b.xsize, b.ysize, b.sizes});
  uint64_t nbytes = 0;
  const std::vector<uint8_t> bytes = make_tiff_head(head, nbytes);
  BufBinFileOut out(BULK_BUFFER);
  if (!out.open(file.part(), 0) || !out.write(bytes.data(), bytes.size())) return false;
  std::vector<uint8_t> copy(BULK_BUFFER);
  for (size_t i = levels.size(); i-- > 0;) {
    Band& b = levels[i];
    BufBinFileIn in(0);
    uint64_t left = 0;
    for (const uint64_t size : b.sizes) left += size;
    if (!in.open(b.spool.part())) return false;
    while (left > 0) {
      const uint64_t n = std::min<uint64_t>(left, copy.size());
      if (!in.read(copy.data(), n) || !out.write(copy.data(), n)) return false;
      left -= n;
    }
    in.close();
    b.spool.give_up();
  }
  return out.close();
}

TiffOut::TiffOut() = default;
TiffOut::~TiffOut() = default;

bool TiffOut::open(const std::string& name, const TiffSpec& spec) {
  LOG_LINE("save_TIFF " << name << " GSD=" << spec.place.GSD << " dimx=" << spec.xsize
                        << " dimy=" << spec.ysize << " comp=" << TIFF_DEFLATE << " cog=" << spec.cog);
  if (spec.xsize <= 0 || spec.ysize <= 0) {
    ERROR_MSG("save_TIFF: size " << spec.xsize << "x" << spec.ysize << ", file=" << name);
    return false;
  }
  s_ = std::make_unique<State>();
  s_->spec = spec;
  s_->file.begin(name);
  TiffHead& h = s_->head;
  h.pixel = spec.pixel;
  h.tiled = spec.cog;
  h.bwidth = spec.cog ? TILE : spec.xsize;
  h.bheight = spec.cog ? TILE : STRIP_ROWS;
  h.place = {spec.place.x0 / spec.crs.unit, spec.place.y0 / spec.crs.unit, spec.place.GSD / spec.crs.unit};
  if (spec.nodata && spec.pixel != Pixel::rgb) h.nodata = spec.pixel == Pixel::f32 ? "-9999" : "0";
  h.scale = spec.scale;
  h.offset = spec.offset;
  h.unit = spec.unit;
  if (!make_geo_keys(spec.crs, h.keys)) return false;
  int x = spec.xsize, y = spec.ysize;
  for (int level = 0;; level++) {
    Band& b = s_->levels.emplace_back();
    b.xsize = x, b.ysize = y;
    b.bwidth = h.bwidth, b.bheight = h.bheight;
    b.nx = (x + b.bwidth - 1) / b.bwidth;
    b.pixels.resize(s_->band_row(b) * static_cast<size_t>(b.bheight));
    fill_empty(spec.pixel, b.pixels);
    b.spool.begin(name + ".level" + std::to_string(level));
    if (!b.out.open(b.spool.part(), 0)) return false;
    if (!spec.cog || std::max(x, y) <= TILE) break;
    x = (x + 1) / 2, y = (y + 1) / 2;
  }
  return true;
}

bool TiffOut::put_rows(const void* rows, int n) {
  const auto* row = static_cast<const uint8_t*>(rows);
  for (int i = 0; i < n;
       i++, row += static_cast<size_t>(s_->spec.xsize) * static_cast<size_t>(s_->pixel_size()))
    if (!s_->push(0, row)) return false;
  return true;
}

bool TiffOut::close() {
  for (size_t i = 0; i < s_->levels.size(); i++) {
    Band& b = s_->levels[i];
    if (!s_->flush(i)) return false;
    ASSERT(b.row0 == b.ysize);
    if (!b.out.close()) return false;
  }
  const bool ok = s_->assemble() && s_->file.commit();
  s_.reset();
  return ok;
}
}  // namespace veld
