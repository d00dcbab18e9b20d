#include "sim/dutscore.h"

#include <algorithm>
#include <cmath>

namespace veld {
namespace {
constexpr double CELL = 4;          // m
constexpr int NMIN = 12;            // points of a fit
constexpr double SLOPE_PRIOR = 25;  // (noise of a point over slope of the errors)^2: 0.015 m, 0.003
constexpr double SHARE_BUILT = 0.10, SHARE_FOREST = 0.15;  // of the points around

double percentile(std::vector<double>& v, double q) {
  if (v.empty()) return 0;
  const size_t k = std::min(v.size() - 1, static_cast<size_t>(q * static_cast<double>(v.size())));
  std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(k), v.end());
  return v[k];
}

// Solves the symmetric system a x = b of 4 unknowns for three right hand sides and returns the first unknown.
// a is positive definite by its prior.
dxyz solve_constant(double (&a)[4][4], dxyz (&b)[4]) {
  for (int k = 3; k > 0; k--)  // eliminates from the last unknown, so that the first remains
    for (int i = 0; i < k; i++) {
      const double f = a[i][k] / a[k][k];
      for (int j = 0; j < k; j++) a[i][j] -= f * a[k][j];
      b[i] -= f * b[k];
    }
  return b[0] / a[0][0];
}

struct Sample {
  dxyz error, unc;
  bool timed;
};

// Statistics of one axis.
void axis_stat(const std::vector<Sample>& samples, double dxyz::*axis, double gross, VectorStat& stat) {
  std::vector<double> error, ratio;
  double sum = 0, weights = 0;
  int64_t ngross = 0;
  for (const Sample& s : samples) {
    const double e = s.error.*axis, unc = std::max(s.unc.*axis, 1e-6);
    error.push_back(e);
    ratio.push_back(std::fabs(e) / unc);
    sum += e / (unc * unc);
    weights += 1 / (unc * unc);
    ngross += std::fabs(e) > gross;
  }
  const double median = percentile(error, 0.5);
  stat.median.*axis = median;
  stat.weighted.*axis = sum / weights;
  for (double& e : error) e = std::fabs(e - median);
  stat.spread.*axis = 1.4826 * percentile(error, 0.5);
  stat.gross.*axis = static_cast<double>(ngross) / static_cast<double>(samples.size());
  stat.ratio50.*axis = percentile(ratio, 0.5);
  stat.ratio99.*axis = percentile(ratio, 0.99);
}

VectorStat vector_stat(const std::vector<Sample>& samples, double gross) {
  VectorStat stat;
  stat.n = static_cast<int64_t>(samples.size());
  if (samples.empty()) return stat;
  for (const Sample& s : samples) stat.ntimed += s.timed;
  for (double dxyz::*axis : {&dxyz::x, &dxyz::y, &dxyz::z}) axis_stat(samples, axis, gross, stat);
  return stat;
}

// True displacement: both swaths saw the same place of the ground, swath 2 at p.
bool true_displacement(const ErrorField& f1, const ErrorField& f2, const dxyz& p, double radius, dxyz& d) {
  dxyz e1, e2;
  if (!f2.error_at(p, radius, e2) || !f1.error_at(p, radius, e1)) return false;
  if (!f1.error_at(p + e1 - e2, radius, e1)) return false;
  d = e1 - e2;
  return true;
}
}  // namespace

const char* land_name(Land land) {
  const char* names[NLAND] = {"open", "forest", "built", "all"};
  return names[static_cast<int>(land)];
}

ErrorField::ErrorField(const Vector<dxyz>& observed, const Vector<dxyz>& truth,
                       const std::vector<uint8_t>& cls) {
  const uint64_t n = observed.size();
  if (n == 0) return;
  double x1 = observed(0).x, y1 = observed(0).y;
  x0_ = x1;
  y0_ = y1;
  for (uint64_t i = 0; i < n; i++) {
    x0_ = std::min(x0_, observed(i).x);
    y0_ = std::min(y0_, observed(i).y);
    x1 = std::max(x1, observed(i).x);
    y1 = std::max(y1, observed(i).y);
  }
  nx_ = static_cast<int>((x1 - x0_) / CELL) + 1;
  ny_ = static_cast<int>((y1 - y0_) / CELL) + 1;
  first_.assign(static_cast<size_t>(nx_) * static_cast<size_t>(ny_) + 1, 0);
  const auto cell = [&](const dxyz& p) {
    return static_cast<size_t>((p.y - y0_) / CELL) * static_cast<size_t>(nx_) +
           static_cast<size_t>((p.x - x0_) / CELL);
  };
  for (uint64_t i = 0; i < n; i++) first_[cell(observed(i)) + 1]++;
  for (size_t c = 1; c < first_.size(); c++) first_[c] += first_[c - 1];
  std::vector<uint32_t> next(first_.begin(), first_.end() - 1);
  points_.resize(n);
  for (uint64_t i = 0; i < n; i++)
    points_[next[cell(observed(i))]++] = {observed(i), observed(i) - truth(i), cls[i]};
}

