// Robust weights. Wrong vectors come in patches (a street, a wood's edge) that agree with each other and have
// small uncertainties, so neither their neighbours nor their uncertainties give them away: the model does. The
// weight of a vector is (1 + q^2)^-2, q^2 the mean over the axes of its squared residuals in units of the pair's
// robust scale: the square of the registration's weight for pixels, which leaves patches too much. A pair's
// scale takes the place of what its uncertainties claim.
#include <algorithm>
#include <cmath>
#include <vector>

#include "lib/general/log.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
constexpr double MEDIAN_OF_NORMAL = 0.6744898;  // of the magnitude, standard deviation 1
constexpr double KAPPA = 0.5813483;  // sum w r^2 / sum w of normal residuals in three axes, these weights
constexpr double INFO =
    1.8078532;                   // information that normal residuals keep under these weights, over their sum
constexpr double HARDLY = 0.04;  // weight below which a vector counts as put aside: 2 scales in all axes
constexpr double FLOOR = 0.3;    // share of a pair's median variance that no vector goes below
constexpr double POOL = 20;      // vectors that the scale of all pairs counts for in that of one
constexpr double SCALE_MIN = 0.05;  // against residuals that vanish

double median(std::vector<float>& v) {
  const auto mid = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
  std::nth_element(v.begin(), mid, v.end());
  return *mid;
}

// Precision of a vector and axis before scale and weight: no vector of a pair is more precise than the floor.
double base_prec(double W0, double floor) { return W0 / (1 + W0 * floor); }

dxyz base_prec(const PairState& s, uint64_t i) {
  const xyz& W = s.W0[i];
  return {base_prec(W.x, s.floor.x), base_prec(W.y, s.floor.y), base_prec(W.z, s.floor.z)};
}

double pair_scale(const PairState& s, int c, std::vector<float>& q) {
  q.clear();
  for (uint64_t i = 0; i < s.W0.size(); i++)
    if (s.W0[i].x > 0)
      q.push_back(static_cast<float>(std::fabs(axis(s.res[i], c)) * std::sqrt(axis(base_prec(s, i), c))));
  return median(q) / MEDIAN_OF_NORMAL;
}

void set_axis(dxyz& v, int c, double value) { (c == 0 ? v.x : c == 1 ? v.y : v.z) = value; }

// Scales of all pairs, those of small pairs drawn towards the scale of all.
void comp_scales(InvCalDrift& inv) {
  std::vector<float> q;
  for (int c = 0; c < 3; c++) {
    double sum = 0, n = 0;
    for (PairState& s : inv.pair) {
      if (!s.use) continue;
      const double scale = std::max(SCALE_MIN, pair_scale(s, c, q));
      set_axis(s.scale, c, scale);
      sum += static_cast<double>(s.nok) * std::log(scale);
      n += static_cast<double>(s.nok);
    }
    const double all = n > 0 ? std::exp(sum / n) : 1;
    for (PairState& s : inv.pair) {
      if (!s.use) continue;
      const double own = static_cast<double>(s.nok), scale = axis(s.scale, c);
      set_axis(s.scale, c, std::sqrt((own * scale * scale + POOL * all * all) / (own + POOL)));
    }
  }
}
}  // namespace

void init_weights(InvCalDrift& inv) {
  std::vector<float> var;
  for (PairState& s : inv.pair) {
    if (!s.use || !inv.par.robust) continue;
    for (int c = 0; c < 3; c++) {
      var.clear();
      for (const xyz& W : s.W0)
        if (W.x > 0) var.push_back(static_cast<float>(1 / axis(W, c)));
      set_axis(s.floor, c, FLOOR * median(var));
    }
  }
  apply_weights(inv);
}

void apply_weights(InvCalDrift& inv) {
  for (PairState& s : inv.pair) {
    if (!s.use) continue;
    const double info = inv.weighted ? INFO : 1;
    const dxyz f =
        dxyz{1 / (s.scale.x * s.scale.x * inv.corr_len.x), 1 / (s.scale.y * s.scale.y * inv.corr_len.y),
             1 / (s.scale.z * s.scale.z * inv.corr_len.z)} *
        info;
    for (uint64_t i = 0; i < s.W0.size(); i++) {
      if (!(s.W0[i].x > 0)) continue;
      const dxyz W = base_prec(s, i) * static_cast<double>(s.weight[i]);
      s.W[i] = to_xyz(dxyz{W.x * f.x, W.y * f.y, W.z * f.z});
    }
  }
}

void comp_weights(InvCalDrift& inv) {
  if (!inv.par.robust) return;
  inv.weighted = true;
  comp_scales(inv);
  for (PairState& s : inv.pair) {
    if (!s.use) continue;
    uint64_t ndown = 0;
    for (uint64_t i = 0; i < s.W0.size(); i++) {
      if (!(s.W0[i].x > 0)) continue;
      const dxyz W = base_prec(s, i), r = to_dxyz(s.res[i]);
      const double q2 =
          (W.x * r.x * r.x / (s.scale.x * s.scale.x) + W.y * r.y * r.y / (s.scale.y * s.scale.y) +
           W.z * r.z * r.z / (s.scale.z * s.scale.z)) /
          3;
      const double w = 1 / ((1 + q2) * (1 + q2));
      s.weight[i] = static_cast<float>(w);
      ndown += w < HARDLY;
    }
    s.down = static_cast<double>(ndown) / static_cast<double>(s.nok);
  }
  apply_weights(inv);
}

