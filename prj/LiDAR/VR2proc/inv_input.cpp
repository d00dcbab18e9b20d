#include "prj/LiDAR/VR2proc/inv_input.h"

#include <algorithm>
#include <set>
#include <utility>

#include "lib/general/log.h"

namespace veld {
void set_nfull(const std::vector<InvSwath>& swaths, std::vector<InvPair>& pairs) {
  std::vector<std::vector<int>> line(swaths.size());  // by main channel: the swaths of its line
  for (size_t i = 0; i < swaths.size(); i++)
    if (swaths[i].fixed || swaths[i].fl >= 0)
      line[static_cast<size_t>(swaths[i].mainch)].push_back(static_cast<int>(i));
  std::set<std::pair<int, int>> there;
  for (const InvPair& p : pairs) there.insert(std::minmax(p.sw1, p.sw2));
  const auto mainch = [&](int sw) { return static_cast<size_t>(swaths[static_cast<size_t>(sw)].mainch); };
  // Channels of the line of `other` that swath sw has no pair with.
  const auto nskipped = [&](int sw, int other) {
    const std::vector<int>& channels = line[mainch(other)];
    return std::count_if(channels.begin(), channels.end(),
                         [&](int c) { return there.count(std::minmax(sw, c)) == 0; });
  };
  int nadjusted = 0;
  for (InvPair& p : pairs) {
    p.nfull = p.P.size();
    if (mainch(p.sw1) == mainch(p.sw2)) continue;
    const auto n = std::max(nskipped(p.sw1, p.sw2), nskipped(p.sw2, p.sw1));
    p.nfull *= static_cast<uint64_t>(n + 1);
    nadjusted += n > 0;
  }
  LOG_LINE("set_nfull nint=" << pairs.size() << " nadjusted=" << nadjusted);
}

InvInput make_InvInput(const Project& prj, const std::vector<SwRot>& rot,
                       const std::vector<InvSamples>& samples, POsync& sync) {
  InvInput in;
  in.GSD = prj.scale.dim > 0 ? prj.scale.GSD() : prj.scale.mTsize / static_cast<float>(sync.idx.dim);
  in.swaths.resize(prj.swaths.size());
  for (size_t i = 0; i < prj.swaths.size(); i++) {
    const int64_t sw = static_cast<int64_t>(i);
    InvSwath& s = in.swaths[i];
    s.group = prj.swaths[i].fixed ? 0 : prj.swaths[i].group;
    s.channel = prj.swaths[i].channel;
    s.mainch = sync.mainch(sw);
    s.fl = sync.sw2fl(sw);
    s.fixed = prj.swaths[i].fixed;
    s.tmin = sync.tmin(sw);
    s.tmax = sync.tmax(sw);
    s.rot = rot[i];
    s.samples = samples[i];
  }
  in.pairs.resize(sync.pairs.size());
  for (size_t k = 0; k < in.pairs.size(); k++) {
    DUTpair& d = sync.pairs[k];
    InvPair& p = in.pairs[k];
    p.sw1 = d.sw1;
    p.sw2 = d.sw2;
    p.pair = d.pair;
    p.P = std::move(d.pos);
    p.Def = std::move(d.disp);
    p.Unc = std::move(d.unc);
    p.Com = std::move(d.com);
    p.t1 = std::move(d.t1);
    p.t2 = std::move(d.t2);
    p.O1 = std::move(sync.O1[k]);
    p.O2 = std::move(sync.O2[k]);
    p.Att1 = std::move(sync.Att1[k]);
    p.Att2 = std::move(sync.Att2[k]);
  }
  set_nfull(in.swaths, in.pairs);
  return in;
}
}  // namespace veld
