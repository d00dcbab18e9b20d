// Search of occurrences: which swaths have points around a control point, and their height there.
#include <algorithm>
#include <cmath>
#include <map>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "lib/threads/pool.h"
#include "prj/LiDAR/LmTQCGCP/LmTQCGCP.h"
#include "prj/LiDAR/LmTQCGCP/corr_lookup.h"
#include "prj/LiDAR/LmTQCGCP/gcp_fit.h"
#include "prj/LiDAR/LmTQCGCP/gcp_text.h"
#include "prj/LiDAR/LmTidx_r/LmTidx_r.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// What is known of a point's place.
struct Tiled {
  int gcp;
  uint32_t XI, YI;
};

struct Frame {  // tiles, both ends inside
  uint32_t x0 = UINT32_MAX, y0 = UINT32_MAX, x1 = 0, y1 = 0;
};

// The swaths to be searched: mobile ones if there are any; frame: of all these, also those that are not corrected.
// False after an ERROR line.
bool choose_swaths(const Project& prj, const SwathVector<SCorrTbl>* corr, std::vector<SwathId>& swaths,
                   std::vector<LTidxInfo>& info, Frame& frame) {
  const bool hasmob = mobile_only(prj);
  for (const Swath& s : prj.swaths.present()) {
    if (s.state == SwathState::no_grid || (hasmob && s.fixed)) continue;
    LTidxInfo t;
    if (!read_LTidxInfo(s.cache, t)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
      return false;
    }
    frame.x0 = std::min(frame.x0, uint32_t{t.XImin}), frame.x1 = std::max(frame.x1, uint32_t{t.XImax});
    frame.y0 = std::min(frame.y0, uint32_t{t.YImin}), frame.y1 = std::max(frame.y1, uint32_t{t.YImax});
    if (corr && !s.fixed && (*corr)[s.id].C.empty()) continue;  // not corrected
    swaths.push_back(s.id);
    info.push_back(t);
  }
  return true;
}

// Tiles of the points within the frame; report: warns of the others. False after an ERROR line when none is left.
bool comp_GCP_Tocc_Tlist(const std::vector<GCP>& gcp, const TileGeom& geom, const Frame& frame, bool report,
                         std::vector<Tiled>& tiled) {
  LOG_ENTER("comp_GCP_Tocc_Tlist nGCP=" << gcp.size());
  int nout = 0, ninvalid = 0;
  for (size_t i = 0; i < gcp.size(); i++) {
    const double x = (gcp[i].pos.x - GROUND_ORIGIN) / geom.Tsize,
                 y = (gcp[i].pos.y - GROUND_ORIGIN) / geom.Tsize;
    constexpr double end = GROUND_END * M_PER_UNIT;
    if (!(x >= 0 && y >= 0 && x * geom.Tsize < end && y * geom.Tsize < end) || !std::isfinite(gcp[i].pos.z)) {
      ninvalid++;
      continue;
    }
    const Tiled t{static_cast<int>(i), static_cast<uint32_t>(x), static_cast<uint32_t>(y)};
    if (t.XI < frame.x0 || t.XI > frame.x1 || t.YI < frame.y0 || t.YI > frame.y1)
      nout++;
    else
      tiled.push_back(t);
  }
  if (report && nout > 0) WARNING_MSG("GCP tiling: " << nout << " points outside bounding box");
  if (report && ninvalid > 0) WARNING_MSG("GCP tiling: " << ninvalid << " invalid point coordinates");
  if (tiled.empty()) ERROR_MSG("GCP tiling: no point left");
  return !tiled.empty();
}

struct SwathSearch {  // result of one swath
  std::vector<GCPoccur> occ;
  std::vector<GCPexport> points;
  uint64_t nread = 0, nused = 0;
  std::vector<GCPrefused> refused;
  int nlast = 0;
  bool scanned = false;
};

