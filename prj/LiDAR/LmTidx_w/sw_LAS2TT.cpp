// First pass over a swath: reads the file once, filters, checks times and coordinates, and appends each
// surviving point to the temporary file of its tile.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"
#include "prj/LiDAR/LmTidx_w/point_filter.h"
#include "prj/LiDAR/LmTidx_w/tile_grid.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t MIN_POINTS = 16;

struct Pass {  // the pass under way
  PointFilter filter;
  LASlayout lay;
  double scale[3], offset[3];
  TileGeom g;
  bool tuse = false;
  Unroll unroll;  // of the rollover pass
  double t0 = 0, tmin = BIG, tmax = -BIG;
  int amin = INT16_MAX, amax = INT16_MIN;
  Box kept, out, bad;  // file units; out: valid points that a filter took
  uint64_t nread = 0, npts = 0, n_cl = 0, n_lr = 0, n_out = 0, n_xyzout = 0, n_tbad = 0;
  TTstate state = TTstate::good;
};

// Nearest integer, halves away from zero, as llround. |v| below 2^62.
inline int64_t round_to_int(double v) {
  const int64_t i = static_cast<int64_t>(v);
  const double rest = v - static_cast<double>(i);
  return i + (rest >= 0.5) - (rest <= -0.5);
}

inline void extend(Box& box, const double* p) {
  for (int i = 0; i < 3; i++) {
    box.min[i] = p[i] < box.min[i] ? p[i] : box.min[i];
    box.max[i] = p[i] > box.max[i] ? p[i] : box.max[i];
  }
}

inline double load_time(const Pass& s, const uint8_t* rec) {
  double t;
  std::memcpy(&t, rec + s.lay.gps, 8);
  return s.unroll(t);
}

// Ranges of times and scan angles of a block, of all its points.
template <bool EXT>
void scan_ranges(Pass& s, const uint8_t* rec, uint64_t n) {
  int amin = s.amin, amax = s.amax;
  double tmin = s.tmin, tmax = s.tmax;
  const bool has_time = s.lay.gps >= 0;
  for (uint64_t i = 0; i < n; i++, rec += s.lay.reclen) {
    int angle;
    if constexpr (EXT) {
      int16_t a;
      std::memcpy(&a, rec + 18, 2);
      angle = a;
    } else {
      angle = static_cast<int8_t>(rec[16]);
    }
    amin = angle < amin ? angle : amin;
    amax = angle > amax ? angle : amax;
    const double t = has_time ? load_time(s, rec) : 0.0;
    tmin = t < tmin ? t : tmin;
    tmax = t > tmax ? t : tmax;
  }
  s.amin = amin;
  s.amax = amax;
  s.tmin = tmin;
  s.tmax = tmax;
}

// A point that a filter took: counts, and its place in the box of all points.
template <bool EXT>
[[gnu::noinline]] void count_dropped(Pass& s, uint8_t drop, const double* p, bool valid) {
  s.n_out++;
  if (drop & DROP_FLAG) {
  } else if (drop & DROP_CLASS) {
    s.n_cl++;
  } else {
    s.n_lr++;
  }
  if (valid) extend(s.out, p);
}

