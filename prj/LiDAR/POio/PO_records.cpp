#include "prj/LiDAR/POio/PO_records.h"

#include <algorithm>
#include <cmath>
#include <vector>

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

// Random access to the times of a file; what a search needs. Single wrong times don't lead it astray: a time is
// the median of those around it.
struct RecordTimes {
  const PORecords& format;
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

bool RecordTimes::times(uint64_t i, uint64_t n, std::vector<double>& t) {
  const uint64_t count = std::min(n, nrec - i);
  std::vector<char> bytes(count * format.rsize);
  t.clear();
  if (!file.seek(format.header + i * format.rsize) || !file.read(bytes.data(), bytes.size())) return false;
  for (uint64_t k = 0; k < count; k++) t.push_back(format.time_of(bytes.data() + k * format.rsize));
  return true;
}

bool RecordTimes::at(uint64_t i, double& t) {
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

bool RecordTimes::count_below(double t, bool or_equal, uint64_t& n) {
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

bool RecordTimes::find_rollover() {
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
bool open_times(bool warn, RecordTimes& s) {
  const PORecords& f = s.format;
  if (!s.file.open(f.path)) {
    ERROR_MSG("failed to open PO file " << f.path);
    return false;
  }
  s.nrec = f.nrec;
  if (s.nrec < 2) {
    ERROR_MSG("not enough data points, " << f.what << " file " << f.path);
    return false;
  }
  s.iroll = s.nrec;
  std::vector<double> head, tail;
  const uint64_t n = std::min(s.nrec, END_RECORDS);
  if (!s.times(0, n, head) || !s.times(s.nrec - n, n, tail)) {
    ERROR_MSG("read error, " << f.what << " file " << f.path);
    return false;
  }
  std::reverse(head.begin(), head.end());
  s.first = end_time(head);
  s.last = end_time(tail);
  if (!std::isfinite(s.first) || !std::isfinite(s.last) || (s.last < s.first && !s.find_rollover())) {
    ERROR_MSG("incompatible GPS timestamps, " << f.what << " file " << f.path);
    return false;
  }
  if (s.period > 0 && warn) log_rollover(s.period, s.iroll, s.last - s.period, f.what, f.path);
  return true;
}

// Options of the file, with the time format that it has of its own.
POread own_param(const PORecords& f, const POread& par) {
  POread own = par;
  if (f.time >= 0) own.time = f.time;
  return own;
}

// Records [n0, n1) of the file, checked.
bool read_range(const RecordTimes& times, uint64_t n0, uint64_t n1, double deltat, const POread& par,
                POcheck& list) {
  const PORecords& f = times.format;
  BufBinFileIn file(BULK_BUFFER);
  if (!file.open(f.path) || !file.seek(f.header + n0 * f.rsize)) return false;
  list.rec.reserve(n1 - n0);
  list.period = n0 >= times.iroll ? times.period : 0;
  list.tend = times.last + deltat;
  std::vector<char> block(BLOCK * f.rsize);
  for (uint64_t i = n0; i < n1; i += BLOCK) {
    const uint64_t n = std::min(BLOCK, n1 - i);
    if (!file.read(block.data(), n * f.rsize)) {
      ERROR_MSG("read error, " << f.what << " file " << f.path << ", records from " << i);
      return false;
    }
    for (uint64_t k = 0; k < n; k++) {
      PO rec = f.sample(block.data() + k * f.rsize, par);
      rec.t = f.time_of(block.data() + k * f.rsize) + deltat;
      add_PO(list, rec);
    }
  }
  return true;
}
}  // namespace

bool scan_records(const PORecords& f, const POread& given, POscan& scan) {
  const POread par = own_param(f, given);
  RecordTimes times{f};
  double deltat = 0;
  if (!open_times(true, times)) return false;
  check_time_format(f.path, f.what, times.first, par);
  if (!file_time_scale(f.path, times.first, par, deltat, scan.tadj)) return false;
  scan.nrec = times.nrec;
  scan.coord = f.coord;
  scan.own_time = f.time >= 0;
  scan.t0 = times.first + deltat + par.deltat;
  scan.t1 = times.last + deltat + par.deltat;
  return true;
}

bool open_record_clock(const PORecords& f, const POread& given, RecordClock& clock) {
  const POread par = own_param(f, given);
  RecordTimes times{f};
  bool adj = false;
  if (!open_times(false, times) || !file_time_scale(f.path, times.first, par, clock.deltat, adj))
    return false;
  clock.deltat += par.deltat;
  clock.iroll = times.iroll;
  clock.period = times.period;
  return true;
}

bool read_records(const PORecords& f, const POread& given, Vector<PO>& po, bool& tadj) {
  const POread par = own_param(f, given);
  RecordTimes times{f};
  double deltat = 0;
  if (!open_times(false, times)) return false;
  if (!file_time_scale(f.path, times.first, par, deltat, tadj)) return false;
  deltat += par.deltat;
  LOG_ENTER(f.reader << " deltat=" << deltat << " MAX_TRAJ_DT=" << MAX_TRAJ_DT);

  uint64_t below = 0, upto = 0;  // records in front of the window, and in front of its end
  if (!times.count_below(par.tinf - deltat, false, below) ||
      !times.count_below(par.tsup - deltat, true, upto)) {
    ERROR_MSG("read error, " << f.what << " file " << f.path);
    return false;
  }
  const uint64_t n0 = below > PO_MARGIN ? below - PO_MARGIN : 0;
  const uint64_t n1 = std::min(times.nrec, upto + PO_MARGIN);
  LOG_LINE("select t:[" << par.tinf << " " << par.tsup << "] fsize=" << file_size(f.path)
                        << " rsize=" << f.rsize << " nrec=" << times.nrec << " n0=" << n0 << " n1=" << n1
                        << " roc0=" << times.iroll);
  if (n1 <= n0 + 1) {
    ERROR_MSG("not enough data points, " << f.what << " file " << f.path);
    return false;
  }
  const double need_MB = static_cast<double>(n1 - n0) * (2 * sizeof(PO)) * 1e-6;
  if (need_MB > MEM_MB) {
    ERROR_MSG("trajectory needs " << need_MB << " MB of " << MEM_MB << " MB (-mem), " << f.what << " file "
                                  << f.path);
    return false;
  }
  POcheck list;
  list.path = f.path;
  list.what = f.what;
  list.coord = f.coord;
  return read_range(times, n0, n1, deltat, par, list) && finish_PO(list, po);
}
}  // namespace veld