// One swath while it is searched.
class Searcher {
 public:
  Searcher(const Project& prj, const std::vector<GCP>& gcp, const GCPparam& par,
           const SwathVector<SCorrTbl>* corr, bool points)
      : prj_(prj),
        gcp_(gcp),
        par_(par),
        corr_(corr),
        points_(points),
        h_(static_cast<double>(prj.scale.GSD())) {}

  // near: points whose tile lies in the swath's box of tiles or beside it.
  bool search(SwathId sw, const std::vector<Tiled>& near, SwathSearch& res) const {
    const Swath& s = prj_.swaths[sw];
    SwTiles tiles;
    LTidxHdr hdr;
    if (!read_SwTiles(s.cache, tiles) || !read_LTidxHdr(s.cache, hdr)) {
      ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
      return false;
    }
    const bool last_only = (hdr.flags & (HDR_FIRST | HDR_ALL)) == 0;
    Vector<xyz> P;
    std::vector<uint8_t> in;
    for (const Tiled& t : near) {
      if (!has_tile_near(tiles, t)) continue;
      const GCP& g = gcp_[static_cast<size_t>(t.gcp)];
      dxyz c{0, 0, 0};
      if (corr_ && !s.fixed && !correction(tiles, sw, g.pos, c)) continue;
      if (!res.scanned && tiles.members.empty() && !open_points(tiles)) return damaged(s);
      res.scanned = true;
      const dxyz q = g.pos - c;  // where the point is in the swath as it is
      const int64_t XI = static_cast<int64_t>(std::floor((q.x - GROUND_ORIGIN) / tiles.geom.Tsize)),
                    YI = static_cast<int64_t>(std::floor((q.y - GROUND_ORIGIN) / tiles.geom.Tsize));
      const double x = q.x - (static_cast<double>(XI) * tiles.geom.Tsize + GROUND_ORIGIN),
                   y = q.y - (static_cast<double>(YI) * tiles.geom.Tsize + GROUND_ORIGIN);
      uint64_t np = 0;
      if (!read_around(tiles, XI, YI, x, y, P, np)) return damaged(s);
      if (np == 0) continue;
      res.nread += np;
      if (g.last && !last_only) {
        res.nlast++;
        continue;
      }
      measure(sw, t.gcp, c, x, y, P, np, in, res);
    }
    return true;
  }