template <bool EXT>
void tile_block(Pass& s, TileGrid& grid, const uint8_t* rec, uint64_t n) {
  const double to_units = DATAUNIT * UNITS_PER_M, z_to_units = DATAUNIT_Z * UNITS_PER_M;
  constexpr double lo = -static_cast<double>(GROUND_BIAS), hi = static_cast<double>(GROUND_END - GROUND_BIAS);
  constexpr double zlo = -static_cast<double>(HEIGHT_BIAS),
                   zhi = static_cast<double>(HEIGHT_END - HEIGHT_BIAS);
  const TileGeom g = s.g;
  Box kept = s.kept;
  uint64_t npts = s.npts;
  for (uint64_t i = 0; i < n; i++, rec += s.lay.reclen) {
    int32_t raw[3];
    std::memcpy(raw, rec, 12);
    const double p[3] = {raw[0] * s.scale[0] + s.offset[0], raw[1] * s.scale[1] + s.offset[1],
                         raw[2] * s.scale[2] + s.offset[2]};
    const double u = p[0] * to_units, v = p[1] * to_units, w = p[2] * z_to_units;
    // The comparisons are false for NaN, too; within half a unit of the ends the integers decide.
    bool valid = u > lo - 1 && u < hi + 1 && v > lo - 1 && v < hi + 1 && w > zlo - 1 && w < zhi + 1;
    int64_t x = 0, y = 0, z = 0;
    if (valid) {
      x = round_to_int(u) + GROUND_BIAS;
      y = round_to_int(v) + GROUND_BIAS;
      z = round_to_int(w) + HEIGHT_BIAS;
      valid = static_cast<uint64_t>(x) < static_cast<uint64_t>(GROUND_END) &&
              static_cast<uint64_t>(y) < static_cast<uint64_t>(GROUND_END) &&
              static_cast<uint64_t>(z) < static_cast<uint64_t>(HEIGHT_END);
    }
    uint8_t drop = s.filter.flags[rec[15]] | s.filter.returns[rec[14]];
    if constexpr (EXT) drop |= s.filter.classes[rec[16]];
    if (drop) {
      count_dropped<EXT>(s, drop, p, valid);
      continue;
    }
    if (!valid) [[unlikely]] {
      s.n_xyzout++;
      extend(s.bad, p);
      continue;
    }
    uint64_t ticks = 0;
    const double t = s.tuse ? load_time(s, rec) : 0.0;
    const uint32_t XI = static_cast<uint32_t>(x >> g.shift), YI = static_cast<uint32_t>(y >> g.shift);
    if (!grid.started()) [[unlikely]] {
      s.t0 = s.lay.gps >= 0 ? load_time(s, rec) : 0.0;
      grid.centre(XI, YI);
    }
    if (s.tuse) {
      const double d = (t - s.t0) * 1024.0;
      if (!(d > -33554432.0 && d < 33554431.0)) [[unlikely]] {
        s.n_tbad++;
        continue;
      }
      ticks = static_cast<uint64_t>(round_to_int(d)) & 0x3FFFFFF;
    }
    const uint64_t word =
        ((static_cast<uint64_t>(x) & g.mask) | (static_cast<uint64_t>(y) & g.mask) << 19 | ticks << 38) ^
        0x8000000000000000u;
    if (const TTstate state = grid.write(XI, YI, word, static_cast<uint32_t>(z)); state != TTstate::good)
        [[unlikely]] {
      s.state = state;
      break;
    }
    extend(kept, p);
    npts++;
  }
  s.kept = kept;
  s.npts = npts;
}

const char* unit_text() { return DATAUNIT != 1.0 ? "ft" : ""; }

std::string box_text(const Box& b, double unit) {
  return LOG_STR("X: [" << b.min[0] * unit << " " << b.max[0] * unit << "] Y: [" << b.min[1] * unit << " "
                        << b.max[1] * unit << "] Z: [" << b.min[2] * unit << " " << b.max[2] * unit << "]");
}

// Reads all points. True with res.again set when a rollover stopped the pass.
bool read_points(LASreader& reader, Pass& s, TileGrid& grid, uint64_t np, TTresult& res, SwathFailure& why) {
  const bool ext = s.lay.extended;
  while (s.nread < np && s.state == TTstate::good) {
    uint64_t n = 0;
    const uint8_t* block = reader.read_block(n);
    if (!block || n == 0) break;
    n = std::min(n, np - s.nread);
    ext ? scan_ranges<true>(s, block, n) : scan_ranges<false>(s, block, n);
    s.nread += n;
    if (const Rollover rover = find_rollover(s.tmin, s.tmax); s.tuse && rover != Rollover::none) {
      LOG_LINE("<!> ROVER rover=" << static_cast<int>(rover) << " tmax-tmin=" << s.tmax - s.tmin << " "
                                  << 100.0 * static_cast<double>(s.nread) / static_cast<double>(np)
                                  << "% tmin=" << s.tmin << " tmax=" << s.tmax
                                  << " trover=" << (s.unroll.period > 0 ? s.unroll.split : FLIGHT_SPAN)
                                  << " NS_ROVER=" << FLIGHT_SPAN);
      res.clock.rover = rover;
      res.clock.tmax = s.tmax;
      res.again = s.unroll.period == 0;
      if (res.again) return true;
      why = {SwathFault::input, "second time stamp rollover"};
      return false;
    }
    ext ? tile_block<true>(s, grid, block, n) : tile_block<false>(s, grid, block, n);
  }
  return true;
}

