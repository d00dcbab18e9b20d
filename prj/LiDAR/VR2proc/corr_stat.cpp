#include "prj/LiDAR/VR2proc/corr_stat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lib/Geometry/xy.h"
#include "lib/general/log.h"
#include "lib/general/result_file.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTidx_r/tile_geom.h"

namespace veld {
namespace {
constexpr float ICS_ANG_MAX = 45;   // degrees, largest plausible angle along the track
constexpr float THETA_MAX = 89.9f;  // degrees, across it: the scanner looks down

void put_stat(std::ostream& os, const StatXYZ& s, const std::string& name = "") {
  for (const dxyz& v : {s.mean(), s.stddev(), s.rms(), s.vmin, s.vmax}) {
    os << "  ";
    put_xyz(os, v);
  }
  os << "  " << s.n << name << '\n';
}

struct ICSstat {  // of one swath
  double AGL = 0, width = 0, FOV = 0, rms = 0;
  double roll = 0, pitch = 0, yaw = 0;
  int64_t nlarge = 0, n = 0;
  bool inside = true;  // the boxes of points and trajectory meet
};

double fold180(double a) { return std::remainder(a, 360.0); }

ICSstat comp_ICS_stat(const InvSamples& s, const SwRot& rot) {
  ICSstat r;
  double theta_min = 1e9, theta_max = -1e9, left = 1e9, right = -1e9, su2 = 0;
  double cy = 0, sy = 0;
  dxy pmin{1e18, 1e18}, pmax{-1e18, -1e18}, omin{1e18, 1e18}, omax{-1e18, -1e18};
  TrajFrame frame;
  for (uint64_t i = 0; i < s.t.size(); i++) {
    if (s.O[i].z == NO_PO.z) continue;
    comp_TrajFrame(s.O[i], s.Att[i], rot, frame);
    const BodyICS b = comp_BodyICS(frame, s.P[i]);
    const dxyz &P = s.P[i], &O = s.O[i];
    r.n++;
    r.AGL += O.z - P.z;
    r.roll += fold180(s.Att[i].x);
    r.pitch += fold180(s.Att[i].y);
    cy += std::cos(s.Att[i].z / RAD2DEG);
    sy += std::sin(s.Att[i].z / RAD2DEG);
    pmin = {std::min(pmin.x, P.x), std::min(pmin.y, P.y)};
    pmax = {std::max(pmax.x, P.x), std::max(pmax.y, P.y)};
    omin = {std::min(omin.x, O.x), std::min(omin.y, O.y)};
    omax = {std::max(omax.x, O.x), std::max(omax.y, O.y)};
    if (b.theta == NO_ANGLE || b.phi == NO_ANGLE || std::fabs(b.phi) > ICS_ANG_MAX ||
        std::fabs(b.theta) > THETA_MAX || b.ICS.z <= 0) {
      r.nlarge++;
      continue;
    }
    theta_min = std::min(theta_min, static_cast<double>(b.theta));
    theta_max = std::max(theta_max, static_cast<double>(b.theta));
    left = std::min(left, static_cast<double>(b.ICS.y));
    right = std::max(right, static_cast<double>(b.ICS.y));
    su2 += static_cast<double>(b.ICS.x) * b.ICS.x;
  }
  if (r.n == 0) {
    r.inside = false;
    return r;
  }
  const double n = static_cast<double>(r.n);
  r.AGL /= n;
  r.roll /= n;
  r.pitch /= n;
  r.yaw = std::atan2(sy, cy) * RAD2DEG;
  if (r.n > r.nlarge) {
    r.FOV = theta_max - theta_min;
    r.width = right - left;
    r.rms = std::sqrt(su2 / static_cast<double>(r.n - r.nlarge));
  }
  // A point lies within a few heights of the track, so the boxes, grown by that, must meet.
  const double grow = 4 * std::fabs(r.AGL) + 10;
  r.inside =
      pmin.x < omax.x + grow && omin.x - grow < pmax.x && pmin.y < omax.y + grow && omin.y - grow < pmax.y;
  return r;
}
}  // namespace

bool Cimg_stat_swaths(const Project& prj, const std::vector<SwathId>& swc,
                      const SwathVector<SCorrTbl>& tables) {
  LOG_ENTER("Cimg_stat_swaths nsw=" << prj.swaths.size() << " nswc=" << swc.size()
                                    << " level=" << prj.scale.level << " mTsize=" << prj.scale.mTsize);
  const Stopwatch watch;
  const std::string name = prj.name + "_DXYZcorr_stat.log";
  LOG_MSG("Writing correction stats " << name);
  ResultFile file;
  if (!file.open(name)) return false;
  file.fs << "Swath# Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts FileName [m]\n";
  StatXYZ total;
  for (const SwathId sw : swc) {
    const SCorrTbl& table = tables[sw];
    StatXYZ stat;
    for (const Image<xyz>& tile : table.C)
      for (uint64_t i = 0; i < tile.size(); i++)
        if (tile[i].z != NODATA) stat.add(to_dxyz(tile[i] + table.T0));
    if (stat.n == 0) continue;
    file.fs << sw;
    put_stat(file.fs, stat, ' ' + prj.swaths[sw].path());
    total.add(stat);
  }
  if (total.n == 0) {
    ERROR_MSG("no correction in any microtile");
    return false;
  }
  file.fs << "\nNSwaths Mean{X Y Z} StdDev{X Y Z} RMS{X Y Z} Min{X Y Z} Max{X Y Z} NPts [m]\n" << swc.size();
  put_stat(file.fs, total);
  if (!file.commit()) return false;
  LOG_MSG("TOTAL CORRECTION STATISTICS");
  const auto row = [](const char* label, const dxyz& v) {
    LOG_MSG(label << v.x << ' ' << v.y << ' ' << v.z);
  };
  row("Mean      ", total.mean());
  row("StdDev    ", total.stddev());
  row("RMS       ", total.rms());
  row("Min       ", total.vmin);
  row("Max       ", total.vmax);
  LOG_MSG("N vectors " << total.n);
  LOG_MSG("N swaths  " << swc.size());
  const dxyz m = total.mean();
  LOG_MSG("Global correction mean: " << m.x << ' ' << m.y << ' ' << m.z);
  LOG_LINE("/// CIMG_STAT_SWATHS TIME=" << watch.text());
  return true;
}

bool Cimg_stat_corrtbl(const Project& prj, const std::vector<SwathId>& swc,
                       const SwathVector<SampleIndex>& index, const SwathVector<SCorrTbl>& tables) {
  const std::string name = prj.name + "_corr.txt";
  LOG_MSG("Writing correction tables " << name);
  ResultFile file;
  if (!file.open(name)) return false;
  file.fs << "X Y Corr{X Y Z} Swath#\n";
  const TileGeom geom = make_tile_geom(prj.scale.level);
  for (const SwathId sw : swc) {
    const SCorrTbl& table = tables[sw];
    LOG_LINE("Cimg_stat_corrtbl sw=" << sw << " nt=" << table.C.size());
    for (uint64_t k = 0; k < table.C.size(); k++) {
      const TIsxy& tile = index[sw].TI[k];
      for (int m = 0; m < static_cast<int>(mTn); m++) {
        const xyz& c = table.C[k][m];
        if (c.z == NODATA) continue;
        const dxyz v = to_dxyz(c + table.T0);
        const double x = tile_origin(geom, tile.x) + (m % mTsub + 0.5) * geom.mTsize;
        const double y = tile_origin(geom, tile.y) + (m / mTsub + 0.5) * geom.mTsize;
        char line[120];
        std::snprintf(line, sizeof line, "%d %d  %.3f %.3f %.3f  %d\n", static_cast<int>(x),
                      static_cast<int>(y), v.x, v.y, v.z, sw.number);
        file.fs << line;
      }
    }
  }
  return file.commit();
}

bool ICS_stat_swaths(const Project& prj, const SwathVector<SwRot>& rot, const std::vector<SwathId>& swc,
                     const SwathVector<InvSamples>& samples, ICSresult& result) {
  const bool large = prj.scale.large;
  const double AGLmax = large ? 20000 : 8000, SWmax = 2 * AGLmax;  // m
  LOG_ENTER("ICS_stat_swaths nsw=" << prj.swaths.size() << " nswc=" << swc.size() << " large=" << large
                                   << " AGLmax=" << AGLmax << " SWmax=" << SWmax
                                   << " ICS_ANG_MAX=" << ICS_ANG_MAX);
  const std::string name = prj.name + "_BF_ICS_stat.log";
  LOG_MSG("Writing body frame and internal coordinate stats " << name);
  ResultFile file;
  if (!file.open(name)) return false;
  file.fs << "Swath# Group# Ch# MainCh AGL Width Roll Pitch Yaw FOV RMS NLargeErr NPts Pass FileName "
             "[AGL Width RMS m, angles degrees]\n";
  int nlarge = 0;
  for (const SwathId sw : swc) {
    const Swath& swath = prj.swaths[sw];
    const ICSstat s = comp_ICS_stat(samples[sw], rot[sw]);
    const bool large_err =
        !s.inside || s.n == 0 || static_cast<double>(s.nlarge) >= 0.01 * static_cast<double>(s.n);
    const bool suspicious = s.AGL > AGLmax || s.AGL <= 0 || s.width > SWmax;
    const bool pass = !large_err && !suspicious;
    if (!s.inside) LOG_LINE("<!> BBOX sw=" << sw);
    char line[200];
    std::snprintf(line, sizeof line,
                  "%3d %2d %2d %1d  %6.1f %6.1f  %+6.1f %+6.1f %+6.1f  %5.1f %6.3f  %6d %6d %2d ", sw.number,
                  swath.group, swath.channel, swath.is_main() ? 1 : 0, s.AGL, s.width, s.roll, s.pitch, s.yaw,
                  s.FOV, s.rms, static_cast<int>(s.nlarge), static_cast<int>(s.n), pass ? 1 : 0);
    file.fs << line << swath.path() << '\n';
    result.AGL += s.AGL / static_cast<double>(swc.size());
    result.width += s.width / static_cast<double>(swc.size());
    if (large_err) nlarge++;
    if (!pass) result.nerr++;
    if (suspicious) result.nwarn++;
  }
  if (!file.commit()) return false;
  if (nlarge > 0) {
    WARNING_MSG(
        "inconsistent geometry (missing WKT or geoid, wrong unit/projection, wrong PO format options, "
        "inaccurate PO data) for "
        << nlarge << " swaths");
    WARNING_MSG(
        nlarge << " swaths have large discrepancy with trajectory data (>1% large errors) or bounding box "
                  "mismatch");
  }
  if (result.nwarn > 0) WARNING_MSG(result.nwarn << " swaths have a suspicious AGL or swath witdh");
  LOG_MSG("Mean AGL~" << result.AGL << " Swath Width~" << result.width);
  LOG_LINE("N sw ICS err: " << result.nerr);
  LOG_LINE("N sw ICS LARGE err: " << nlarge);
  LOG_LINE("N sw ICS AGL/W err: " << result.nwarn);
  return true;
}
}  // namespace veld
