// From the vertices of a registered pair to records in ground units with times.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"

namespace veld {
namespace {
// Vegetation gives two swaths different surfaces: they look from other sides, and fewer points see less of the ground.
// Real strips of forest that agree on the ground within 1 cm differ by 2 to 5 cm in height, where pixels are rough by
// 0.3 to 0.4 m, over a whole pair, and by as much as 9 cm in plan.
constexpr float ROUGH_COMMON = 0.08f;  // m per m of roughness

struct TimeTile {  // vertex times of one tile of one swath
  bool fixed = false;
  double t0 = 0, tmin = 0, tmax = 0;
  Image<int32_t> code;
};

bool read_time_tile(const Project& prj, const InterSwath& s, uint32_t k, TimeTile& t) {
  t.fixed = prj.swaths[s.sw].fixed;
  t.t0 = std::fabs(s.info.t0) < 1e300 ? s.info.t0 : 0;  // a reference without times
  t.tmin = s.info.tmin;
  t.tmax = s.info.tmax;
  return t.fixed || s.tables.read_Vt(k, t.code);
}

// Time at a corner of the microtiles; nerrt counts those outside the range of the swath, which are clamped.
double vertex_time(const TimeTile& t, int i, int j, uint64_t& nerrt) {
  if (t.fixed) return t.t0;
  const int32_t code = t.code(i, j);
  if (code == NO_I32) return DUT_NOTIME;
  const double time = t.t0 + code * TICK_S;
  if (time >= t.tmin && time <= t.tmax) return time;
  nerrt++;
  return time < t.tmin ? t.tmin : t.tmax;
}
}  // namespace

bool write_DUT(const Project& prj, const InterSwath& s1, const InterSwath& s2, const InterTiles& inter,
               const NRresult& reg, int Jend, std::vector<DUTstr>& rec, StatXYZ& stat) {
  const TileScale& scale = prj.scale;
  const int dxp = comp_dxp(Jend);
  const int gsize = static_cast<int>(std::lround(scale.mTsize * static_cast<float>(1 << Jend)));
  const float pixel = scale.GSD() * static_cast<float>(1 << std::max(Jend - MG_SKIP, 0));  // m
  LOG_ENTER("write_DUT sw1=" << s1.sw << " sw2=" << s2.sw << " fx1=" << prj.swaths[s1.sw].fixed
                             << " fx2=" << prj.swaths[s2.sw].fixed << " nt=" << inter.tiles.size()
                             << " dim=" << scale.dim << " gsize=" << gsize << " mTsub=" << mTsub
                             << " Tsize=" << scale.Tsize);
  LOG_LINE("Tsize=" << scale.Tsize << " mTsize=" << scale.mTsize << " GSD=" << scale.GSD() << " dxp=" << dxp
                    << " t01=" << s1.info.t0 << " t02=" << s2.info.t0);
  rec.clear();
  stat = StatXYZ{};
  constexpr int64_t origin = static_cast<int64_t>(GROUND_ORIGIN);
  uint64_t np0 = 0, nptime = 0, nerrt = 0, nout = 0;
  for (size_t ti = 0; ti < inter.tiles.size(); ti++) {
    const ToccTile& tile = inter.tiles[ti];
    const Image<xyz>&Def = reg.Def(static_cast<int64_t>(ti)), &Unc = reg.Unc(static_cast<int64_t>(ti));
    const Image<float>&Zv = reg.Zv(static_cast<int64_t>(ti)), &Rough = reg.Rough(static_cast<int64_t>(ti));
    ASSERT(Def.xsize() == dxp && Def.ysize() == dxp && Zv.xsize() == dxp && Unc.xsize() == dxp);
    TimeTile t1, t2;
    if (!read_time_tile(prj, s1, tile.k, t1) || !read_time_tile(prj, s2, tile.k2, t2)) return false;
    const int X0 = static_cast<int>((static_cast<int64_t>(tile.x) << scale.level) + origin);
    const int Y0 = static_cast<int>((static_cast<int64_t>(tile.y) << scale.level) + origin);
    for (int j = 0; j < dxp; j++)
      for (int i = 0; i < dxp; i++) {
        const xyz d = Def(i, j);
        if (d.z == NR_NODATA || Zv(i, j) == NR_NODATA) continue;
        np0++;
        DUTstr r;
        r.X = X0 + i * gsize;
        r.Y = Y0 + j * gsize;
        r.Z = Zv(i, j);
        r.Disp = {d.x * pixel, d.y * pixel, d.z};
        const xyz u = Unc(i, j);
        r.Com = ROUGH_COMMON * Rough(i, j);
        const float com_xy = DUT_COM_XY * r.Com;
        r.Unc = {std::hypot(u.x * pixel, com_xy), std::hypot(u.y * pixel, com_xy), std::hypot(u.z, r.Com)};
        r.Time1 = vertex_time(t1, i << Jend, j << Jend, nerrt);
        r.Time2 = vertex_time(t2, i << Jend, j << Jend, nerrt);
        if (r.Time1 == DUT_NOTIME || r.Time2 == DUT_NOTIME)
          r.Time1 = r.Time2 = DUT_NOTIME;
        else
          nptime++;
        nout += !(std::fabs(r.Disp.x) <= 1000 && std::fabs(r.Disp.y) <= 1000 && std::fabs(r.Disp.z) <= 1000);
        stat.add(to_dxyz(r.Disp));
        rec.push_back(r);
      }
  }
  if (nout > 0) LOG_LINE("<!> nout=" << nout);
  LOG_LINE("np0=" << np0 << " np=" << rec.size() << " nptime=" << nptime << " nerrt=" << nerrt);
  return true;
}
}  // namespace veld
