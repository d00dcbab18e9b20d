// The swath as a whole: its minimum bounding rectangle, and the index file.
#include <algorithm>
#include <bit>
#include <cmath>

#include "lib/Geometry/angle.h"
#include "lib/general/log.h"
#include "prj/LiDAR/LmTidx_w/LmTidx_w_internal.h"

namespace veld {
namespace {
struct Cov {
  double mx = 0, my = 0, cxx = 0, cyy = 0, cxy = 0;
};

struct Corners {  // lower left corners of the occupied microtiles, in tiles from (XImin, YImin)
  const Vector<TIsxy>& TI;
  const Vector<OccBits>& occ;
  uint32_t XImin, YImin;
  // Calls use(u, v) for each, in order. They are walked again and again instead of being listed: a large swath
  // has tens of millions.
  template <typename Use>
  void walk(Use use) const {
    for (uint64_t k = 0; k < TI.size(); k++)
      for (int w = 0; w < mTn / 64; w++)
        for (uint64_t bits = occ[k].word[w]; bits; bits &= bits - 1) {
          const int mt = w * 64 + std::countr_zero(bits);
          use((TI[k].x - XImin) + (mt % mTsub) * 0.03125, (TI[k].y - YImin) + (mt / mTsub) * 0.03125);
        }
  }
};

Cov comp_cov(const Corners& corners, uint64_t count) {
  Cov c;
  const double n = static_cast<double>(count);
  corners.walk([&](double u, double v) {
    c.mx += u;
    c.my += v;
  });
  c.mx /= n;
  c.my /= n;
  corners.walk([&](double u, double v) {
    const double x = u - c.mx, y = v - c.my;
    c.cxx += x * x;
    c.cyy += y * y;
    c.cxy += x * y;
  });
  c.cxx /= n;
  c.cyy /= n;
  c.cxy /= n;
  LOG_LINE("comp_cov cxx=" << c.cxx << " cyy=" << c.cyy << " cxy=" << c.cxy << " mean: " << c.mx << " "
                           << c.my);
  return c;
}
}  // namespace

OccBits occupied_bits(const uint32_t* counts) {
  OccBits occ;
  for (int mt = 0; mt < mTn; mt++) occ.word[mt / 64] |= uint64_t{counts[mt] > NMT_MIN} << mt % 64;
  return occ;
}

bool mtile_MBR_stat(const TileGeom& g, const Vector<TIsxy>& TI, const Vector<OccBits>& occ, LTidxInfo& info) {
  LOG_ENTER("mtile_MBR_stat mTsub=" << mTsub << " level=" << g.level << " mTsize=" << g.mTsize
                                    << " NMT_MIN=" << NMT_MIN);
  uint64_t count = 0;
  for (const OccBits& tile : occ)
    for (const uint64_t word : tile.word) count += static_cast<uint64_t>(std::popcount(word));
  if (count < 4) return false;
  const Corners corners{TI, occ, info.XImin, info.YImin};
  const Cov cov = comp_cov(corners, count);
  const double theta = cov.cxy == 0 && cov.cxx == 0 ? 0 : 0.5 * std::atan2(2 * cov.cxy, cov.cxx - cov.cyy);
  const double co = std::cos(theta), si = std::sin(theta);
  double rmin = BIG, rmax = -BIG, smin = BIG, smax = -BIG;
  corners.walk([&](double u, double v) {
    const double r = u * co + v * si, s = v * co - u * si;
    rmin = std::min(rmin, r);
    rmax = std::max(rmax, r);
    smin = std::min(smin, s);
    smax = std::max(smax, s);
  });
  LOG_LINE("theta=" << theta * DEG_PER_RAD << " deg - MBR size: " << rmax - rmin << " x " << smax - smin
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
  const double nmt = info.nmt, points = static_cast<double>(uint64_t{info.np}),
               area = g.mTsize * g.mTsize * nmt;
  LOG_LINE(points / area << " pts/m2, area=" << area * 1e-6 << " km2 "
                         << points / static_cast<double>(TI.size()) << " pts/tile, " << points / nmt
                         << " pts/mtile");
  return true;
}

bool write_LTidx(FamilyOut& family, const LTidxHdr& hdr, const std::vector<uint8_t>& xcls,
                 const LTidxInfo& info, const Vector<TIsxy>& TI) {
  SummedFileOut* const out = family.create(EXT_TIDX, TILE_BUFFER);
  return out && out->write(&hdr, sizeof hdr) && (xcls.empty() || out->write(xcls.data(), xcls.size())) &&
         out->write(&info, sizeof info) && out->write(TI.val, TI.size() * sizeof(TIsxy));
}
}  // namespace veld
