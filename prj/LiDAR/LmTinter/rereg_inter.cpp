// Registration of the pairs of an index about what an inversion of it found.
#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "lib/general/progress.h"
#include "lib/general/timing.h"
#include "prj/LiDAR/LmTinter/LmTinter_internal.h"

namespace veld {
namespace {
// The pairs of the index in their order; those that have vectors, and corrections or references on both sides, are
// registered.
std::vector<SwPair> index_pairs(const Project& prj, const DUTidx& idx) {
  const auto corrected = [&](SwathId sw) { return prj.swaths[sw].fixed || prj.swaths[sw].has_track(); };
  std::vector<SwPair> pairs;
  for (const DUTinter& p : idx.pairs)
    pairs.push_back(
        {p.sw1, p.sw2, p.ndisp > 0 && corrected(p.sw1) && corrected(p.sw2), static_cast<int>(pairs.size())});
  return pairs;
}

// Level whose vertices have the spacing of the index on these grids; -1 without one.
int level_of(int gsize, const TileScale& scale) {
  for (int J = 0; J <= NR_JMAX; J++)
    if (std::lround(scale.mTsize * static_cast<float>(1 << J)) == gsize) return J;
  return -1;
}
}  // namespace

bool rereg_inter_LmT(const Project& prj, const DUTidx& idx, const SwathVector<SCorrTbl>& model,
                     const CorrAtOf& corr_at, const std::string& name, int nthreads, InterResult& result) {
  LOG_ENTER("rereg_inter_LmT nint=" << idx.nint() << " gsize=" << idx.gsize << " mTsize=" << prj.scale.mTsize
                                    << " dim=" << prj.scale.dim);
  const Stopwatch time;
  result = InterResult{};
  InterParam param;
  param.QC = false;
  param.nop = true;
  param.nthreads = nthreads;
  param.Jend = level_of(idx.gsize, prj.scale);
  if (param.Jend < 0 || prj.scale.dim <= 0) {
    WARNING_MSG("no second registration, the displacements are of another grid");
    return true;
  }
  const std::vector<SwPair> pairs = index_pairs(prj, idx);
  float most = 0;
  for (const SCorrTbl& corr : model) most = std::max(most, max_corr(corr));
  DUTidx head = idx;
  head.pairs.clear();
  head.nreg = 0;
  DUTwriter dut;
  if (!open_DUT_IDX(dut, name, head, true, false)) return false;
  LOG_MSG1("SECOND REGISTRATION using " << idx.nreg << " pairs [" << nthreads << " TH]");
  result.nint = static_cast<int>(pairs.size());
  progress_start(result.nint);
  const auto text = [&] { return "REGISTERED " + std::to_string(result.nreg) + " pairs again"; };
  const bool ok = for_pairs({prj, param, levels_for(2 * most, prj.scale, param.Jend), &model, &corr_at},
                            pairs, [&](size_t i, PairOutcome& out) {
                              result.nreg += out.registered;
                              result.nvec += out.rec.size();
                              progress_step(static_cast<int>(i) + 1, text());
                              return write_DUT_pair(dut, pairs[i].sw1, pairs[i].sw2, out.rec, out.lost);
                            });
  if (!ok || !close_DUT_IDX(dut)) return false;
  progress_end(text());
  LOG_MSG1("Registered " << result.nreg << " pairs again, N vectors=" << result.nvec << " | " << time.text());
  return true;
}
}  // namespace veld
