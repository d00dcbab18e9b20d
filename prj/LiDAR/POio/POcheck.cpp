#include "prj/LiDAR/POio/POcheck.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"
#include "prj/LiDAR/POio/POio_internal.h"
#include "prj/LiDAR/POio/POtime.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
namespace {
constexpr uint64_t CONFIRM = 5;   // records that fit to each other and so stand against the one before them
constexpr double STEP_TOL = 0.5;  // m, noise of positions on top of the limits
constexpr double ANGLE_TOL = 2;   // degrees, the same for angles
constexpr double M_PER_DEG = 111320;  // of latitude, and of longitude at the equator
constexpr double RAD = 0.01745329251994;
constexpr uint64_t FEW = 10;      // wrong records that any file may have
constexpr double REGULAR = 1.5;   // step over the step before, up to which a record needs no confirmation
constexpr double END_GAP = 2.5;   // the same ratio in front of a single record at the end
constexpr double START_GAP = 10;  // the same ratio behind the very first record, beyond which that is wrong

double angle_step(float a, float b) {
  const double step = std::fabs(static_cast<double>(b) - static_cast<double>(a));
  return step <= 180 ? step : std::fabs(std::remainder(step, 360));
}

// Whether a horizontal step is longer than a limit in m. Far below it a degree of longitude may count as one of
// latitude.
bool ground_step_beyond(const PO& a, const PO& b, bool geographic, double limit) {
  double dx = b.x - a.x;
  const double dy = b.y - a.y;
  const double most = geographic ? limit / M_PER_DEG : limit;
  if (dx * dx + dy * dy <= most * most) return false;
  if (!geographic) return true;
  dx = std::cos(0.5 * (a.y + b.y) * RAD) * std::remainder(dx, 360);
  return dx * dx + dy * dy > most * most;
}

// b may follow a: time rises, and speed, climb and turn rates are those of a platform. A limit of 0 is off.
bool follows(const PO& a, const PO& b, int coord) {
  const double dt = b.t - a.t;
  if (!(dt > 0)) return false;
  if (PO_RATE_MAX > 0) {
    const double most = PO_RATE_MAX * dt + ANGLE_TOL;
    if (angle_step(a.roll, b.roll) > most || angle_step(a.pitch, b.pitch) > most ||
        angle_step(a.yaw, b.yaw) > most)
      return false;
  }
  const double dz = std::fabs(b.z - a.z);
  if (PO_CLIMB_MAX > 0 && coord != PO_ECEF && dz > PO_CLIMB_MAX * dt + STEP_TOL) return false;
  if (!(PO_SPEED_MAX > 0)) return true;
  const double most = PO_SPEED_MAX * dt + STEP_TOL;
  if (coord == PO_ECEF) return norm(position(b) - position(a)) <= most;
  return !ground_step_beyond(a, b, coord == PO_GEO, most);
}

// b continues the list without a gap.
bool continues(const POcheck& list, const PO& b) {
  const PO& a = list.rec.back();
  return (list.dt == 0 || b.t - a.t <= REGULAR * list.dt) && follows(a, b, list.coord);
}

// b follows the records that wait. Where these lie back in time, only without a gap: a single early time would
// draw all that come after it to itself.
bool fits_waiting(const POcheck& list, const PO& b) {
  const std::vector<PO>& w = list.waiting;
  if (!follows(w.back(), b, list.coord)) return false;
  const double before = w.size() > 1 ? w.back().t - w[w.size() - 2].t : 0;
  return w[0].t > list.rec.back().t || b.t - w.back().t <= REGULAR * std::max(list.dt, before);
}

// Counts a record as wrong: in its time if nothing else speaks against it.
void drop(POcheck& list, const PO& rec) {
  const bool time =
      !list.rec.empty() && (rec.t <= list.rec.back().t || follows(list.rec.back(), rec, list.coord));
  (time ? list.ntime : list.nstep)++;
}

void drop_waiting(POcheck& list) {
  for (const PO& rec : list.waiting) drop(list, rec);
  list.waiting.clear();
}

void take(POcheck& list, const PO& rec) {
  list.dt = list.run > 0 ? rec.t - list.rec.back().t : 0;
  list.rec.push_back(rec);
  list.ntaken++;
  list.run++;
}

// A fall of the clock by a week or a day between the last record taken and those that wait: their times and all
// that follow get the period.
void roll_over(POcheck& list) {
  const double more = rollover_period(list.rec.back().t - list.waiting[0].t);
  if (more == 0) return;
  log_rollover(more, list.ntaken, list.waiting[0].t, list.what, list.path);
  list.period += more;
  for (PO& rec : list.waiting) rec.t += more;
}

// Rollovers among the first records: two in a row must be behind it.
void roll_start(POcheck& list) {
  std::vector<PO>& w = list.waiting;
  for (size_t i = 1; i < w.size(); i++) {
    const double more = rollover_period(w[i - 1].t - w[i].t);
    if (more == 0 || (i + 1 < w.size() && rollover_period(w[i - 1].t - w[i + 1].t) != more)) continue;
    log_rollover(more, i, w[i].t, list.what, list.path);
    list.period += more;
    for (size_t k = i; k < w.size(); k++) w[k].t += more;
  }
}

// The first records of a list, while it is unknown which are right: takes the longest sequence of records that
// follow each other. A first time far in front of the others is wrong.
void take_start(POcheck& list) {
  roll_start(list);
  std::vector<PO> w;
  w.swap(list.waiting);
  std::vector<size_t> length(w.size(), 1), before(w.size(), w.size());
  size_t end = 0;
  for (size_t i = 0; i < w.size(); i++) {
    for (size_t k = 0; k < i; k++)
      if (length[k] + 1 > length[i] && follows(w[k], w[i], list.coord))
        length[i] = length[k] + 1, before[i] = k;
    if (length[i] > length[end]) end = i;
  }
  std::vector<size_t> chain;
  for (size_t i = end; i < w.size(); i = before[i]) chain.insert(chain.begin(), i);
  if (chain.size() > 2 && w[chain[1]].t - w[chain[0]].t > START_GAP * (w[chain[2]].t - w[chain[1]].t))
    chain.erase(chain.begin());
  for (const size_t i : chain) take(list, w[i]);
  for (size_t i = 0; i < w.size(); i++)
    if (std::find(chain.begin(), chain.end(), i) == chain.end())
      (i > 0 && w[i].t <= w[i - 1].t ? list.ntime : list.nstep)++;
}

// The records that wait fit to each other: either the last ones taken were wrong, or there is a gap or a jump.
void confirm_waiting(POcheck& list) {
  roll_over(list);
  const PO& first = list.waiting[0];
  const auto wrong = [&] {  // the last one taken, if it is one of a few
    return list.run < CONFIRM || (list.rec.back().t >= first.t && list.run > 0);
  };
  uint64_t nwrong = 0;
  const uint64_t limit = std::min<uint64_t>(CONFIRM - 1, list.rec.size());
  while (nwrong < limit && wrong() && !follows(list.rec.back(), first, list.coord)) {
    list.rec.pop_back();
    list.ntaken--;
    list.run -= list.run > 0;
    nwrong++;
  }
  list.nstep += nwrong;
  if (!list.rec.empty() && list.rec.back().t >= first.t) {  // the clock runs back for good
    drop_waiting(list);
    return;
  }
  if (!list.rec.empty() && !follows(list.rec.back(), first, list.coord)) {
    list.njump++;
    list.run = 0;
  }
  if (list.rec.empty()) list.run = 0;
  for (const PO& rec : list.waiting) take(list, rec);
  list.waiting.clear();
}

bool possible(POcheck& list, const PO& rec) {
  const double sum = rec.t + rec.x + rec.y + rec.z + rec.roll + rec.pitch + rec.yaw;
  if (!std::isfinite(sum) || std::fabs(rec.roll) + std::fabs(rec.pitch) + std::fabs(rec.yaw) > 1e5f) {
    list.nbad++;
    return false;
  }
  if (list.coord == PO_GEO && (std::fabs(rec.x) > 360 || std::fabs(rec.y) > 90)) {
    list.ncoord++;
    return false;
  }
  return true;
}

// The record again that came last: some recorders and merged files write records twice.
bool repeats(const PO& last, const PO& rec) {
  return rec.t == last.t && norm(position(rec) - position(last)) == 0 && rec.roll == last.roll &&
         rec.pitch == last.pitch && rec.yaw == last.yaw;
}

uint64_t count_dropped(const POcheck& list) { return list.nbad + list.ncoord + list.ntime + list.nstep; }
}  // namespace

