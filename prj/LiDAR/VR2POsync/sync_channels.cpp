// Channels of a line: which swath is the main one, one time interval for all, one trajectory file for all.
#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "prj/LiDAR/VR2POsync/VR2POsync_internal.h"
#include "prj/LiDAR/swath/gps_time.h"

namespace veld {
namespace {
constexpr size_t MAX_CHANNELS = 32;

// The first file of the same path that a file repeats: in its own group, or for another channel in channel 0.
int find_duplicate(const SyncJob& job, int f) {
  const int ch = job.channel_of_group(job.file_group(f));
  for (int e = f - 1; e >= 0; e--) {
    if (job.file_path(e) != job.file_path(f)) continue;
    const bool same_group = job.file_group(e) == job.file_group(f);
    const bool main_channel = ch != 0 && job.channel_of_group(job.file_group(e)) == 0;
    if (same_group || main_channel) return job.file(e).dup >= 0 ? job.file(e).dup : e;
  }
  return -1;
}
}  // namespace

bool comp_multich(SyncJob& job) {
  LOG_ENTER("comp_multich nsw=" << job.swaths().size() << " npo=" << job.nfiles());
  for (const Swath& s : job.swaths()) {
    if (!s.mobile() || s.is_main() || job.swaths()[s.mainch].mobile()) continue;
    ERROR_MSG("PO sync: main channel missing or dropped for swath " << s.id << ", channel " << s.channel);
    return false;
  }
  for (int f = 0; f < job.nfiles(); f++) {
    job.file(f).dup = find_duplicate(job, f);
    const int ch = job.channel_of_group(job.file_group(f));
    if (ch != 0 && job.file(f).dup < 0) {
      ERROR_MSG("PO sync: group/channel inconsistency for channel " << ch << ", PO file "
                                                                    << job.file_path(f));
      return false;
    }
  }
  return true;
}

bool set_max_interval_ch(SyncJob& job) {
  SwathTable& swaths = job.swaths();
  LOG_ENTER("set_max_interval_ch nsw=" << swaths.size() << " ICH=" << job.par.ICH);
  if (job.par.ICH) return true;
  SwathVector<std::vector<SwathId>> sets(swaths);  // by main swath: the channels of its line
  for (const Swath& s : swaths)
    if (s.mobile()) sets[s.mainch].push_back(s.id);
  ResultFile out;
  bool any = false;
  for (const Swath& main : swaths) {
    std::vector<SwathId>& set = sets[main.id];
    if (set.size() < 2) continue;
    std::stable_sort(set.begin(), set.end(),
                     [&](SwathId a, SwathId b) { return swaths[a].channel < swaths[b].channel; });
    std::string names, groups;
    double tmin = 2e307, tmax = -2e307;
    bool rising = true;
    for (size_t i = 0; i < set.size(); i++) {
      const Swath& s = swaths[set[i]];
      rising = rising && (i == 0 || s.channel > swaths[set[i - 1]].channel);
      names += (i ? "," : "") + to_string(s.id);
      groups += (i ? "," : "") + std::to_string(s.group);
      tmin = std::min(tmin, s.clock.begin);
      tmax = std::max(tmax, s.clock.end);
    }
    if (set.size() > MAX_CHANNELS || !rising) {
      ERROR_MSG("inconsistent channel info, swaths " << names);
      return false;
    }
    for (const SwathId id : set) swaths[id].clock.begin = tmin, swaths[id].clock.end = tmax;
    if (!job.par.reports) continue;
    if (!any) {
      if (!out.open(job.prj.name + "_ch_stat.log")) return false;
      out.fs << "Swath#_Ch{...} Group#_Ch{...} NCh TimeInt DateTimeMin DateTimeMax [DateTime UTC]\n";
      any = true;
    }
    const bool adj = swaths[set[0]].clock.adj;
    out.fs << names << "  " << groups << "  " << set.size() << "  " << interval_text(tmax - tmin) << "  "
           << date_word(tmin, adj) << "  " << date_word(tmax, adj) << '\n';
  }
  return !any || out.commit();
}
}  // namespace veld