std::vector<PairChi> comp_chi(const InvCalDrift& inv) {
  std::vector<PairChi> chi(inv.nint);
  for (int k = 0; k < inv.nint; k++) {
    const PairState& s = inv.pair[k];
    if (!s.use) continue;
    double n = 0;
    for (uint64_t i = 0; i < s.W0.size(); i++) {
      if (!(s.W0[i].x > 0)) continue;
      const double w = s.weight[i];
      const dxyz r = to_dxyz(s.res[i]), W = base_prec(s, i) * w;
      const dxyz d2 = {r.x * r.x, r.y * r.y, r.z * r.z};
      chi[k].c += {W.x * d2.x, W.y * d2.y, W.z * d2.z};
      chi[k].rms += d2 * w;
      n += w;
    }
    const double norm = n * (inv.weighted ? KAPPA : 1);
    const auto root = [](double sum, double m) { return std::sqrt(sum / m); };
    chi[k].c = {root(chi[k].c.x, norm) / s.scale.x, root(chi[k].c.y, norm) / s.scale.y,
                root(chi[k].c.z, norm) / s.scale.z};
    chi[k].rms = {root(chi[k].rms.x, norm), root(chi[k].rms.y, norm), root(chi[k].rms.z, norm)};
    chi[k].n = n;
  }
  return chi;
}

dxyz comp_res_scale(const InvCalDrift& inv) {
  dxyz sum = {0, 0, 0};
  double n = 0;
  for (const PairState& s : inv.pair) {
    if (!s.use) continue;
    const double nok = static_cast<double>(s.nok);
    sum += dxyz{std::log(s.scale.x), std::log(s.scale.y), std::log(s.scale.z)} * nok;
    n += nok;
  }
  if (n == 0) return {1, 1, 1};
  return {std::exp(sum.x / n), std::exp(sum.y / n), std::exp(sum.z / n)};
}

namespace {
// Sums of normalised residuals over squares of the ground, against what independent ones would give.
struct Patches {
  double side = 1;
  std::vector<std::pair<uint64_t, uint64_t>> order;  // key of the square, vector

  Patches(const InvPair& p, const PairState& s) {
    std::vector<float> step;
    for (uint64_t i = 1; i < p.P.size(); i++)
      step.push_back(static_cast<float>(std::hypot(p.P[i].x - p.P[i - 1].x, p.P[i].y - p.P[i - 1].y)));
    constexpr double VECTORS = 12;  // along a side: their errors go together over several
    if (!step.empty()) side = VECTORS * std::max(median(step), 0.01);
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (!(s.W0[i].x > 0)) continue;
      const auto cell = [&](double v) {
        return static_cast<uint64_t>(static_cast<int64_t>(std::floor(v / side))) & 0xFFFFFFFF;
      };
      order.emplace_back(cell(p.P[i].x) << 32 | cell(p.P[i].y), i);
    }
    std::sort(order.begin(), order.end());
  }
};
}  // namespace

void comp_corr_len(InvCalDrift& inv) {
  dxyz whole = {0, 0, 0}, single = {0, 0, 0};
  for (int k = 0; k < inv.nint; k++) {
    const PairState& s = inv.pair[k];
    if (!s.use) continue;
    const Patches patches(inv.in.pairs[k], s);
    const auto residual = [&](uint64_t i) {
      const double w = s.weight[i];
      const dxyz W = base_prec(s, i), r = to_dxyz(s.res[i]);
      return dxyz{w * std::sqrt(W.x) * r.x / s.scale.x, w * std::sqrt(W.y) * r.y / s.scale.y,
                  w * std::sqrt(W.z) * r.z / s.scale.z};
    };
    dxyz mean = {0, 0, 0};  // what a whole pair is off by is no matter of its vectors
    for (const auto& cell : patches.order) mean += residual(cell.second);
    mean /= static_cast<double>(s.nok);
    dxyz sum = {0, 0, 0};
    for (size_t j = 0; j < patches.order.size(); j++) {
      const dxyz q = residual(patches.order[j].second) - mean;
      sum += q;
      single += {q.x * q.x, q.y * q.y, q.z * q.z};
      if (j + 1 < patches.order.size() && patches.order[j + 1].first == patches.order[j].first) continue;
      whole += {sum.x * sum.x, sum.y * sum.y, sum.z * sum.z};
      sum = {0, 0, 0};
    }
  }
  const auto ratio = [](double a, double b) { return b > 0 ? std::max(1.0, a / b) : 1.0; };
  inv.corr_len = {ratio(whole.x, single.x), ratio(whole.y, single.y), ratio(whole.z, single.z)};
  LOG_LINE("vectors that count as one: " << inv.corr_len.x << ' ' << inv.corr_len.y << ' ' << inv.corr_len.z);
  apply_weights(inv);
}

bool solve_reweighted(InvCalDrift& inv, bool (*solve)(InvCalDrift&), double (*residuals)(InvCalDrift&)) {
  constexpr int MAX_ROUNDS = 15;
  constexpr double CHANGE_MIN = 2e-4;  // m, RMS of what residuals still change by
  for (int round = 0; round < MAX_ROUNDS; round++) {
    if (!solve(inv)) return false;
    linearise_bore(inv);
    const double change = residuals(inv);
    LOG_LINE("round " << round << " change of residuals " << change);
    if (round > 0 && (!inv.par.robust || change < CHANGE_MIN)) break;
    comp_weights(inv);
  }
  return true;
}
}  // namespace veld
