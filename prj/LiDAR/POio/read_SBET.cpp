// SBET: 17 doubles a record, the first eleven of them used.
#include <algorithm>
#include <cmath>

#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace {
constexpr double DEG = 57.29577951308233;
constexpr uint64_t MARGIN = 2;  // records kept beyond each end of the window

struct SBETrec {
  double time, lat, lon, height;  // s, rad, rad, m
  double velocity[3];
  double roll, pitch, heading, wander;  // rad
  double accelerations_rates[6];
};
static_assert(sizeof(SBETrec) == 136);

// Random access to the times of a file; what a search needs.
struct SBETtimes {
  BufBinFileIn file{0};
  uint64_t nrec = 0;
  double first = 0;    // time of record 0
  uint64_t iroll = 0;  // record from which `period` is added; nrec: none
  double period = 0;   // s

  bool at(uint64_t i, double& t) { return file.seek(i * sizeof(SBETrec)) && file.read(&t, sizeof(t)); }
  // Number of leading records for which the time, rollover corrected, is below t (or equal to it).
  bool count_below(double t, bool or_equal, uint64_t& n);
};

bool SBETtimes::count_below(double t, bool or_equal, uint64_t& n) {
  uint64_t lo = 0, hi = nrec;
  while (lo < hi) {
    const uint64_t mid = lo + (hi - lo) / 2;
    double value = 0;
    if (!at(mid, value)) return false;
    if (mid >= iroll) value += period;
    if (value < t || (or_equal && value == t))
      lo = mid + 1;
    else
      hi = mid;
  }
  n = lo;
  return true;
}

// Opens the file, finds first and last time and the one rollover between them.
bool open_times(const std::string& path, bool warn, SBETtimes& s, double& last) {
  const int64_t fsize = file_size(path);
  if (fsize < 0 || !s.file.open(path)) {
    ERROR_MSG("failed to open PO file " << path);
    return false;
  }
  s.nrec = static_cast<uint64_t>(fsize) / sizeof(SBETrec);
  if (static_cast<uint64_t>(fsize) % sizeof(SBETrec) != 0 && warn)
    WARNING_MSG("invalid file size, SBET file=" << path);
  if (s.nrec < 2) {
    ERROR_MSG("not enough data points, SBET file " << path);
    return false;
  }
  s.iroll = s.nrec;
  if (!s.at(0, s.first) || !s.at(s.nrec - 1, last)) {
    ERROR_MSG("read error, SBET file " << path);
    return false;
  }
  if (!std::isfinite(s.first) || !std::isfinite(last)) {
    ERROR_MSG("incompatible GPS timestamps, SBET file " << path);
    return false;
  }
  if (last >= s.first) return true;
  uint64_t lo = 0, hi = s.nrec - 1;  // record lo isn't below the first time, hi is
  double t_lo = s.first, t_hi = last;
  while (hi - lo > 1) {
    const uint64_t mid = lo + (hi - lo) / 2;
    double t = 0;
    if (!s.at(mid, t)) return false;
    if (t < s.first)
      hi = mid, t_hi = t;
    else
      lo = mid, t_lo = t;
  }
  s.period = rollover_period(t_lo - t_hi);
  if (s.period == 0) {
    ERROR_MSG("incompatible GPS timestamps, SBET file " << path);
    return false;
  }
  s.iroll = hi;
  last += s.period;
  if (warn) log_rollover(s.period, hi, t_hi, "SBET", path);
  return true;
}

PO to_PO(const SBETrec& r, double shift, bool sbetw0) {
  PO rec;
  rec.t = r.time + shift;
  rec.x = r.lon * DEG;
  rec.y = r.lat * DEG;
  rec.z = r.height;
  rec.roll = static_cast<float>(r.roll * DEG);
  rec.pitch = static_cast<float>(r.pitch * DEG);
  rec.yaw = static_cast<float>((sbetw0 ? r.heading : r.heading - r.wander) * DEG);
  return rec;
}
}  // namespace

bool scan_SBET(const std::string& path, const POread& par, POscan& scan) {
  SBETtimes times;
  double last = 0, deltat = 0;
  if (!open_times(path, true, times, last)) return false;
  if (!file_time_scale(path, times.first, par, deltat, scan.tadj)) return false;
  scan.nrec = times.nrec;
  scan.t0 = times.first + deltat + par.deltat;
  scan.t1 = last + deltat + par.deltat;
  return true;
}

bool read_SBET(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  SBETtimes times;
  double last = 0, deltat = 0;
  if (!open_times(path, false, times, last)) return false;
  if (!file_time_scale(path, times.first, par, deltat, tadj)) return false;
  deltat += par.deltat;
  LOG_ENTER("read_SBET (Applanix) deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT);

  uint64_t below = 0, upto = 0;  // records in front of the window, and in front of its end
  if (!times.count_below(par.tinf - deltat, false, below) ||
      !times.count_below(par.tsup - deltat, true, upto)) {
    ERROR_MSG("read error, SBET file " << path);
    return false;
  }
  const uint64_t n0 = below > MARGIN ? below - MARGIN : 0;
  const uint64_t n1 = std::min(times.nrec, upto + MARGIN);
  LOG_LINE("select t:[" << par.tinf << " " << par.tsup << "] fsize=" << file_size(path)
                        << " rsize=" << sizeof(SBETrec) << " nrec=" << times.nrec << " n0=" << n0
                        << " n1=" << n1 << " roc0=" << times.iroll);
  if (n1 <= n0 + 1) {
    ERROR_MSG("not enough data points, SBET file " << path);
    return false;
  }
  const double need_MB = static_cast<double>(n1 - n0) * (2 * sizeof(PO)) * 1e-6;
  if (need_MB > MEM_MB) {
    ERROR_MSG("trajectory needs " << need_MB << " MB of " << MEM_MB << " MB (-mem), SBET file " << path);
    return false;
  }

  POlist list;
  list.rec.reserve(n1 - n0);
  BufBinFileIn file(BULK_BUFFER);
  if (!file.open(path) || !file.seek(n0 * sizeof(SBETrec))) return false;
  double period = n0 >= times.iroll ? times.period : 0;
  double before = -2e307;  // raw time of the record before
  for (uint64_t i = n0; i < n1; i++) {
    SBETrec r;
    if (!file.read(&r, sizeof(r))) {
      ERROR_MSG("read error, SBET file " << path << ", record " << i);
      return false;
    }
    const double more = i > n0 ? rollover_period(before - r.time) : 0;
    if (more > 0) {
      period += more;
      log_rollover(more, i, r.time, "SBET", path);
    }
    before = r.time;
    add_PO(list, to_PO(r, deltat + period, par.sbetw0), true);
  }
  return finish_PO(list, "SBET", path, true, po);
}