void add_PO(POcheck& list, PO rec) {
  if (!possible(list, rec)) return;
  rec.t += list.period;
  if (rec.t > list.tend) {
    list.ntime++;
    return;
  }
  const std::vector<PO>& before = list.waiting.empty() ? list.rec : list.waiting;
  if (!before.empty() && repeats(before.back(), rec)) {
    list.ndup++;
    return;
  }
  if (list.rec.empty()) {
    list.waiting.push_back(rec);
    if (list.waiting.size() == END_RECORDS) take_start(list);
    return;
  }
  if (continues(list, rec)) {
    if (!list.waiting.empty()) drop_waiting(list);
    take(list, rec);
    return;
  }
  if (!list.waiting.empty() && !fits_waiting(list, rec)) drop_waiting(list);
  list.waiting.push_back(rec);
  if (list.waiting.size() == CONFIRM) confirm_waiting(list);
}

void end_PO(POcheck& list) {
  if (list.waiting.empty()) return;
  if (list.rec.empty()) {
    take_start(list);
    return;
  }
  const PO& first = list.waiting[0];
  const PO& last = list.rec.back();
  const bool near =
      follows(last, first, list.coord) && (list.dt == 0 || first.t - last.t <= END_GAP * list.dt);
  if (near || list.waiting.size() > 1)
    confirm_waiting(list);
  else
    drop_waiting(list);
}