// The file as it was read: count, coordinates, extent.
bool check_coordinates(const Pass& s, const TileGrid& grid, uint32_t limit, bool LAREA,
                       const CacheName& swath, TTresult& res, SwathFailure& why) {
  if (s.n_xyzout > 0)
    WARNING_MSG("LAS tiling: " << s.n_xyzout << " invalid point coordinates, " << swath.source() << " "
                               << box_text(s.bad, 1.0) << " " << unit_text());
  if (s.state == TTstate::out_of_limit)
    return swath_error(
        why, LOG_STR("LAS tiling: coordinate range out of bounds ("
                     << grid.width() << "x" << grid.height() << " tiles), limit=" << limit
                     << " - check locations and projections"
                     << (LAREA ? "" : ". For long swaths or large area projects use option -large")));
  if (!grid.started() && s.n_tbad == 0) {
    if (s.n_xyzout > 0)
      return swath_error(why, "no points left with valid coordinates, LiDAR BBOX x:" + box_text(s.bad, 1.0));
    return swath_error(why, LOG_STR("LAS tiling: no points left, n_cl=" << s.n_cl << " n_lr=" << s.n_lr));
  }
  res.kept = s.kept;
  res.all = s.kept;
  res.all.add(s.out);
  for (Box* b : {&res.kept, &res.all})
    for (int i = 0; i < 3; i++) {
      b->min[i] *= i < 2 ? DATAUNIT : DATAUNIT_Z;
      b->max[i] *= i < 2 ? DATAUNIT : DATAUNIT_Z;
    }
  const Box& k = res.kept;
  LOG_LINE("LiDAR BBOX x:[" << k.min[0] << " " << k.max[0] << "] y:[" << k.min[1] << " " << k.max[1]
                            << "] z:[" << k.min[2] << " " << k.max[2] << "]");
  if (s.n_out > 0)
    LOG_LINE("unfiltered x:[" << res.all.min[0] << " " << res.all.max[0] << "] y:[" << res.all.min[1] << " "
                              << res.all.max[1] << "] z:[" << res.all.min[2] << " " << res.all.max[2] << "]");
  if (s.npts > 0 && (k.max[0] - k.min[0] < 2.0 || k.max[1] - k.min[1] < 2.0)) {
    const bool geodetic = std::max({std::abs(k.min[0]), std::abs(k.max[0]), std::abs(k.min[1]),
                                    std::abs(k.max[1])}) <= 180.0 * DATAUNIT;
    std::string text = "LAS tiling: invalid coordinates, " + box_text(k, 1.0);
    if (geodetic) text += ", XY coordinates look geodetic, LiDAR data must be projected!";
    return swath_error(why, text);
  }
  return true;
}

// The flag for adjusted GPS time against what the times look like.
bool check_adjusted(const Pass& s, const CacheName& swath, TTresult& res, SwathFailure& why) {
  if (!s.tuse) return true;
  const bool looks = is_adjusted(s.tmin);
  if (looks == res.clock.raw_adj) return true;
  if (AUTO_ADJ) {
    WARNING_MSG("LAS tiling: adjusted GPS time bit override, adj="
                << res.clock.raw_adj << " autoadj=" << looks << " from file timestamps, " << swath.source());
    res.clock.raw_adj = looks;
    return true;
  }
  if (res.clock.raw_adj) {
    WARNING_MSG("LAS tiling: timestamps likely week seconds but LAS GPS time type is 1, " << swath.source());
    return true;
  }
  return swath_error(why,
                     "LAS tiling: timestamps are adjusted GPS but LAS GPS time type is 0, " + swath.source());
}

