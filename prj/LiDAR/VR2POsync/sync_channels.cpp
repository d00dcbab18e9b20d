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
  LOG_ENTER("comp_multich nsw=" << job.res.idx.nsw() << " npo=" << job.nfiles());
  for (int sw = 0; sw < job.res.idx.nsw(); sw++) {
    const int m = job.prj.swaths[static_cast<size_t>(sw)].mainch;
    job.res.mainch(sw) = job.mobile(sw) ? m : sw;
    if (!job.mobile(sw)) continue;
    if (m < 0 || m >= job.res.idx.nsw() || !job.mobile(m)) {
      ERROR_MSG("PO sync: main channel missing or dropped for swath " << sw << ", channel "
                                                                      << job.swath(sw).ch);
      return false;
    }
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
  const int nsw = job.res.idx.nsw();
  LOG_ENTER("set_max_interval_ch nsw=" << nsw << " ICH=" << job.par.ICH);
  if (job.par.ICH) return true;
  std::vector<std::vector<int>> sets(static_cast<size_t>(nsw));  // by main swath: the channels of its line
  for (int sw = 0; sw < nsw; sw++)
    if (job.mobile(sw)) sets[static_cast<size_t>(job.res.mainch(sw))].push_back(sw);
  ResultFile out;
  bool any = false;
  for (std::vector<int>& set : sets) {
    if (set.size() < 2) continue;
    std::stable_sort(set.begin(), set.end(), [&](int a, int b) { return job.swath(a).ch < job.swath(b).ch; });
    std::string names, groups;
    double tmin = 2e307, tmax = -2e307;
    bool rising = true;
    for (size_t i = 0; i < set.size(); i++) {
      const DUTswath& s = job.swath(set[i]);
      rising = rising && (i == 0 || s.ch > job.swath(set[i - 1]).ch);
      names += (i ? "," : "") + std::to_string(set[i]);
      groups += (i ? "," : "") + std::to_string(s.group);
      tmin = std::min(tmin, job.res.tmin(set[i]));
      tmax = std::max(tmax, job.res.tmax(set[i]));
    }
    if (set.size() > MAX_CHANNELS || !rising) {
      ERROR_MSG("inconsistent channel info, swaths " << names);
      return false;
    }
    for (const int sw : set) job.res.tmin(sw) = tmin, job.res.tmax(sw) = tmax;
    if (!any) {
      if (!out.open(job.prj.name + "_ch_stat.log")) return false;
      out.fs << "Swath#_Ch{...} Group#_Ch{...} NCh TimeInt DateTimeMin DateTimeMax\n";
      any = true;
    }
    const bool adj = job.swath(set[0]).adj;
    out.fs << names << "  " << groups << "  " << set.size() << "  " << interval_text(tmax - tmin) << "  "
           << date_text(tmin, adj) << "  " << date_text(tmax, adj) << '\n';
  }
  return !any || out.commit();
}
}  // namespace veld
