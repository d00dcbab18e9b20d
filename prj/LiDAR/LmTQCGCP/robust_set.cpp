#include "prj/LiDAR/LmTQCGCP/robust_set.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace veld {
namespace {
double median_once(std::vector<std::pair<double, double>> value_share) {
  std::sort(value_share.begin(), value_share.end());
  double half = 0, sum = 0;
  for (const auto& v : value_share) half += v.second / 2;
  for (size_t i = 0; i < value_share.size(); i++) {
    sum += value_share[i].second;
    if (sum > half + 1e-9) return value_share[i].first;
    if (sum > half - 1e-9 && i + 1 < value_share.size())
      return (value_share[i].first + value_share[i + 1].first) / 2;
  }
  return 0;
}
}  // namespace

void comp_robust_set(std::vector<RobustItem>& items) {
  constexpr int ROUNDS = 20;
  std::map<int, int> occurrences;
  for (RobustItem& i : items) i.in = true, occurrences[i.point]++;
  if (static_cast<int>(occurrences.size()) < GCP_OUT_MIN) return;
  std::vector<std::pair<double, double>> values;
  for (const RobustItem& i : items) values.emplace_back(i.d, 1.0 / occurrences[i.point]);
  double centre = median_once(values);
  for (int round = 0; round < ROUNDS; round++) {
    for (size_t k = 0; k < items.size(); k++) values[k].first = std::fabs(items[k].d - centre);
    const double limit = GCP_OUT * std::max(1.4826 * median_once(values), GCP_OUT_FLOOR);
    bool changed = false;
    double sw = 0, swd = 0;
    for (RobustItem& i : items) {
      const bool in = std::fabs(i.d - centre) <= limit;
      changed = changed || in != i.in;
      i.in = in;
      if (in) sw += i.w, swd += i.w * i.d;
    }
    if ((!changed && round > 0) || sw <= 0) return;
    centre = swd / sw;
  }
}
}  // namespace veld