// Only for those who use them: the times of a reference may be anything.
bool check_times(const Pass& s, const TilingParam& par, const CacheName& swath, const TTresult& res,
                 SwathFailure& why) {
  if (!par.tproc) return true;
  const double dt = s.tmax - s.tmin;
  LOG_LINE("time t:[" << s.tmin << " " << s.tmax << "] Dt=" << hms_text(std::min(std::max(dt, 0.0), 1e9))
                      << " (" << dt << " s) adj=" << res.clock.raw_adj << " NS_ROVER=" << FLIGHT_SPAN);
  const double largest = std::max(std::abs(s.tmin), std::abs(s.tmax));
  if (dt > MAX_SWATH_SPAN)
    return swath_error(why, "LAS tiling: swath time interval exceeds 32400 s, " + swath.source());
  if (s.n_tbad > 0 || largest > 2e9)
    return swath_error(why, "LAS tiling: invalid timestamps (overflow), " + swath.source());
  if (largest > 1e9)
    WARNING_MSG("LAS tiling: invalid timestamp format (might be standard GPS), " << swath.source());
  if (s.tmax <= s.tmin) WARNING_MSG("LAS tiling: missing timestamps or 0 time interval, " << swath.source());
  return true;
}

Pass start_pass(const LASheader& h, const TilingParam& par, const Unroll& unroll, bool tuse) {
  Pass s;
  s.filter = make_PointFilter(par, h.extended());
  s.lay = h.layout();
  const double scale[3] = {h.x_scale_factor, h.y_scale_factor, h.z_scale_factor};
  const double offset[3] = {h.x_offset, h.y_offset, h.z_offset};
  std::copy_n(scale, 3, s.scale);
  std::copy_n(offset, 3, s.offset);
  s.g = make_tile_geom(tile_level(par.large, par.xlevel));
  s.tuse = tuse;
  s.unroll = unroll;
  return s;
}

// A temporary tile file could not be written; which one and why stands in the line before.
bool tile_file_error(const Pass& s, const CacheName& swath, SwathFailure& why) {
  return swath_error(why,
                     LOG_STR("LAS tiling: I/O err=" << static_cast<int>(s.state) << " close_ok="
                                                    << (s.state != TTstate::good) << ", " << swath.source()),
                     SwathFault::own);
}

