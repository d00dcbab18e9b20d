// prj/LiDAR/LmTinter/pair_filter.h
// Which pairs of overlapping swaths are registered or measured.
#pragma once

namespace veld {
constexpr int KEEP_SAME = 0;  // values of the pair filters
constexpr int KEEP_ALL = 1;
constexpr int KEEP_DIFF = 2;

struct PairFilter {
  int RDIM = 0;        // reduction: 0 none, 1 same channel or line, 2 main channels (-reg_reduce)
  int GRP = 1;         // 0 same group or line, 1 all, 2 different (-reg_grp, -qc_grp)
  int REF = 1;         // 0 without reference swaths, 1 on, 2 only with one (-reg_ref, -qc_ref)
  int CH = 1;          // 0 same channel, 1 all, 2 different (-reg_ch, -qc_ch)
  bool filter = true;  // GRP, REF and CH apply
  bool ALLDZ = true;   // pairs that are not kept stay in the list for their height differences (-dz_all)
};
}  // namespace veld
