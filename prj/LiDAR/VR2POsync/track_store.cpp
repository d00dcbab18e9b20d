#include "prj/LiDAR/VR2POsync/track_store.h"

#include <algorithm>
#include <utility>

#include "lib/general/log.h"

namespace veld {
namespace {
bool same_reading(const POread& a, const POread& b) {
  return a.proj == b.proj && a.time == b.time && a.gweek == b.gweek && a.gday == b.gday && a.rad == b.rad &&
         a.sbetw0 == b.sbetw0 && a.col == b.col && a.unroll == b.unroll && a.deltat == b.deltat;
}
}  // namespace

bool find_track(const TrackStore* store, const std::string& path, const POread& par, StoredTrack& found) {
  if (!store) return false;
  const auto at = std::find_if(store->tracks.begin(), store->tracks.end(), [&](const StoredTrack& t) {
    return t.path == path && same_reading(t.par, par) && t.par.tinf <= par.tinf && t.par.tsup >= par.tsup;
  });
  if (at == store->tracks.end() || !(at->stamp == file_stamp(path))) return false;
  const Vector<PO>& all = at->po;
  const uint64_t n = all.size();
  const PO* const begin =
      std::lower_bound(all.val, all.val + n, par.tinf, [](const PO& rec, double t) { return rec.t < t; });
  const PO* const end = std::upper_bound(begin, static_cast<const PO*>(all.val + n), par.tsup,
                                         [](double t, const PO& rec) { return t < rec.t; });
  const uint64_t i0 = static_cast<uint64_t>(begin - all.val), i1 = static_cast<uint64_t>(end - all.val);
  const uint64_t from = i0 > 2 ? i0 - 2 : 0, to = std::min(n, i1 + 2);
  if (to <= from) return false;
  found.path = path;
  found.stamp = at->stamp;
  found.par = par;
  found.adj = at->adj;
  found.projected = at->projected;
  found.po = Vector<PO>(to - from);
  std::copy(all.val + from, all.val + to, found.po.val);
  LOG_LINE("track of " << path << " is at hand, n=" << to - from);
  return true;
}

void keep_track(TrackStore* store, StoredTrack&& track) {
  if (!store) return;
  std::erase_if(store->tracks, [&](const StoredTrack& t) { return t.path == track.path; });
  uint64_t bytes = track.po.size() * sizeof(PO);
  for (const StoredTrack& t : store->tracks) bytes += t.po.size() * sizeof(PO);
  if (bytes <= store->max_bytes) store->tracks.push_back(std::move(track));
}
}  // namespace veld