template <typename F>
void ErrorField::each_near(const dxyz& place, double radius, F&& use) const {
  const auto index = [](double v, int n) { return static_cast<int>(std::clamp(v / CELL, -1.0, 1.0 * n)); };
  const int ix0 = std::max(0, index(place.x - radius - x0_, nx_));
  const int ix1 = std::min(nx_ - 1, index(place.x + radius - x0_, nx_));
  const int iy0 = std::max(0, index(place.y - radius - y0_, ny_));
  const int iy1 = std::min(ny_ - 1, index(place.y + radius - y0_, ny_));
  for (int iy = iy0; iy <= iy1; iy++)
    for (int ix = ix0; ix <= ix1; ix++) {
      const size_t c = static_cast<size_t>(iy) * static_cast<size_t>(nx_) + static_cast<size_t>(ix);
      for (uint32_t i = first_[c]; i < first_[c + 1]; i++) {
        const Point& p = points_[i];
        if (std::fabs(p.p.x - place.x) <= radius && std::fabs(p.p.y - place.y) <= radius) use(p);
      }
    }
}

bool ErrorField::error_at(const dxyz& place, double radius, dxyz& error) const {
  double a[4][4] = {};
  dxyz b[4] = {};
  int n = 0;
  each_near(place, radius, [&](const Point& p) {
    const double row[4] = {1, p.p.x - place.x, p.p.y - place.y, p.p.z - place.z};
    for (int i = 0; i < 4; i++) {
      for (int j = 0; j < 4; j++) a[i][j] += row[i] * row[j];
      b[i] += row[i] * p.error;
    }
    n++;
  });
  if (n < NMIN) return false;
  for (int i = 1; i < 4; i++) a[i][i] += SLOPE_PRIOR;
  error = solve_constant(a, b);
  return true;
}

Land ErrorField::land_at(const dxyz& place, double radius) const {
  double n = 0, built = 0, plants = 0;
  each_near(place, radius, [&](const Point& p) {
    n++;
    built += p.cls == 6;
    plants += p.cls >= 3 && p.cls <= 5;
  });
  return built > SHARE_BUILT * n ? Land::built : plants > SHARE_FOREST * n ? Land::forest : Land::open;
}

DutScore score_dut(const DutFile& dut, const std::vector<const ErrorField*>& fields, double radius,
                   double gross) {
  DutScore score;
  std::vector<std::array<std::vector<Sample>, NLAND>> by_pair(dut.pairs.size());
  std::array<std::vector<Sample>, NLAND> all;
  for (const DutVector& v : dut.vectors) {
    const DutPair& pair = dut.pairs[static_cast<size_t>(v.pair)];
    const ErrorField& f2 = *fields[static_cast<size_t>(pair.sw2)];
    dxyz d;
    if (!true_displacement(*fields[static_cast<size_t>(pair.sw1)], f2, v.p, radius, d)) {
      score.nwithout++;
      continue;
    }
    const Sample sample{v.d - d, v.unc, v.timed};
    for (const size_t land : {static_cast<size_t>(f2.land_at(v.p, radius)), static_cast<size_t>(Land::all)}) {
      by_pair[static_cast<size_t>(v.pair)][land].push_back(sample);
      all[land].push_back(sample);
    }
  }
  score.pairs.resize(dut.pairs.size());
  for (size_t land = 0; land < NLAND; land++) {
    for (size_t p = 0; p < by_pair.size(); p++) score.pairs[p][land] = vector_stat(by_pair[p][land], gross);
    score.all[land] = vector_stat(all[land], gross);
  }
  return score;
}
}  // namespace veld
