// Whether there is anything to correct. In forest the vectors of a pair agree with each other and are off together: no
// residual tells, and no number of them makes their mean better.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "lib/general/log.h"
#include "prj/LiDAR/VR2inv/VR2inv_internal.h"

namespace veld {
namespace {
constexpr double XY = 2;      // the common part in x, y, of that in z
constexpr double PATCH = 36;  // vectors that count as one in the mean of many
constexpr int NBLOCK = 4;     // parts of a pair: displacements that change sign within it show in these

float middle(std::vector<float>& v) {
  const auto mid = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
  std::nth_element(v.begin(), mid, v.end());
  return *mid;
}

// Which quarter of the pair, about the mean position of its vectors, a vector lies in.
std::vector<int> quarters(const InvPair& p) {
  dxyz mean = {0, 0, 0};
  for (const dxyz& P : p.P) mean += P;
  mean /= static_cast<double>(std::max<uint64_t>(1, p.P.size()));
  std::vector<int> block(p.P.size());
  for (uint64_t i = 0; i < p.P.size(); i++)
    block[i] = (p.P[i].x > mean.x ? 1 : 0) + (p.P[i].y > mean.y ? 2 : 0);
  return block;
}

struct Sum {  // over blocks, by their vectors
  double q2 = 0, n = 0;
  bool infinite = false;  // displaced, with nothing in common
};

// Displacements of a block along an axis against what they have in common.
void add_block(const InvPair& p, const PairState& s, const std::vector<int>& block, int b, int c, Sum& sum) {
  std::vector<float> d, com, unc;
  for (uint64_t i = 0; i < p.P.size(); i++) {
    if (block[i] != b || !(s.W0[i].x > 0)) continue;
    d.push_back(static_cast<float>(axis(s.data[i], c)));
    com.push_back(p.Com.empty() ? 0.0f : p.Com[i]);
    unc.push_back(static_cast<float>(axis(p.Unc[i], c)));
  }
  if (d.empty()) return;
  const double n = static_cast<double>(d.size());
  const double common = static_cast<double>(middle(com)) * (c < 2 ? XY : 1),
               own = static_cast<double>(middle(unc));
  const double shift = static_cast<double>(middle(d)),
               var = common * common + own * own * std::min(1.0, PATCH / n);
  sum.infinite = sum.infinite || !(common > 0);
  sum.q2 += n * shift * shift / var;
  sum.n += n;
}
}  // namespace

double comp_significance(const InvCalDrift& inv) {
  double most = 0;
  for (int c = 0; c < 3; c++) {
    Sum sum;
    for (int k = 0; k < inv.nint; k++) {
      if (!inv.pair[k].use) continue;
      const std::vector<int> block = quarters(inv.in.pairs[k]);
      for (int b = 0; b < NBLOCK; b++) add_block(inv.in.pairs[k], inv.pair[k], block, b, c, sum);
    }
    if (sum.infinite) return std::numeric_limits<double>::infinity();
    if (sum.n > 0) most = std::max(most, std::sqrt(sum.q2 / sum.n));
  }
  return most;
}
}  // namespace veld
