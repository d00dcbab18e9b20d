#include "sim/score.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace veld {
namespace {
struct Sum {
  int64_t n = 0;
  dxyz s{0, 0, 0};
};
using CellMap = std::map<std::pair<int64_t, int64_t>, Sum>;

dxyz square(const dxyz& d) { return {d.x * d.x, d.y * d.y, d.z * d.z}; }
dxyz root(const dxyz& d) { return {std::sqrt(d.x), std::sqrt(d.y), std::sqrt(d.z)}; }

CellMap mean_errors(const SwathScore& swath, double cell) {
  CellMap cells;
  for (uint64_t i = 0; i < swath.points.size(); i++) {
    const dxyz& t = swath.truth(i);
    Sum& sum = cells[{std::llround(std::floor(t.x / cell)), std::llround(std::floor(t.y / cell))}];
    sum.n++;
    sum.s += swath.points(i) - t;
  }
  return cells;
}

// Adds the squared differences of the mean errors of two swaths in the cells that both cover.
void add_relative(const CellMap& a, const CellMap& b, dxyz& sum, int64_t& n) {
  constexpr int64_t NMIN = 5;
  for (const auto& [where, sa] : a) {
    const auto found = b.find(where);
    if (found == b.end() || sa.n < NMIN || found->second.n < NMIN) continue;
    const Sum& sb = found->second;
    sum += square(sa.s / static_cast<double>(sa.n) - sb.s / static_cast<double>(sb.n));
    n++;
  }
}

void grow(dxyz& largest, const dxyz& e) {
  largest = {std::max(largest.x, std::fabs(e.x)), std::max(largest.y, std::fabs(e.y)),
             std::max(largest.z, std::fabs(e.z))};
}
}  // namespace

ErrorStat error_stat(const Vector<dxyz>& points, const Vector<dxyz>& truth, const dxyz& shift) {
  ErrorStat stat;
  const uint64_t n = std::min(points.size(), truth.size());
  if (n == 0) return stat;
  dxyz sum{0, 0, 0}, sum2{0, 0, 0};
  for (uint64_t i = 0; i < n; i++) {
    const dxyz e = points(i) - truth(i) - shift;
    sum += e;
    sum2 += square(e);
    grow(stat.largest, e);
  }
  stat.mean = sum / static_cast<double>(n);
  const dxyz ms = sum2 / static_cast<double>(n);
  stat.rms = root(ms);
  stat.rms3d = std::sqrt(ms.x + ms.y + ms.z);
  return stat;
}

ProjectScore score_project(const std::vector<SwathScore>& swaths, double cell) {
  ProjectScore score;
  dxyz sum{0, 0, 0};
  double n = 0;
  for (const SwathScore& s : swaths) {
    score.swaths.push_back(error_stat(s.points, s.truth, {0, 0, 0}));
    sum += score.swaths.back().mean * static_cast<double>(s.points.size());
    n += static_cast<double>(s.points.size());
  }
  if (n == 0) return score;
  score.shift = sum / n;
  dxyz ms{0, 0, 0}, ms_rel{0, 0, 0};
  for (size_t i = 0; i < swaths.size(); i++) {
    const double weight = static_cast<double>(swaths[i].points.size()) / n;
    score.swaths_rel.push_back(error_stat(swaths[i].points, swaths[i].truth, score.shift));
    ms += square(score.swaths[i].rms) * weight;
    ms_rel += square(score.swaths_rel[i].rms) * weight;
    grow(score.all.largest, score.swaths[i].largest);
    grow(score.all_rel.largest, score.swaths_rel[i].largest);
  }
  score.all.rms = root(ms);
  score.all.rms3d = std::sqrt(ms.x + ms.y + ms.z);
  score.all.mean = score.shift;
  score.all_rel.rms = root(ms_rel);
  score.all_rel.rms3d = std::sqrt(ms_rel.x + ms_rel.y + ms_rel.z);

  std::vector<CellMap> cells;
  for (const SwathScore& s : swaths) cells.push_back(mean_errors(s, cell));
  dxyz rel{0, 0, 0};
  for (size_t i = 0; i < cells.size(); i++)
    for (size_t j = i + 1; j < cells.size(); j++) add_relative(cells[i], cells[j], rel, score.ncells);
  if (score.ncells > 0) {
    rel /= static_cast<double>(score.ncells);
    score.relative = root(rel);
    score.relative3d = std::sqrt(rel.x + rel.y + rel.z);
  }
  return score;
}

double noise_floor(const std::vector<SwathScore>& swaths) {
  constexpr double APART = 3, STEP = 0.5;  // m, of neighbours: the errors that vary slowly are equal there
  double sum = 0, n = 0;
  for (const SwathScore& s : swaths)
    for (uint64_t i = 1; i < s.points.size(); i++) {
      const dxyz way = s.truth(i) - s.truth(i - 1);
      if (norm(way) > APART || std::fabs(way.z) > STEP) continue;
      const dxyz e = s.points(i) - s.truth(i) - (s.points(i - 1) - s.truth(i - 1));
      sum += dot(e, e) / 2;
      n++;
    }
  return n > 0 ? std::sqrt(sum / n) : 0;
}
}  // namespace veld
