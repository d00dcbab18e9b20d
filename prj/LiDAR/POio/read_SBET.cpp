// SBET: 17 doubles a record, the first eleven of them used.
#include <algorithm>
#include <cmath>
#include <vector>

#include "lib/Geometry/angle.h"
#include "lib/general/binfile.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "prj/LiDAR/POio/POcheck.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t BLOCK = 512;  // records read at once
constexpr uint64_t NEAR = 3;     // records on each side whose times decide with that of a record

struct SBETrec {
  double time, lat, lon, height;  // s, rad, rad, m
  double velocity[3];
  double roll, pitch, heading, wander;  // rad
  double accelerations_rates[6];
};
static_assert(sizeof(SBETrec) == 136);

// Random access to the times of a file; what a search needs. Single wrong times don't lead it astray: a time is
// the median of those around it.
struct SBETtimes {
  BufBinFileIn file{0};
  uint64_t nrec = 0;
  double first = 0;    // s, at the start of the file
  double last = 0;     // s, at its end, rollover corrected
  uint64_t iroll = 0;  // record from which `period` is added; nrec: none
  double period = 0;   // s

  // Times of n records from record i on, cut at the end of the file.
  bool times(uint64_t i, uint64_t n, std::vector<double>& t);
  bool at(uint64_t i, double& t);
  // Number of leading records for which the time, rollover corrected, is below t (or equal to it).
  bool count_below(double t, bool or_equal, uint64_t& n);
  // Finds the one rollover of a file whose last time is below its first.
  bool find_rollover();
};

bool SBETtimes::times(uint64_t i, uint64_t n, std::vector<double>& t) {
  std::vector<SBETrec> records(std::min(n, nrec - i));
  t.clear();
  if (!file.seek(i * sizeof(SBETrec)) || !file.read(records.data(), records.size() * sizeof(SBETrec)))
    return false;
  for (const SBETrec& r : records) t.push_back(r.time);
  return true;
}

bool SBETtimes::at(uint64_t i, double& t) {
  std::vector<double> around;
  const uint64_t i0 = i > NEAR ? i - NEAR : 0;
  if (!times(i0, i + NEAR + 1 - i0, around)) return false;
  std::erase_if(around, [](double value) { return !std::isfinite(value); });
  if (around.empty()) return false;
  const auto middle = around.begin() + static_cast<int64_t>(around.size() / 2);
  std::nth_element(around.begin(), middle, around.end());
  t = *middle;
  return true;
}

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

bool SBETtimes::find_rollover() {
  uint64_t lo = 0, hi = nrec - 1;  // the time at lo isn't below the first, that at hi is
  double t_lo = first, t_hi = last;
  while (hi - lo > 1) {
    const uint64_t mid = lo + (hi - lo) / 2;
    double t = 0;
    if (!at(mid, t)) return false;
    if (t < first)
      hi = mid, t_hi = t;
    else
      lo = mid, t_lo = t;
  }
  period = rollover_period(t_lo - t_hi);
  // The medians may be some records off: two records in a row below the first time are behind it.
  const uint64_t i0 = hi > 2 * NEAR ? hi - 2 * NEAR : 0;
  std::vector<double> t;
  if (period == 0 || !times(i0, 4 * NEAR, t)) return false;
  iroll = hi;
  for (size_t i = t.size(); i-- > 0;)
    if (t[i] < first && (i + 1 == t.size() || t[i + 1] < first)) iroll = i0 + i;
  last += period;
  return true;
}

// Opens the file, finds first and last time and the rollover between them.
bool open_times(const std::string& path, bool warn, SBETtimes& s) {
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
  std::vector<double> head, tail;
  const uint64_t n = std::min(s.nrec, END_RECORDS);
  if (!s.times(0, n, head) || !s.times(s.nrec - n, n, tail)) {
    ERROR_MSG("read error, SBET file " << path);
    return false;
  }
  std::reverse(head.begin(), head.end());
  s.first = end_time(head);
  s.last = end_time(tail);
  if (!std::isfinite(s.first) || !std::isfinite(s.last) || (s.last < s.first && !s.find_rollover())) {
    ERROR_MSG("incompatible GPS timestamps, SBET file " << path);
    return false;
  }
  if (s.period > 0 && warn) log_rollover(s.period, s.iroll, s.last - s.period, "SBET", path);
  return true;
}

PO to_PO(const SBETrec& r, double shift, const POread& par) {
  PO rec;
  rec.t = r.time + shift;
  rec.x = r.lon * DEG_PER_RAD;
  rec.y = r.lat * DEG_PER_RAD;
  rec.z = r.height;
  rec.roll = static_cast<float>(r.roll * DEG_PER_RAD);
  rec.pitch = static_cast<float>(r.pitch * DEG_PER_RAD);
  rec.yaw = file_yaw((par.sbetw0 ? r.heading : r.heading - r.wander) * DEG_PER_RAD, par);
  return rec;
}
// Records [n0, n1) of the file, checked.
bool read_records(const SBETtimes& times, uint64_t n0, uint64_t n1, double deltat, const POread& par,
                  POcheck& list) {
  BufBinFileIn file(BULK_BUFFER);
  if (!file.open(list.path) || !file.seek(n0 * sizeof(SBETrec))) return false;
  list.rec.reserve(n1 - n0);
  list.period = n0 >= times.iroll ? times.period : 0;
  list.tend = times.last + deltat;
  std::vector<SBETrec> block(BLOCK);
  for (uint64_t i = n0; i < n1; i += BLOCK) {
    const uint64_t n = std::min(BLOCK, n1 - i);
    if (!file.read(block.data(), n * sizeof(SBETrec))) {
      ERROR_MSG("read error, SBET file " << list.path << ", records from " << i);
      return false;
    }
    for (uint64_t k = 0; k < n; k++) add_PO(list, to_PO(block[k], deltat, par));
  }
  return true;
}
}  // namespace

bool scan_SBET(const std::string& path, const POread& par, POscan& scan) {
  SBETtimes times;
  double deltat = 0;
  if (!open_times(path, true, times)) return false;
  check_time_format(path, "SBET", times.first, par);
  if (!file_time_scale(path, times.first, par, deltat, scan.tadj)) return false;
  scan.nrec = times.nrec;
  scan.t0 = times.first + deltat + par.deltat;
  scan.t1 = times.last + deltat + par.deltat;
  return true;
}

bool read_SBET(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj) {
  SBETtimes times;
  double deltat = 0;
  if (!open_times(path, false, times)) return false;
  if (!file_time_scale(path, times.first, par, deltat, tadj)) return false;
  deltat += par.deltat;
  LOG_ENTER("read_SBET (Applanix) deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT);

  uint64_t below = 0, upto = 0;  // records in front of the window, and in front of its end
  if (!times.count_below(par.tinf - deltat, false, below) ||
      !times.count_below(par.tsup - deltat, true, upto)) {
    ERROR_MSG("read error, SBET file " << path);
    return false;
  }
  const uint64_t n0 = below > PO_MARGIN ? below - PO_MARGIN : 0;
  const uint64_t n1 = std::min(times.nrec, upto + PO_MARGIN);
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
  POcheck list;
  list.path = path;
  list.what = "SBET";
  list.coord = PO_GEO;
  return read_records(times, n0, n1, deltat, par, list) && finish_PO(list, po);
}
}  // namespace veld
