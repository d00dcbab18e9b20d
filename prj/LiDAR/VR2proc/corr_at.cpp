#include "prj/LiDAR/VR2proc/corr_at.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

namespace veld {
namespace {
struct SampledSwath {
  TileGeom geom;
  SwathClock clock;
  double max_step;  // s, between samples side by side of one pass
  TileInfo frame;   // of its tiles
  Image<uint16_t> timg;
  Vector<Image<int32_t>> entry;  // by tile and microtile: of the samples, -1 for none
  const InvSamples* samples = nullptr;
  Vector<PO> po;
  SwathCorr corr;

  // The entry of a microtile, by its absolute indices; -1 without one.
  int64_t find(int64_t X, int64_t Y) const {
    const int64_t x = (X >> mT_SUB_LEVEL) - frame.XI, y = (Y >> mT_SUB_LEVEL) - frame.YI;
    if (x < 0 || y < 0 || x >= frame.nx || y >= frame.ny) return -1;
    const uint16_t k = timg.row(static_cast<int>(y))[x];
    return k == NO_TILE ? -1 : entry[k].row(static_cast<int>(Y & (mTsub - 1)))[X & (mTsub - 1)];
  }
};

void place_samples(const Project& prj, const InvSamples& samples, const SampleIndex& index, SampledSwath& s) {
  s.geom = make_tile_geom(prj.scale.level);
  s.max_step = std::max(8 * prj.time_res, 0.5);
  s.samples = &samples;
  s.frame = extent_of(index.TI);
  build_tile_map(s.frame, index.TI, s.timg);
  s.entry.resize(index.TI.size());
  for (Image<int32_t>& tile : s.entry) tile.resize(mTsub, mTsub, -1);
  for (size_t i = 0; i < index.where.size(); i++)
    s.entry[index.where[i] / mTn][index.where[i] % mTn] = static_cast<int32_t>(i);
}

// Height and time of the swath at a place.
bool sample_at(const SampledSwath& s, double x, double y, dxyz& P, double& t) {
  const double u = (x - tile_origin(s.geom, 0)) / s.geom.mTsize,
               v = (y - tile_origin(s.geom, 0)) / s.geom.mTsize;
  const double i = std::floor(u - 0.5), j = std::floor(v - 0.5), fx = u - 0.5 - i, fy = v - 0.5 - j;
  const int64_t X = static_cast<int64_t>(i), Y = static_cast<int64_t>(j);
  const int64_t about[4] = {s.find(X, Y), s.find(X + 1, Y), s.find(X, Y + 1), s.find(X + 1, Y + 1)};
  const int64_t own = about[(fx >= 0.5 ? 1 : 0) + (fy >= 0.5 ? 2 : 0)];
  if (own < 0) return false;
  const Vector<dxyz>& place = s.samples->P;
  const Vector<double>& time = s.samples->t;
  P = {x, y, place[own].z};
  t = time[own];
  for (const int64_t a : about)
    if (a < 0 || !(std::fabs(time[a] - time[own]) <= s.max_step)) return true;
  const double w[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
  P.z = t = 0;
  for (int k = 0; k < 4; k++) {
    P.z += w[k] * place[about[k]].z;
    t += w[k] * time[about[k]];
  }
  return true;
}

bool point_corr(const SampledSwath& s, CorrCursor& cursor, const dxyz& P, double t, xyz& c) {
  c = comp_point_corr(s.corr, cursor, P, t);
  return c.z != NODATA;
}

CorrAt swath_corr_at(const std::shared_ptr<const SampledSwath>& s) {
  CorrAt result;
  result.at = [s, cursor = CorrCursor()](double x, double y, GroundCorr& g) mutable {
    constexpr float UP = 10;  // m
    dxyz P;
    double t;
    xyz above;
    if (!sample_at(*s, x, y, P, t) || !point_corr(*s, cursor, P, t, g.c) ||
        !point_corr(*s, cursor, P + dxyz{0, 0, double{UP}}, t, above))
      return false;
    g.per_m = (above - g.c) * (1 / UP);
    g.z = static_cast<float>(P.z);
    return true;
  };
  result.at_time = [s, cursor = CorrCursor()](const dxyz& P, double time, const xyz& d, xyz& c) mutable {
    const double t = time_at_displacement(s->po, s->corr.po_dt, s->corr.AREC, s->clock.sync(time), d);
    return point_corr(*s, cursor, P + to_dxyz(d), t, c);
  };
  return result;
}

CorrAt constant_corr(const xyz& T0) {
  CorrAt result;
  result.at = [T0](double, double, GroundCorr& g) {
    g = {};
    g.c = T0;
    return true;
  };
  result.at_time = [T0](const dxyz&, double, const xyz&, xyz& c) {
    c = T0;
    return true;
  };
  return result;
}
}  // namespace

CorrAtOf make_corr_at(const Project& prj, const CorrSource& source, const SwathVector<InvSamples>& samples,
                      const SwathVector<SampleIndex>& index, const SwathVector<SCorrTbl>& tables) {
  return [&prj, source, &samples, &index, &tables](SwathId sw) -> CorrAt {
    const xyz T0 = tables[sw].T0;
    if (tables[sw].C.empty()) return constant_corr(T0);
    const auto s = std::make_shared<SampledSwath>();
    double dt;
    if (!load_POC_TMP(prj.swaths[sw].cache, sw, s->po, dt) ||
        !make_SwathCorr(source, prj.swaths[sw], T0, &s->po, s->corr)) {
      ERROR_MSG("missing or bad trajectory cache, swath " << prj.swaths[sw].path());
      return {};
    }
    s->clock = prj.swaths[sw].clock;
    place_samples(prj, samples[sw], index[sw], *s);
    return swath_corr_at(s);
  };
}
}  // namespace veld