 private:
  static bool damaged(const Swath& s) {
    ERROR_MSG("missing/incompatible temp. tile files, " << s.path());
    return false;
  }
  static bool has_tile_near(const SwTiles& tiles, const Tiled& t) {
    for (int dy = -1; dy <= 1; dy++)
      for (int dx = -1; dx <= 1; dx++)
        if (tiles.find(int64_t{t.XI} + dx, int64_t{t.YI} + dy) >= 0) return true;
    return false;
  }
  // The correction of the ground that comes to lie at pos.
  bool correction(const SwTiles& tiles, SwathId sw, const dxyz& pos, dxyz& c) const {
    const SCorrTbl& table = (*corr_)[sw];
    if (!corr_at_place(tiles, table, pos.x, pos.y, c)) return false;
    return corr_at_place(tiles, table, pos.x - c.x, pos.y - c.y, c);
  }
  bool read_around(const SwTiles& tiles, int64_t XI, int64_t YI, double x, double y, Vector<xyz>& P,
                   uint64_t& np) const {
    const double r = GCP_REACH * h_;
    uint64_t nmtr = 0, nmtf = 0;
    np = 0;
    if (tiles.members.empty())
      return read_LmT_tile_bbox(tiles, XI, YI, x - r, x + r, y - r, y + r, P, np, nmtr, nmtf);
    std::vector<xyz> all;
    for (const SwTiles& m : tiles.members) {
      uint64_t n = 0;
      if (!read_LmT_tile_bbox(m, XI, YI, x - r, x + r, y - r, y + r, P, n, nmtr, nmtf)) return false;
      all.insert(all.end(), P.val, P.val + n);
    }
    np = all.size();
    P.resize(np);
    std::copy(all.begin(), all.end(), P.val);
    return true;
  }
  void measure(SwathId sw, int gcp, const dxyz& c, double x, double y, const Vector<xyz>& P, uint64_t np,
               std::vector<uint8_t>& in, SwathSearch& res) const {
    const GCPfit fit = comp_GCP_fit(P.val, np, x, y, h_, in);
    const GCP& g = gcp_[static_cast<size_t>(gcp)];
    LOG_LINE("GCP " << g.name << " sw=" << sw << " np=" << np << " npts=" << fit.npts << " ok=" << fit.ok
                    << " density=" << fit.density << " roughness=" << fit.roughness);
    if (fit.npts == 0) return;  // beyond the swath's edge
    const bool sparse =
        fit.density<static_cast<double>(par_.GCP_MIND), rough = fit.roughness> static_cast<double>(
            par_.GCP_MAXS);
    if (!fit.ok || sparse || rough) {
      res.refused.push_back({gcp, sw,
                             sparse    ? Refusal::density
                             : !fit.ok ? Refusal::edge
                                       : Refusal::roughness});
      return;
    }
    const int group = prj_.swaths[sw].group;
    GCPoccur o;
    o.gcp = gcp;
    o.sw = sw;
    o.group = group;
    o.corr = c;
    o.z_lidar = fit.z + c.z;
    o.dz = o.z_lidar - g.pos.z;
    o.slope_x = fit.slope_x, o.slope_y = fit.slope_y;
    o.density = fit.density, o.roughness = fit.roughness, o.unc = fit.unc;
    o.npts = fit.npts;
    o.out_pct = 100.0 * (fit.npts - fit.nin) / fit.npts;
    if (par_.tin) {
      o.tin = GCP_TIN(P.val, np, x, y);
      o.tin.z_tin += c.z;
      for (dxyz& T : o.tin.T) T = {T.x - x, T.y - y, T.z + c.z};
    }
    res.nused += static_cast<uint64_t>(fit.nin);
    res.occ.push_back(o);
    if (!points_) return;
    for (uint64_t i = 0; i < np; i++)
      res.points.push_back({{static_cast<double>(P[i].x) - x + g.pos.x,
                             static_cast<double>(P[i].y) - y + g.pos.y, static_cast<double>(P[i].z) + c.z},
                            sw,
                            group,
                            in[i] != 0});
  }

  const Project& prj_;
  const std::vector<GCP>& gcp_;
  const GCPparam& par_;
  const SwathVector<SCorrTbl>* corr_;
  const bool points_;
  const double h_;  // m, kernel unit
};

// Points by rows of tiles, so that a swath finds those of its box without looking at all.
std::vector<Tiled> points_near(const std::map<uint32_t, std::vector<Tiled>>& rows, const LTidxInfo& info) {
  std::vector<Tiled> near;
  const uint32_t y0 = info.YImin > 0 ? info.YImin - 1 : 0;
  for (auto row = rows.lower_bound(y0); row != rows.end() && row->first <= info.YImax + 1; ++row)
    for (const Tiled& t : row->second)
      if (t.XI + 1 >= info.XImin && t.XI <= info.XImax + 1) near.push_back(t);
  std::sort(near.begin(), near.end(), [](const Tiled& a, const Tiled& b) { return a.gcp < b.gcp; });
  return near;
}

void warn_search(const GCPcounts& n, size_t nocc) {
  if (!n.refused.empty())
    WARNING_MSG(n.refused.size()
                << " GCP occurrences rejected due to bad data (density, roughness, irregular sampling)");
  if (n.nlast > 0)
    WARNING_MSG(
        n.nlast << " GCP occurrences left out: last returns are wanted (-gcp_last), the tiles hold others "
                   "(-keep_all, -last)");
  if (nocc > 0) return;
  if (!n.refused.empty())
    WARNING_MSG("all GCP filtered out (insufficient density or high roughness)");
  else if (n.nlast == 0)
    WARNING_MSG("no overlap between LiDAR data and GCP");
}
}  // namespace

