#include "prj/LiDAR/VR2proc/independent_groups.h"

#include <algorithm>
#include <utility>

#include "lib/general/log.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/VR2proc/corr_tables.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
// The swaths and pairs of one group alone, while it is inverted; what is taken from the input comes back at the end.
class GroupInput {
 public:
  GroupInput(const Project& prj, int group, InvInput& all) : all_(all) {
    in.GSD = all.GSD;
    std::swap(in.swaths, all.swaths);
    lines_.resize(in.swaths.size());
    for (const SwathId sw : in.swaths.ids()) {
      InvSwath& s = in.swaths[sw];
      lines_[static_cast<size_t>(sw.number)] = s.fl;
      if (prj.swaths[sw].group != group) s.fl = -1;  // gets no correction
    }
    for (size_t k = 0; k < all.pairs.size(); k++) {
      const auto of_group = [&](SwathId sw) {
        return prj.swaths[sw].mobile() && prj.swaths[sw].group == group;
      };
      if (!of_group(all.pairs[k].sw1) || !of_group(all.pairs[k].sw2)) continue;
      in.pairs.push_back(std::move(all.pairs[k]));
      from_.push_back(k);
    }
  }
  GroupInput(const GroupInput&) = delete;
  GroupInput& operator=(const GroupInput&) = delete;
  ~GroupInput() {
    for (size_t k = 0; k < from_.size(); k++) all_.pairs[from_[k]] = std::move(in.pairs[k]);
    for (const SwathId sw : in.swaths.ids()) in.swaths[sw].fl = lines_[static_cast<size_t>(sw.number)];
    std::swap(in.swaths, all_.swaths);
  }
  InvInput in;

 private:
  InvInput& all_;
  std::vector<int> lines_;
  std::vector<size_t> from_;
};

// The group's corrections by its own pairs, and the shift that its control points ask for then.
bool comp_GCP_Tg(const Project& prj, const CorrRun& run, int group, InvInput& all, GroupShifts& shifts) {
  LOG_ENTER("comp_GCP_Tg group=" << group);
  std::vector<SwathId> swc;
  for (const SwathId sw : run.swc)
    if (prj.swaths[sw].group == group) swc.push_back(sw);
  if (swc.empty()) return true;
  InvResult res;
  {
    const GroupInput part(prj, group, all);
    if (part.in.pairs.empty()) {
      WARNING_MSG("group " << group
                           << " has no pairs of its own, its swaths are compared with its control points "
                              "as they are");
      res.swaths = SwathVector<InvCorr>(part.in.swaths);
    } else if (!inv_CalTAWarp(prj.name + "_ig" + std::to_string(group), part.in, run.par.inv, res)) {
      ERROR_MSG("independent group inversion failed");
      return false;
    }
  }
  SwathVector<SCorrTbl> tables;
  constexpr bool FILL = true;
  if (!corr_tbl_swaths(prj, CorrSource{res, run.par.inv, run.par.manual, run.rot}, swc, run.samples,
                       run.index, FILL, NTHREADS, tables)) {
    ERROR_MSG("independent group GCP bias computation failed, incompatible or missing temp. tile files");
    return false;
  }
  init_T0_SCorr(res, swc, tables);
  dzcorr_DR_T0_SCorr(res, global_shift(run), swc, tables);
  dxyz shift{0, 0, 0};
  bool found = false;
  if (!comp_group_shift(prj, run.par.control, run.par.points, control_shift(run.par), group, tables, shift,
                        found))
    return false;
  if (!found) return true;
  shifts[group] = shift;
  LOG_MSG("group " << group << " shift: " << shift.x << ' ' << shift.y << ' ' << shift.z);
  return true;
}
}  // namespace

bool comp_independent_shifts(const Project& prj, const CorrRun& run, InvInput& in, GroupShifts& shifts) {
  LOG_ENTER("comp_independent_shifts ngrp=" << prj.nmgrp << " nint=" << in.pairs.size());
  const Stopwatch watch;
  shifts.clear();
  LOG_MSG("INDEPENDENT GROUP GCP BIAS COMPUTATION, " << prj.nmgrp << " GROUPS:");
  for (int group = 1; group <= prj.nmgrp; group++)
    if (!comp_GCP_Tg(prj, run, group, in, shifts)) return false;
  LOG_LINE("/// IG INV_TIME=" << watch.text());
  return true;
}

Vector<xyz> pair_shifts(const Project& prj, const std::vector<InvPair>& pairs, const GroupShifts& shifts) {
  Vector<xyz> list(pairs.size());
  for (size_t k = 0; k < pairs.size(); k++)
    list[k] = to_xyz(shift_of(shifts, prj.swaths[pairs[k].sw2]) - shift_of(shifts, prj.swaths[pairs[k].sw1]));
  return list;
}
}  // namespace veld
