#include "prj/LiDAR/VR2proc/global_shift.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/stat_xyz.h"

namespace veld {
namespace {
constexpr double SHOW_MIN = 0.001;  // m, smaller components are not reported

xyz& T0_of(SwathVector<SCorrTbl>& tables, SwathId sw) { return tables[sw].T0; }

void cancel_mean(const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables) {
  StatXYZ stat;
  for (const SwathId sw : swc)
    for (const Image<xyz>& tile : tables[sw].C)
      for (uint64_t i = 0; i < tile.size(); i++)
        if (tile[i].z != NODATA) stat.add(to_dxyz(tile[i] + T0_of(tables, sw)));
  const dxyz m = stat.mean();
  LOG_MSG("Canceling global mean shift correction: " << m.x << ' ' << m.y << ' ' << m.z);
  for (const SwathId sw : swc) T0_of(tables, sw) -= to_xyz(m);
}

struct RangeZ {  // m, what range bias and range scale add to all heights, as a mean over swaths
  double bias = 0, scale = 0;
};

// A longer range lowers the ground.
RangeZ comp_RangeZ(const InvResult& res, double AGL, const std::vector<SwathId>& swc) {
  RangeZ z;
  int n = 0;
  for (const SwathId sw : swc) {
    const int set = res.swaths[sw].cal;
    if (set < 0) continue;
    const Calib& cal = res.calib[static_cast<size_t>(set)];
    z.bias -= static_cast<double>(cal.I(0));
    z.scale -= static_cast<double>(cal.I(1)) * AGL;
    n++;
  }
  if (n > 0) z.bias /= n, z.scale /= n;
  return z;
}
}  // namespace

double comp_mean_AGL(const SwathVector<InvSamples>& samples, const std::vector<SwathId>& swc) {
  double sum = 0, n = 0;
  for (const SwathId sw : swc) {
    const InvSamples& s = samples[sw];
    for (uint64_t i = 0; i < s.P.size(); i++) {
      if (s.P[i].z == NODATA || s.O[i].z == NODATA) continue;
      sum += s.O[i].z - s.P[i].z;
      n++;
    }
  }
  return n > 0 ? sum / n : 0;
}

void init_T0_SCorr(const InvResult& res, const std::vector<SwathId>& swc, SwathVector<SCorrTbl>& tables) {
  for (const SwathId sw : swc) T0_of(tables, sw) = res.has_shift ? to_xyz(res.shift) : xyz{0, 0, 0};
}

xyz manual_shift(const Project& prj, const ManualParam& manual, const Swath& swath) {
  if (prj.shifts.empty()) return manual.shift;
  return manual.shift + prj.shifts[static_cast<size_t>(swath.group - 1)].S;
}

void add_T0_manual(const Project& prj, const ManualParam& manual, const std::vector<SwathId>& swc,
                   SwathVector<SCorrTbl>& tables) {
  for (const SwathId sw : swc) tables[sw].T0 += manual_shift(prj, manual, prj.swaths[sw]);
}

void dzcorr_DR_T0_SCorr(const InvResult& res, const GlobalShiftParam& par, const std::vector<SwathId>& swc,
                        SwathVector<SCorrTbl>& tables) {
  LOG_ENTER("dzcorr_DR_T0_SCorr CD=" << par.CD << " CGM=" << par.CGM << " range_model=" << par.range_model
                                     << " AGL=" << par.AGL);
  if (par.CGM) cancel_mean(swc, tables);
  if (res.CI && par.range_model) {
    const RangeZ z = comp_RangeZ(res, par.AGL, swc);
    const bool cancel = par.CD && par.CR && !par.CGM;
    const auto treat = [&](double value, const char* text) {
      if (std::fabs(value) <= SHOW_MIN) return;
      LOG_MSG((cancel ? "Canceling" : "Note:") << text << value);
      if (!cancel) return;
      for (const SwathId sw : swc) T0_of(tables, sw).z -= static_cast<float>(value);
    };
    treat(z.bias, " range bias  Z shift correction component=");
    treat(z.scale, " range scale Z shift correction component=");
  }
  for (const SwathId sw : swc) {
    const xyz& T = T0_of(tables, sw);
    LOG_LINE("sw=" << sw << " T: " << T.x << ' ' << T.y << ' ' << T.z);
  }
}

void display_global_shift(const std::vector<SwathId>& swc, const SwathVector<SCorrTbl>& tables) {
  LOG_ENTER("display_global_shift nswc=" << swc.size());
  if (swc.empty()) return;
  const auto shift = [&](SwathId sw) { return tables[sw].T0; };
  const xyz first = shift(swc[0]);
  if (std::all_of(swc.begin(), swc.end(), [&](SwathId sw) { return shift(sw) == first; })) {
    LOG_MSG("Global shift applied (all swaths): " << first.x << ' ' << first.y << ' ' << first.z);
    return;
  }
  for (const SwathId sw : swc)
    LOG_LINE("sw=" << sw << " T: " << shift(sw).x << ' ' << shift(sw).y << ' ' << shift(sw).z);
}
}  // namespace veld
