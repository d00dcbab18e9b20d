#include "prj/LiDAR/LmTplot/swath_inter.h"

#include <algorithm>
#include <cmath>

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
int sweep_axis(const std::vector<SwathBox>& swaths) {
  double ratio[2] = {0, 0};
  for (int axis = 0; axis < 2; axis++) {
    double lo = 2e307, hi = -2e307, sum = 0;
    for (const SwathBox& swath : swaths) {
      const LTidxInfo& info = swath.info;
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

SwPairList check_BBOX_MBR_fx_inter(const std::vector<SwathBox>& swaths, double mTsize, int& nbb) {
  LOG_ENTER("check_BBOX_MBR_fx_inter nsw=" << swaths.size());
  const int axis = sweep_axis(swaths);
  std::vector<const SwathBox*> order;
  for (const SwathBox& s : swaths) order.push_back(&s);
  std::stable_sort(order.begin(), order.end(), [axis](const SwathBox* a, const SwathBox* b) {
    return a->info.bbmin[axis] < b->info.bbmin[axis];
  });
  SwPairList pairs;
  std::vector<const SwathBox*> active;  // boxes that reach the sweep line
  nbb = 0;
  for (const SwathBox* const s : order) {
    const double here = s->info.bbmin[axis];
    std::erase_if(active, [&](const SwathBox* other) { return other->info.bbmax[axis] < here; });
    for (const SwathBox* const other : active) {
      if ((s->fixed && other->fixed) || !inter_BBOX(s->info, other->info)) continue;
      nbb++;
      if (inter_MBR(s->info, other->info, mTsize)) pairs.emplace_back(std::minmax(s->id, other->id));
    }
    active.push_back(s);
  }
  std::sort(pairs.begin(), pairs.end());
  LOG_LINE("BB+MBR: ninter=" << nbb << " ninter2=" << pairs.size());
  return pairs;
}
}  // namespace veld
