// The swath as a whole: its minimum bounding rectangle, and the index file.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"

namespace {
struct Cov {
  double mx = 0, my = 0, cxx = 0, cyy = 0, cxy = 0;
};

Cov comp_cov(const std::vector<double>& u, const std::vector<double>& v) {
  Cov c;
  const double n = static_cast<double>(u.size());
  for (size_t i = 0; i < u.size(); i++) {
    c.mx += u[i];
    c.my += v[i];
  }
  c.mx /= n;
  c.my /= n;
  for (size_t i = 0; i < u.size(); i++) {
    const double x = u[i] - c.mx, y = v[i] - c.my;
    c.cxx += x * x;
    c.cyy += y * y;
    c.cxy += x * y;
  }
  c.cxx /= n;
  c.cyy /= n;
  c.cxy /= n;
  LOG_LINE("comp_cov cxx=" << c.cxx << " cyy=" << c.cyy << " cxy=" << c.cxy << " mean: " << c.mx << " "
                           << c.my);
  return c;
}
}  // namespace

bool mtile_MBR_stat(const TileGeom& g, const Vector<TIsxy>& TI, const Vector<uint32_t>& counts,
                    LTidxInfo& info) {
  LOG_ENTER("mtile_MBR_stat mTsub=" << mTsub << " level=" << g.level << " mTsize=" << g.mTsize
                                    << " NMT_MIN=" << NMT_MIN);
  uint64_t np = 0;
  uint32_t nmt = 0;
  std::vector<double> u, v;  // lower left corners of the occupied microtiles, in tiles from (XImin, YImin)
  for (uint64_t k = 0; k < TI.size(); k++)
    for (int mt = 0; mt < mTn; mt++) {
      const uint32_t n = counts.val[k * mTn + static_cast<uint64_t>(mt)];
      np += n;
      nmt += n > 0;
      if (n <= NMT_MIN) continue;
      u.push_back((TI.val[k].x - info.XImin) + (mt % mTsub) * 0.03125);
      v.push_back((TI.val[k].y - info.YImin) + (mt / mTsub) * 0.03125);
    }
  info.np = np;
  info.nmt = nmt;
  if (u.size() < 4) return false;
  const Cov cov = comp_cov(u, v);
  const double theta = cov.cxy == 0 && cov.cxx == 0 ? 0 : 0.5 * std::atan2(2 * cov.cxy, cov.cxx - cov.cyy);
  const double co = std::cos(theta), si = std::sin(theta);
  double rmin = BIG, rmax = -BIG, smin = BIG, smax = -BIG;
  for (size_t i = 0; i < u.size(); i++) {
    const double r = u[i] * co + v[i] * si, s = v[i] * co - u[i] * si;
    rmin = std::min(rmin, r);
    rmax = std::max(rmax, r);
    smin = std::min(smin, s);
    smax = std::max(smax, s);
  }
  LOG_LINE("theta=" << theta * 57.29577951308232 << " deg - MBR size: " << rmax - rmin << " x " << smax - smin
                    << " tiles");
  if (!(rmax > rmin && smax > smin)) return false;
  const double r4[4] = {rmin, rmax, rmax, rmin}, s4[4] = {smin, smin, smax, smax};
  for (int c = 0; c < 4; c++) {
    info.mbr[c][0] = (r4[c] * co - s4[c] * si + info.XImin) * g.Tsize + GROUND_ORIGIN;
    info.mbr[c][1] = (r4[c] * si + s4[c] * co + info.YImin) * g.Tsize + GROUND_ORIGIN;
  }
  LOG_LINE("MBR: " << info.mbr[0][0] << " " << info.mbr[0][1] << "  " << info.mbr[1][0] << " "
                   << info.mbr[1][1] << "  " << info.mbr[2][0] << " " << info.mbr[2][1] << "  "
                   << info.mbr[3][0] << " " << info.mbr[3][1]);
  const double area = g.mTsize * g.mTsize * nmt, points = static_cast<double>(np);
  LOG_LINE(points / area << " pts/m2, area=" << area * 1e-6 << " km2 "
                         << points / static_cast<double>(TI.size()) << " pts/tile, " << points / nmt
                         << " pts/mtile");
  return true;
}

bool write_LTidx(const std::string& path, const LTidxHdr& hdr, const std::vector<uint8_t>& xcls,
                 const LTidxInfo& info, const Vector<TIsxy>& TI) {
  const std::string name = cache_name(path, EXT_TIDX), part = name + ".part";
  BufBinFileOut out(TILE_BUFFER);
  const bool written = out.open(part, 0) && out.write(&hdr, sizeof hdr) &&
                       (xcls.empty() || out.write(xcls.data(), xcls.size())) &&
                       out.write(&info, sizeof info) && out.write(TI.val, TI.size() * sizeof(TIsxy)) &&
                       out.close();
  if (written && rename_file(part, name)) return true;
  remove_file(part);
  return false;
}
