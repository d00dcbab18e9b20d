#include "prj/LiDAR/check/swath_probe.h"

#include <algorithm>
#include <cmath>

#include "las/las_access.h"
#include "lib/general/log.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTidx_w/point_filter.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t NPLACES = 64;    // places of a file that are looked at
constexpr uint64_t NPOINTS = 2560;  // points taken at all of them
constexpr uint64_t STEP = 10;       // of so many one is taken: a place then holds more than a scan line
constexpr uint64_t CHUNK = 50000;   // points of a usual LAZ chunk: seeking to its start decodes nothing
constexpr uint64_t MIN_CHUNKS =
    8;  // below, places lie between them, and walking through is as fast as seeking
constexpr double TWO_WEEKS = 1209600;  // s, larger times count from an epoch
constexpr float ANGLE_SPAN = 2;        // degrees, below it scan angles say nothing

struct Places {
  std::vector<uint64_t> first;  // points, rising
  uint64_t npoints = 0;         // taken at each
  bool walk = false;
};

Places choose_places(uint64_t npoints) {
  Places places;
  const uint64_t nchunks = npoints / CHUNK;
  places.walk = nchunks < MIN_CHUNKS;
  const uint64_t n = places.walk ? NPLACES : std::min(NPLACES, nchunks);
  places.npoints = NPOINTS / n;
  for (uint64_t k = 0; k < n; k++) {
    const uint64_t at =
        places.walk ? npoints / n * k + npoints % n * k / n : (nchunks / n * k + nchunks % n * k / n) * CHUNK;
    if (places.first.empty() || at >= places.first.back() + places.npoints * STEP) places.first.push_back(at);
  }
  return places;
}

struct Dropped {  // points of the sample, by what takes them
  size_t flag = 0, cls = 0, ret = 0;
};

void take(const LASpoint& p, const PointFilter& filter, SwathProbe& probe, Dropped& dropped) {
  const uint8_t drop = drop_of(filter, p.rec, p.lay.extended);
  probe.nkept += drop == 0;
  dropped.flag += (drop & DROP_FLAG) != 0;
  dropped.cls += (drop & DROP_CLASS) != 0;
  dropped.ret += (drop & DROP_RETURN) != 0;

  const Beam beam = {
      p.gps_time(), {p.x() * DATAUNIT, p.y() * DATAUNIT, p.z() * DATAUNIT_Z}, p.scan_angle_deg()};
  if (std::isfinite(beam.t + beam.P.x + beam.P.y + beam.P.z)) probe.beams.push_back(beam);
}

bool read_place(LASreader& reader, uint64_t at, const Places& places, const PointFilter& filter,
                SwathProbe& probe, Dropped& dropped) {
  if (places.walk) {
    while (reader.p_count < at)
      if (!reader.read_point()) return false;
  } else if (!reader.seek(at)) {
    return false;
  }
  for (uint64_t i = 0; i < places.npoints * STEP; i++) {
    if (!reader.read_point()) return i > 0;
    if (i % STEP == 0) take(reader.point, filter, probe, dropped);
  }
  return true;
}

std::string dropped_text(const Dropped& d, const TilingParam& filters) {
  if (d.flag + d.cls + d.ret == 0) return "";
  if (d.cls >= d.flag && d.cls >= d.ret)
    return "their classes are dropped (-drop_class, -keep_class, -ground_class)";
  if (d.flag >= d.ret) return "withheld and synthetic points are dropped, -keep_synthetic keeps the latter";
  return filters.last ? "first and intermediate returns are dropped, -keep_all keeps them"
                      : "last and intermediate returns are dropped, -keep_all keeps them";
}

void describe(SwathProbe& probe) {
  std::sort(probe.beams.begin(), probe.beams.end(), [](const Beam& a, const Beam& b) { return a.t < b.t; });
  float lo = 1e9F, hi = -1e9F;
  for (const Beam& b : probe.beams) {
    lo = std::min(lo, b.angle_deg);
    hi = std::max(hi, b.angle_deg);
  }
  probe.tmin = probe.beams.front().t;
  probe.tmax = probe.beams.back().t;
  probe.timed = probe.tmax > probe.tmin;
  probe.angled = hi - lo > ANGLE_SPAN;
  probe.adj = AUTO_ADJ ? probe.tmin > TWO_WEEKS : probe.header.adjusted_gps();
}
}  // namespace

SwathProbe probe_swath(const std::string& path, const TilingParam& filters) {
  SwathProbe probe;
  const std::unique_ptr<LASreader> reader = las_read_open(path, INPARSE, false);
  if (!reader) {
    probe.fault = "cannot be read";
    return probe;
  }
  probe.header = reader->header;
  probe.nbytes = reader->file_bytes();
  const uint64_t n = probe.header.npoints;
  const PointFilter filter = make_PointFilter(filters, probe.header.extended());
  Dropped dropped;
  const Places places = choose_places(n);
  for (const uint64_t at : places.first)
    if (!read_place(*reader, at, places, filter, probe, dropped)) break;
  if (probe.beams.empty())
    probe.fault = n == 0 ? "no points" : "no point can be read";
  else
    describe(probe);
  probe.dropped = dropped_text(dropped, filters);
  return probe;
}

SwathVector<SwathProbe> probe_swaths(const Project& prj, const TilingParam& filters, int nthreads) {
  SwathVector<SwathProbe> probes(prj.swaths);
  const std::vector<SwathId> ids = prj.swaths.ids();
  run_units(static_cast<int64_t>(ids.size()), nthreads, [&](int64_t i, int) {
    const Swath& s = prj.swaths[ids[static_cast<size_t>(i)]];
    if (!s.fixed) probes[s.id] = probe_swath(s.path(), filters);
    return true;
  });
  return probes;
}
}  // namespace veld
