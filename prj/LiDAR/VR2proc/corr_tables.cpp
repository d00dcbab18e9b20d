#include "prj/LiDAR/VR2proc/corr_tables.h"

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/VR2proc/corr_fill.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
namespace {
// Position, time and tile of each microtile that has a time.
bool comp_P_tbl(const Project& prj, SwathId sw, InvSamples& s, SampleIndex& index) {
  const CacheName& swath = prj.swaths[sw].cache;
  const SwathClock& clock = prj.swaths[sw].clock;
  Vector<TIsxy>& TI = index.TI;
  Vector<Image<int32_t>> Ct, Zm;
  if (!read_LTidx_TI(swath, TI) || !read_sw_CZt_tiles(swath, static_cast<uint32_t>(TI.size()), Ct, Zm)) {
    ERROR_MSG("missing/incompatible temp. tile files, swath " << swath.source());
    return false;
  }
  const TileGeom geom = make_tile_geom(prj.scale.level);
  index.where.clear();
  index.untimed.clear();
  for (uint64_t k = 0; k < TI.size(); k++)
    for (int m = 0; m < mTn; m++)
      if (Zm[k][m] != NO_I32)
        (Ct[k][m] != NO_I32 ? index.where : index.untimed)
            .push_back(static_cast<uint32_t>(k) * mTn + static_cast<uint32_t>(m));
  const uint64_t n = index.where.size();
  s.P.resize(n);
  s.t.resize(n);
  for (uint64_t i = 0; i < n; i++) {
    const uint32_t k = index.where[i] / mTn, m = index.where[i] % mTn;
    s.P[i] = {tile_origin(geom, TI[k].x) + (m % mTsub + 0.5) * geom.mTsize,
              tile_origin(geom, TI[k].y) + (m / mTsub + 0.5) * geom.mTsize, Zm[k][m] * M_PER_UNIT};
    s.t[i] = clock.sync(clock.t0 + Ct[k][m] * TICK_S);
  }
  LOG_LINE("comp_P_tbl sw=" << sw << " nt=" << TI.size() << " nmt=" << n
                            << " untimed=" << index.untimed.size());
  return true;
}
}  // namespace

bool OAttP_tbl_swaths(const Project& prj, const std::vector<SwathId>& swc, SwathVector<InvSamples>& samples,
                      SwathVector<SampleIndex>& index) {
  LOG_ENTER("OAttP_tbl_swaths nsw=" << prj.swaths.size() << " nswc=" << swc.size()
                                    << " mTsize=" << prj.scale.mTsize << " tr=" << prj.time_res);
  const Stopwatch watch;
  samples = SwathVector<InvSamples>(prj.swaths);
  index = SwathVector<SampleIndex>(prj.swaths);
  for (const SwathId sw : swc) {
    InvSamples& s = samples[sw];
    if (!comp_P_tbl(prj, sw, s, index[sw])) return false;
    Vector<PO> po;
    double dt;
    if (!load_POC_TMP(prj.swaths[sw].cache, sw, po, dt)) {
      ERROR_MSG("missing or bad trajectory cache, swath " << prj.swaths[sw].path());
      return false;
    }
    s.O.resize(s.t.size());
    s.Att.resize(s.t.size());
    const uint64_t nerr = interp_O_Att(po, s.t, prj.swaths[sw].track.AREC, s.O, s.Att);
    LOG_LINE("sw=" << sw << " nt=" << s.t.size() << " nerrt=" << nerr);
    if (nerr == s.t.size()) WARNING_MSG("empty PO tables due to timestamp errors, swath " << sw);
  }
  LOG_LINE("/// OATTP_TBL_SWATHS_TIME=" << watch.text());
  return true;
}

bool make_SwathCorr(const CorrSource& source, const Swath& swath, const xyz& S, const Vector<PO>* po,
                    SwathCorr& corr) {
  const InvResult& res = source.res;
  const InvCorr& found = res.swaths[swath.id];
  corr = SwathCorr();
  corr.po = po;
  corr.rot = source.rot[swath.id];
  corr.flags = {source.inv.CALINTGEN, source.inv.CALINTNOB, source.inv.NOZ};
  corr.AREC = swath.track.AREC;  // positions as the inversion interpolated them
  corr.CM = source.manual.on;
  corr.CDT = source.manual.tcorr != 0;
  corr.tcorr = static_cast<double>(source.manual.tcorr);
  corr.S = S;
  if (found.cal >= 0) {
    const Calib& cal = res.calib[static_cast<size_t>(found.cal)];
    corr.CL = res.CL;
    corr.CB = res.CB;
    corr.CI = res.CI;
    corr.L = cal.L;
    corr.B = cal.B;
    for (int k = 0; k < N_INTERNAL; k++) corr.I[k] = cal.I(k);
  }
  if (!found.Tt.empty()) {
    corr.CT = res.CT;
    corr.CA = res.CA;
    corr.Tt = &found.Tt;
    corr.At = &found.At;
    corr.t0 = found.t0;
    corr.Dt = found.Dt;
  }
  if (!init_SwathCorr(corr)) {
    ERROR_MSG("no usable trajectory for swath " << swath.id);
    return false;
  }
  return true;
}

bool corr_tbl_swaths(const Project& prj, const CorrSource& source, const std::vector<SwathId>& swc,
                     const SwathVector<InvSamples>& samples, const SwathVector<SampleIndex>& index, bool fill,
                     int nthreads, SwathVector<SCorrTbl>& tables) {
  const InvResult& res = source.res;
  LOG_ENTER("corr_tbl_swaths nsw=" << prj.swaths.size() << " nswc=" << swc.size() << " CL=" << res.CL
                                   << " CB=" << res.CB << " CI=" << res.CI << " CT=" << res.CT
                                   << " CA=" << res.CA << " CM=" << source.manual.on
                                   << " CDT=" << (source.manual.tcorr != 0) << " FWD=0");
  tables = SwathVector<SCorrTbl>(prj.swaths);
  for (const SwathId sw : swc) {
    Vector<PO> po;
    double dt;
    SwathCorr corr;
    if (!load_POC_TMP(prj.swaths[sw].cache, sw, po, dt) ||
        !make_SwathCorr(source, prj.swaths[sw], {0, 0, 0}, &po, corr)) {
      ERROR_MSG("missing or bad trajectory cache, swath " << prj.swaths[sw].path());
      return false;
    }
    const Image<xyz> none(mTsub, mTsub, NO_CORR);
    Vector<Image<xyz>>& C = tables[sw].C;
    C.resize(index[sw].TI.size(), none);
    CorrCursor cursor;
    StatXYZ stat;
    for (uint64_t s = 0; s < index[sw].where.size(); s++) {
      const xyz c = comp_point_corr(corr, cursor, samples[sw].P[s], samples[sw].t[s]);
      C[index[sw].where[s] / mTn][index[sw].where[s] % mTn] = c;
      if (c.z != NODATA) stat.add(to_dxyz(c));
    }
    const uint64_t nfilled =
        fill ? fill_SCorr(index[sw].TI, index[sw].untimed, nthreads, tables[sw]) : uint64_t{0};
    const dxyz m = stat.mean();
    LOG_LINE("comp_corr_tbl sw=" << sw << " nt=" << index[sw].TI.size() << " mcorr=" << m.x << ' ' << m.y
                                 << ' ' << m.z << " nfilled=" << nfilled << "/" << index[sw].untimed.size());
  }
  return true;
}
}  // namespace veld