bool finish_PO(POcheck& list, Vector<PO>& po) {
  end_PO(list);
  const uint64_t n = list.ntaken, ndropped = count_dropped(list);
  const char* what = list.what;
  LOG_LINE("nbad=" << list.nbad << " ndup=" << list.ndup << " ncoord=" << list.ncoord
                   << " ntime=" << list.ntime << " nstep=" << list.nstep << " njump=" << list.njump);
  if (list.ncoord > n || (n < 2 && list.ncoord > 0)) {
    ERROR_MSG("coordinates look projected (geodetic expected), " << what << " file=" << list.path);
    return false;
  }
  if (list.ntime > n) {
    ERROR_MSG("incompatible GPS timestamps, " << what << " file " << list.path);
    return false;
  }
  if (list.rec.size() < 2 || list.nbad > n) {
    ERROR_MSG("not enough data points, " << what << " file " << list.path);
    return false;
  }
  const uint64_t wrong = ndropped + list.njump;
  if (wrong > FEW && static_cast<double>(wrong) > 0.01 * PO_BAD_MAX * static_cast<double>(n + ndropped)) {
    ERROR_MSG(wrong << " of " << n + ndropped << " records are wrong (" << list.nbad + list.ncoord
                    << " values, " << list.ntime << " times, " << list.nstep + list.njump << " steps beyond "
                    << PO_SPEED_MAX << " m/s, " << PO_CLIMB_MAX << " m/s of climb or " << PO_RATE_MAX
                    << " degrees/s), " << what << " file " << list.path
                    << " (check options -po_speed -po_climb -po_rate -po_bad)");
    return false;
  }
  if (list.ndup > 0) LOG_MSG(list.ndup << " repeated records skipped, " << what << " file " << list.path);
  if (ndropped > 0) WARNING_MSG(ndropped << " invalid records skipped, " << what << " file " << list.path);
  if (list.njump > 0)
    WARNING_MSG(list.njump << " jumps of position or attitude, " << what << " file " << list.path);
  bool small = list.coord == PO_PROJ;
  for (size_t i = 0; i < list.rec.size() && small; i++)
    small = std::fabs(list.rec[i].x) <= 360 && std::fabs(list.rec[i].y) <= 90;
  if (small)
    WARNING_MSG("coordinates look geodetic (projected expected), PO file " << list.path
                                                                           << " (check option -G)");
  po.resize(list.rec.size());
  std::copy(list.rec.begin(), list.rec.end(), po.val);
  list.rec = {};
  return true;
}

double end_time(const std::vector<double>& times) {
  std::vector<double> sorted;
  for (const double t : times)
    if (std::isfinite(t)) sorted.push_back(t);
  if (sorted.empty()) return std::nan("");
  std::sort(sorted.begin(), sorted.end());
  const double middle = sorted[sorted.size() / 2];
  std::vector<double> steps;
  for (size_t i = 1; i < sorted.size(); i++) steps.push_back(sorted[i] - sorted[i - 1]);
  std::sort(steps.begin(), steps.end());
  const double step = steps.empty() ? 0 : steps[steps.size() / 2];
  const double reach = 2 * step * static_cast<double>(sorted.size());
  const auto near = [&](double t) { return std::isfinite(t) && std::fabs(t - middle) <= reach; };
  if (sorted.size() < 5)
    return *std::find_if(times.rbegin(), times.rend(), [](double t) { return std::isfinite(t); });
  const auto found = std::find_if(times.rbegin(), times.rend(), near);
  const auto n = std::count_if(times.begin(), times.end(), near);
  return 2 * n > static_cast<int64_t>(times.size()) ? *found : std::nan("");
}
}  // namespace veld