const char* refusal_text(Refusal why) {
  switch (why) {
    case Refusal::edge:
      return "edge of a swath, or a hole";
    case Refusal::density:
      return "too few laser points (-gcp_d_min)";
    case Refusal::roughness:
      return "too rough (-gcp_r_max)";
  }
  return "";
}

bool load_GCP(const GCPparam& par, const GeoRefParam& georef, std::vector<GCP>& gcp, std::string& used) {
  const GCPdefaults def{!par.check, par.F0, static_cast<double>(par.S0) / DATAUNIT_Z};
  if (!read_GCP(par.file, par.col, georef, def, gcp, used)) {
    ERROR_MSG("could not read GCP file " << par.file);
    return false;
  }
  LOG_MSG("Reading " << gcp.size() << " GCP, format=" << used << ", default ctrl=" << !par.check
                     << " last=" << par.F0 << " sigma=" << par.S0);
  for (GCP& g : gcp) {
    g.pos = {g.pos.x * DATAUNIT, g.pos.y * DATAUNIT, g.pos.z * DATAUNIT_Z};
    g.sigma *= DATAUNIT_Z;
  }
  return true;
}

bool robust_QC_GCP(const Project& prj, const std::vector<GCP>& gcp, const GCPparam& par,
                   const SwathVector<SCorrTbl>* corr, int nthreads, std::vector<GCPoccur>& occ,
                   GCPcounts& counts, std::vector<GCPexport>* points) {
  LOG_ENTER("robust_QC_GCP nsw=" << prj.swaths.size() << " nGCP=" << gcp.size()
                                 << " GCP_MIND=" << par.GCP_MIND << " GCP_MAXS=" << par.GCP_MAXS);
  const Stopwatch time;
  occ.clear();
  counts = GCPcounts{};
  counts.corrected = corr != nullptr;
  counts.FWHM = KERNEL_FWHM * static_cast<double>(prj.scale.GSD());
  LOG_MSG("ABSOLUTE Z " << (corr ? "POST-CORRECTION " : "") << "QC: ");
  std::vector<SwathId> swaths;
  std::vector<LTidxInfo> info;
  Frame frame;
  if (!choose_swaths(prj, corr, swaths, info, frame)) return false;
  std::vector<Tiled> tiled;
  if (!comp_GCP_Tocc_Tlist(gcp, make_tile_geom(prj.scale.level), frame, corr == nullptr, tiled)) return false;
  counts.nGCP = static_cast<int>(tiled.size());
  std::map<uint32_t, std::vector<Tiled>> rows;
  for (const Tiled& t : tiled) rows[t.YI].push_back(t);
  std::vector<SwathSearch> found(swaths.size());
  const Searcher searcher(prj, gcp, par, corr, points != nullptr);
  const int64_t bad = run_units(static_cast<int64_t>(swaths.size()), nthreads, [&](int64_t i, int) {
    const size_t k = static_cast<size_t>(i);
    const std::vector<Tiled> near = points_near(rows, info[k]);
    return near.empty() || searcher.search(swaths[k], near, found[k]);
  });
  if (bad >= 0) return false;
  for (const SwathSearch& f : found) {
    occ.insert(occ.end(), f.occ.begin(), f.occ.end());
    if (points) points->insert(points->end(), f.points.begin(), f.points.end());
    counts.nscan += f.scanned;
    counts.nread += f.nread;
    counts.nused += f.nused;
    counts.refused.insert(counts.refused.end(), f.refused.begin(), f.refused.end());
    counts.nlast += f.nlast;
  }
  LOG_MSG(occ.size() << " occurrences, scanned " << counts.nscan << " swaths for " << counts.nGCP
                     << " GCP, read " << counts.nread << " p, used " << counts.nused
                     << " p, correction=" << (corr ? "yes" : "no") << ", export=" << (points ? "yes" : "no")
                     << " | GCP_TIME=" << time.text());
  warn_search(counts, occ.size());
  return true;
}
}  // namespace veld
