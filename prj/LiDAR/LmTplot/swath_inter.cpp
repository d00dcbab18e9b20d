#include "prj/LiDAR/LmTplot/swath_inter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "lib/general/log.h"

namespace veld {
namespace {
struct Span {
  double lo = 0, hi = 0;
};

// Extent of a rectangle along the direction (ux, uy).
Span project(const LTidxInfo& info, double ux, double uy) {
  Span s{2e307, -2e307};
  for (int c = 0; c < 4; c++) {
    const double v = info.mbr[c][0] * ux + info.mbr[c][1] * uy;
    s.lo = std::min(s.lo, v);
    s.hi = std::max(s.hi, v);
  }
  return s;
}

// Whether one of the two sides of rectangle `of` separates the two rectangles. Along its own sides a
// rectangle grows by the margin; the other one by no more than sqrt(2) times that.
bool separated(const LTidxInfo& of, const LTidxInfo& other, double margin) {
  const double theta = std::atan2(of.mbr[1][1] - of.mbr[0][1], of.mbr[1][0] - of.mbr[0][0]);
  const double co = std::cos(theta), si = std::sin(theta);
  for (const auto& [ux, uy] : {std::pair{co, si}, std::pair{-si, co}}) {
    const Span a = project(of, ux, uy), b = project(other, ux, uy);
    const double grow = margin * (1.0 + 1.4142135623730951);
    if (a.hi + grow < b.lo || b.hi + grow < a.lo) return true;
  }
  return false;
}
// The axis along which the boxes are shorter against the extent of all of them.
int sweep_axis(const std::vector<LTidxInfo>& infos) {
  double ratio[2] = {0, 0};
  for (int axis = 0; axis < 2; axis++) {
    double lo = 2e307, hi = -2e307, sum = 0;
    for (const LTidxInfo& info : infos) {
      lo = std::min(lo, double{info.bbmin[axis]});
      hi = std::max(hi, double{info.bbmax[axis]});
      sum += info.bbmax[axis] - info.bbmin[axis];
    }
    ratio[axis] = hi > lo ? sum / (hi - lo) : 2e307;
  }
  return ratio[1] < ratio[0] ? 1 : 0;
}
}  // namespace

bool inter_BBOX(const LTidxInfo& a, const LTidxInfo& b) {
  for (int i = 0; i < 2; i++)
    if (a.bbmax[i] < b.bbmin[i] || b.bbmax[i] < a.bbmin[i]) return false;
  return true;
}

bool inter_MBR(const LTidxInfo& a, const LTidxInfo& b, double margin) {
  return !separated(a, b, margin) && !separated(b, a, margin);
}

SwPairList check_BBOX_MBR_fx_inter(const std::vector<LTidxInfo>& infos, const std::vector<bool>& fixed,
                                   double mTsize, int& nbb) {
  LOG_ENTER("check_BBOX_MBR_fx_inter nsw=" << infos.size());
  const int axis = sweep_axis(infos);
  std::vector<size_t> order(infos.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    const double va = infos[a].bbmin[axis], vb = infos[b].bbmin[axis];
    return va != vb ? va < vb : a < b;
  });
  SwPairList pairs;
  std::vector<size_t> active;  // boxes that reach the sweep line
  nbb = 0;
  for (const size_t i : order) {
    const double here = infos[i].bbmin[axis];
    std::erase_if(active, [&](size_t j) { return infos[j].bbmax[axis] < here; });
    for (const size_t j : active) {
      if ((fixed[i] && fixed[j]) || !inter_BBOX(infos[i], infos[j])) continue;
      nbb++;
      if (inter_MBR(infos[i], infos[j], mTsize))
        pairs.emplace_back(static_cast<int>(std::min(i, j)), static_cast<int>(std::max(i, j)));
    }
    active.push_back(i);
  }
  std::sort(pairs.begin(), pairs.end());
  LOG_LINE("BB+MBR: ninter=" << nbb << " ninter2=" << pairs.size());
  return pairs;
}
}  // namespace veld