// Everything that is known once the reader is closed: the checks in their order, the table, the log.
bool end_pass(const CacheName& swath, const TilingParam& par, Pass& s, TileGrid& grid, uint32_t limit,
              uint64_t np, TTresult& res, SwathFailure& why) {
  if (s.state == TTstate::create_failed || s.state == TTstate::write_failed)
    return tile_file_error(s, swath, why);
  if (file_mtime(swath.source()) != res.tstamp)
    return swath_error(why, "LAS tiling: file timestamp changed during read, " + swath.source());
  if (!check_coordinates(s, grid, limit, par.large, swath, res, why) || !check_adjusted(s, swath, res, why))
    return false;
  if (s.nread < np && s.state == TTstate::good) {
    LOG_LINE("<!> nr=" << s.nread << " np=" << np);
    WARNING_MSG("LAS tiling: I/O read error, swath may be truncated, " << swath.source());
  }
  if (grid.started() && grid.finish() != TTstate::good) return tile_file_error(s, swath, why);
  grid.tileinfo_tbl(s.g.Tsize, res.TI);
  if (res.TI.size() > MAX_TILES)
    return swath_error(why, LOG_STR("LAS tiling: coordinate range out of bounds ("
                                    << res.TI.size() << " tiles), limit=" << MAX_TILES));
  const double percent = s.nread ? 100.0 * static_cast<double>(s.npts) / static_cast<double>(s.nread) : 0.0;
  LOG_LINE("n_cl=" << s.n_cl << " n_lr=" << s.n_lr << " n_out=" << s.n_out << " n_xyzout=" << s.n_xyzout
                   << " np=" << s.nread << " -> PTS=" << s.npts << " pf=" << s.lay.format);
  if (percent < 20.0)
    WARNING_MSG("LAS tiling: less than " << static_cast<int>(std::ceil(percent))
                                         << "% points left due to LAS attribute filtering, "
                                         << swath.source());
  if (!check_times(s, par, swath, res, why)) return false;
  const float unit = s.lay.extended ? LASpoint::EXTENDED_ANGLE_UNIT : 1.0f;
  res.amin = static_cast<float>(s.amin) * unit;
  res.amax = static_cast<float>(s.amax) * unit;
  LOG_LINE("scan angle:[" << res.amin << " " << res.amax << "]");
  const bool has_times = par.tproc || std::isfinite(s.t0 + s.tmin + s.tmax);
  res.clock.t0 = has_times ? s.t0 : 0;
  res.clock.tmin = has_times ? s.tmin : 0;
  res.clock.tmax = has_times ? s.tmax : 0;
  res.npts = s.npts;
  res.nfile = s.nread;
  return true;
}
}  // namespace

bool swath_error(SwathFailure& why, const std::string& text, SwathFault fault) {
  why = {fault, text};
  ERROR_MSG(text);
  return false;
}

bool sw_LAS2TT(const CacheName& swath, SwathId sw, const TilingParam& par, Rollover rover, double before,
               uint64_t max_bytes, TTresult& res, SwathFailure& why) {
  const Stopwatch watch;
  const TileGeom g = make_tile_geom(tile_level(par.large, par.xlevel));
  LOG_ENTER("sw_LAS2TT sw=" << sw << " rover=" << static_cast<int>(rover) << " level=" << g.level
                            << " shift=" << g.shift << " mask=" << g.mask << " size=" << g.Tsize);
  log_xcls(par.xcls);
  res = TTresult{};
  res.tstamp = file_mtime(swath.source());
  if (res.tstamp == -1) return swath_error(why, "file timestamp read error, " + swath.source());
  std::unique_ptr<LASreader> reader = las_read_open(swath.source(), INPARSE, true);
  if (!reader) {
    why = {SwathFault::input, "cannot open LASreader, file " + swath.source()};
    return false;
  }
  const LASheader& h = reader->header;
  const uint64_t np = h.npoints;
  if (np < MIN_POINTS)
    return swath_error(why, "LAS tiling: not enough points or wrong format, " + swath.source());
  const bool has_time = h.point_format != 0 && h.point_format != 2;
  if (par.tproc && !has_time)
    WARNING_MSG("LAS tiling: missing timestamps (point format 0 or 2), swath " << swath.source());
  res.clock.rover = rover;
  res.clock.raw_adj = h.adjusted_gps();
  const uint32_t limit = par.large ? MAX_TILE_SPAN : 128;
  Pass s = start_pass(h, par, Unroll(rover, before), par.tproc && has_time);
  TileGrid grid(swath, limit, max_bytes);
  bool ok = read_points(*reader, s, grid, np, res, why);
  las_read_close(reader);
  if (ok && !res.again) ok = end_pass(swath, par, s, grid, limit, np, res, why);
  if (!ok || res.again) {
    if (res.TI.empty()) grid.tileinfo_tbl(g.Tsize, res.TI);
    remove_TT_files(swath, res.TI);
    return ok;
  }
  LOG_LINE("written " << static_cast<double>(s.npts * TT_REC_BYTES) * 1e-6 << " Mb");
  LOG_LINE(" /// SWATH_TT_PROC_TIME=" << watch.text());
  return true;
}
}  // namespace veld
