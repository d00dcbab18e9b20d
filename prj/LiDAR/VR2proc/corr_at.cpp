#include "prj/LiDAR/VR2proc/corr_at.h"

#include <cmath>
#include <unordered_map>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"

namespace veld {
namespace {
struct Sample {
  double t;
  float z = NODATA;  // NODATA: none
};

struct SampledSwath {
  TileGeom geom;
  SwathClock clock;
  double max_step;  // s, between samples side by side of one pass
  std::unordered_map<uint64_t, size_t> tile;
  Vector<Image<Sample>> samples;
  Vector<PO> po;
  double po_dt = 0;
  SwathCorr corr;
  xyz T0 = {0, 0, 0};

  // The sample of a microtile, by its absolute indices; null without one.
  const Sample* find(int64_t X, int64_t Y) const {
    if (X < 0 || Y < 0) return nullptr;
    const auto it = tile.find(static_cast<uint64_t>(X / mTsub) << 32 | static_cast<uint64_t>(Y / mTsub));
    if (it == tile.end()) return nullptr;
    const Sample& s = samples[it->second].row(static_cast<int>(Y % mTsub))[X % mTsub];
    return s.z == NODATA ? nullptr : &s;
  }
};

void place_samples(const Project& prj, const InvSamples& from, const SampleIndex& index, SampledSwath& s) {
  s.geom = make_tile_geom(prj.scale.level);
  s.max_step = std::max(8 * prj.time_res, 0.5);
  s.samples.resize(index.TI.size());
  for (size_t k = 0; k < index.TI.size(); k++) {
    s.tile[static_cast<uint64_t>(index.TI[k].x) << 32 | index.TI[k].y] = k;
    s.samples[k].resize(mTsub, mTsub, Sample{0, NODATA});
  }
  for (size_t i = 0; i < index.where.size(); i++)
    s.samples[index.where[i] / mTn][index.where[i] % mTn] = {from.t[i], static_cast<float>(from.P[i].z)};
}

// Height and time of the swath at a place.
bool sample_at(const SampledSwath& s, double x, double y, dxyz& P, double& t) {
  const double u = (x - tile_origin(s.geom, 0)) / s.geom.mTsize,
               v = (y - tile_origin(s.geom, 0)) / s.geom.mTsize;
  const double i = std::floor(u - 0.5), j = std::floor(v - 0.5), fx = u - 0.5 - i, fy = v - 0.5 - j;
  const int64_t X = static_cast<int64_t>(i), Y = static_cast<int64_t>(j);
  const Sample* const about[4] = {s.find(X, Y), s.find(X + 1, Y), s.find(X, Y + 1), s.find(X + 1, Y + 1)};
  const Sample* const own = about[(fx >= 0.5 ? 1 : 0) + (fy >= 0.5 ? 2 : 0)];
  if (!own) return false;
  bool all = true;
  for (const Sample* a : about) all = all && a && std::fabs(a->t - own->t) <= s.max_step;
  P = {x, y, static_cast<double>(own->z)};
  t = own->t;
  if (!all) return true;
  const double w[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
  P.z = t = 0;
  for (int k = 0; k < 4; k++) {
    P.z += w[k] * static_cast<double>(about[k]->z);
    t += w[k] * about[k]->t;
  }
  return true;
}

bool point_corr(const SampledSwath& s, CorrCursor& cursor, const dxyz& P, double t, xyz& c) {
  c = comp_point_corr(s.corr, cursor, P, t);
  if (c.z == NODATA) return false;
  c += s.T0;
  return true;
}

CorrAt swath_corr_at(const std::shared_ptr<const SampledSwath>& s) {
  CorrAt result;
  result.at = [s, cursor = CorrCursor()](double x, double y, xyz& c) mutable {
    dxyz P;
    double t;
    return sample_at(*s, x, y, P, t) && point_corr(*s, cursor, P, t, c);
  };
  result.at_time = [s, cursor = CorrCursor()](const dxyz& P, double time, const xyz& d, xyz& c) mutable {
    const double t = time_at_displacement(s->po, s->po_dt, s->corr.AREC, s->clock.sync(time), d);
    return point_corr(*s, cursor, P + to_dxyz(d), t, c);
  };
  return result;
}

CorrAt constant_corr(const xyz& T0) {
  CorrAt result;
  result.at = [T0](double, double, xyz& c) {
    c = T0;
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
        !make_SwathCorr(source, prj.swaths[sw], {0, 0, 0}, &s->po, s->corr)) {
      ERROR_MSG("missing or bad trajectory cache, swath " << prj.swaths[sw].path());
      return {};
    }
    s->clock = prj.swaths[sw].clock;
    s->T0 = T0;
    s->po_dt = mean_dt_PO(s->po);
    place_samples(prj, samples[sw], index[sw], *s);
    return swath_corr_at(s);
  };
}
}  // namespace veld
