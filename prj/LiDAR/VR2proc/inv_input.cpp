#include "prj/LiDAR/VR2proc/inv_input.h"

#include <algorithm>
#include <set>
#include <utility>

#include "lib/general/log.h"

namespace veld {
void set_nfull(const SwathVector<InvSwath>& swaths, std::vector<InvPair>& pairs) {
  SwathVector<std::vector<SwathId>> line(swaths);  // by main channel: the swaths of its line
  for (const SwathId s : swaths.ids())
    if (swaths[s].fixed || swaths[s].fl >= 0) line[swaths[s].mainch].push_back(s);
  std::set<std::pair<SwathId, SwathId>> there;
  for (const InvPair& p : pairs) there.insert(std::minmax(p.sw1, p.sw2));
  const auto mainch = [&](SwathId sw) { return swaths[sw].mainch; };
  // Channels of the line of `other` that swath sw has no pair with.
  const auto nskipped = [&](SwathId sw, SwathId other) {
    const std::vector<SwathId>& channels = line[mainch(other)];
    return std::count_if(channels.begin(), channels.end(),
                         [&](SwathId c) { return there.count(std::minmax(sw, c)) == 0; });
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

InvInput make_InvInput(const Project& prj, const SwathVector<SwRot>& rot,
                       const SwathVector<InvSamples>& samples, POsync& sync) {
  InvInput in;
  in.GSD = prj.scale.dim > 0 ? prj.scale.GSD() : prj.scale.mTsize / static_cast<float>(sync.idx.dim);
  in.swaths = SwathVector<InvSwath>(prj.swaths);
  for (const Swath& row : prj.swaths) {
    InvSwath& s = in.swaths[row.id];
    s.group = row.fixed ? 0 : row.group;
    s.channel = row.channel;
    s.mainch = row.mainch;
    s.fl = row.has_track() ? row.track.file : -1;
    s.fixed = row.fixed && row.present();
    s.name = name_word(row.path());
    s.tmin = row.clock.begin;
    s.tmax = row.clock.end;
    s.rot = rot[row.id];
    s.samples = samples[row.id];
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
