#include "prj/LiDAR/check/traj_fault.h"

#include <algorithm>
#include <cmath>

#include "lib/general/log.h"

namespace veld {
namespace {
// A right trajectory leaves up to 0.05 degrees of spread and what files make of angles by rounding.
constexpr double SPREAD_CLEAN = 0.12, ANGLE_CLEAN = 0.45;  // degrees, below which nothing is searched
constexpr double SPREAD_GAIN = 0.1, ANGLE_GAIN = 0.25;     // degrees, that a change must gain at least
constexpr double GAIN_RATIO = 0.4;                         // what it must bring the figure down to
constexpr double LOSS_RATIO = 1.2;                         // by what the other figure may grow
constexpr double ROUNDING = 0.34;                          // degrees (68 %), of angles in whole degrees
constexpr double ANGLE_SCALE =
    0.05;  // of the height; smaller shifts look like a wrong scale of recorded angles
constexpr double SPREAD_LEVEL = 0.35,
                 ANGLE_LEVEL = 1.0;  // degrees, beyond which missing attitudes are missed
constexpr double CLEARLY = 0.8;      // of the cost, by which a later change is better
constexpr size_t SEARCH_BEAMS = 500;
constexpr double LATE_STEP = 0.25, LATE_FINE = 0.02;            // s
constexpr double LOW_MAX = 130, LOW_STEP = 4, LOW_FINE = 0.25;  // m; the geoid reaches from -107 to 86 m
constexpr double CRAB_MAX = 60;  // degrees between heading and track of a platform that flies forward
constexpr double SLOPE_WRONG = 1.6,
                 SLOPE_RIGHT = 0.4;   // over roll; -2 or 2 is a wrong sign, -1 or 1 angles from
                                      // the vertical
constexpr double OFF_NADIR_MAX = 75;  // degrees; oblique scanners look 45 to 60 degrees off
constexpr double BESIDE_RANGES = 6;   // horizontal distances of echoes in heights that are no scan any more
constexpr double BESIDE_MIN = 2000;   // m
constexpr double MOTION_MAX = 0.5;    // of the trajectory's speed
constexpr double MOTION_LENGTH = 4;   // ranges that a swath must be long for its motion to count

struct Search {
  const std::vector<Beam>& beams;
  double dt;
  bool angled;
  const Vector<PO>& po;
  const SwRot& rot;
  const ScanPattern& now;

  ScanPattern at(const TrajChange& change) const {
    return comp_ScanPattern(beams, dt, angled, po, false, rot, change);
  }
  // Below 1 when the change makes the pattern thinner; large when beams lose their trajectory.
  double cost(const ScanPattern& p) const {
    if (p.n < 0.7 * now.n || p.AGL <= 0) return 1e9;
    const double wrong_slope = std::fabs(p.roll_slope) > SLOPE_WRONG ? 3.0 : 1.0;
    return wrong_slope * ratio(p.spread, now.spread, 0.01) * (angled ? ratio(p.angle, now.angle, 0.1) : 1.0);
  }
  // A floor keeps noise from deciding.
  static double ratio(double a, double b, double floor) { return (a + floor) / (b + floor); }
};

// Walks a change over [-limit, limit], then around its best place.
template <typename Field>
TrajChange search_range(const Search& s, Field field, double limit, double step, double fine) {
  TrajChange best;
  double least = 1e9;
  std::vector<Beam> few;  // some hundreds of beams show where to look
  for (size_t i = 0; i < s.beams.size(); i += s.beams.size() / SEARCH_BEAMS + 1) few.push_back(s.beams[i]);
  const ScanPattern few_now = comp_ScanPattern(few, s.dt, s.angled, s.po, false, s.rot, {});
  const Search thin{few, s.dt, s.angled, s.po, s.rot, few_now};
  const auto walk = [&](double lo, double hi, double by) {
    for (double v = lo; v <= hi + 0.5 * by; v += by) {
      TrajChange change;
      change.*field = v;
      const double cost = thin.cost(thin.at(change));
      if (cost >= least) continue;
      least = cost;
      best = change;
    }
  };
  walk(-limit, limit, step);
  const double middle = best.*field;
  walk(middle - step, middle + step, fine);
  return best;
}

double beyond_rounding(double angle) { return std::sqrt(std::max(0.0, angle * angle - ROUNDING * ROUNDING)); }

// Whether a change explains what is wrong.
bool mends(const ScanPattern& now, const ScanPattern& p, const TrajChange& change, bool angled) {
  const bool spread = p.spread <= GAIN_RATIO * now.spread && now.spread - p.spread >= SPREAD_GAIN;
  const double angle_now = beyond_rounding(now.angle), angle_then = beyond_rounding(p.angle);
  const bool large = change.low == 0 || std::fabs(change.low) > ANGLE_SCALE * now.AGL;
  const bool angle =
      angled && large && angle_then <= GAIN_RATIO * angle_now && angle_now - angle_then >= ANGLE_GAIN;
  const bool spread_lost = p.spread > LOSS_RATIO * now.spread + 0.02;
  const bool angle_lost = angled && p.angle > LOSS_RATIO * now.angle + 0.1;
  const bool slope = std::fabs(now.roll_slope) > SLOPE_WRONG && std::fabs(p.roll_slope) < SLOPE_RIGHT;
  return (spread && !angle_lost) || (angle && !spread_lost) || (slope && !spread_lost && !angle_lost);
}

// A platform flies forward: what turns it across its track is no cause, and nothing else than heading mends it.
bool fits_track(const ScanPattern& now, const ScanPattern& p) {
  return p.crab < CRAB_MAX || (p.crab < now.crab + 1 && now.crab < CRAB_MAX);
}

TrajFault gross_fault(const std::vector<Beam>& beams, const ScanPattern& now) {
  TrajFault fault;
  fault.now = now;
  const double span = beams.back().t - beams.front().t;
  if (now.AGL <= 0)
    fault.kind = TrajFaultKind::below;
  else if (now.beside > std::max(BESIDE_MIN, BESIDE_RANGES * now.AGL))
    fault.kind = TrajFaultKind::elsewhere;
  else if (now.off_nadir > OFF_NADIR_MAX)
    fault.kind = TrajFaultKind::upside;
  else if (now.v_mismatch > MOTION_MAX && now.speed * span > MOTION_LENGTH * now.range)
    fault.kind = TrajFaultKind::motion;
  return fault;
}

TrajFault search_fault(const Search& s) {
  TrajFault best;
  best.now = s.now;
  double least = 1e9;
  const auto offer = [&](TrajFaultKind kind, const TrajChange& change) {
    const ScanPattern p = s.at(change);
    const double cost = s.cost(p);
    if (!mends(s.now, p, change, s.angled) || !fits_track(s.now, p)) return;
    if (kind == TrajFaultKind::angles) best.also.push_back(change.angles);
    if (cost >= CLEARLY * least) return;  // of two that mend it equally the simpler one comes first
    least = cost;
    best.kind = kind;
    best.change = change;
    best.changed = p;
  };
  for (int k = 1; k < N_ANGLE_CHANGES; k++) {
    TrajChange change;
    change.angles = static_cast<AngleChange>(k);
    offer(TrajFaultKind::angles, change);
  }
  offer(TrajFaultKind::low, search_range(s, &TrajChange::low, LOW_MAX, LOW_STEP, LOW_FINE));
  offer(TrajFaultKind::late, search_range(s, &TrajChange::late, LATE_MAX, LATE_STEP, LATE_FINE));
  return best;
}

const char* angles_text(AngleChange c) {
  switch (c) {
    case AngleChange::none:
      break;
    case AngleChange::swapped:
      return "roll and pitch of the trajectory are swapped";
    case AngleChange::roll_sign:
      return "roll of the trajectory has the wrong sign";
    case AngleChange::pitch_sign:
      return "pitch of the trajectory has the wrong sign";
    case AngleChange::both_signs:
      return "roll and pitch of the trajectory have the wrong sign";
    case AngleChange::yaw_sign:
      return "heading of the trajectory counts the wrong way";
    case AngleChange::yaw_from_east:
      return "heading of the trajectory counts from east";
    case AngleChange::yaw_back:
      return "heading of the trajectory is that of the tail";
    case AngleChange::yaw_right:
      return "heading of the trajectory is 90 degrees too small";
    case AngleChange::yaw_left:
      return "heading of the trajectory is 90 degrees too large";
  }
  return "";
}

std::string number(double v, int decimals) {
  char text[40];
  std::snprintf(text, sizeof text, "%.*f", decimals, v);
  return text;
}
}  // namespace

bool pattern_is_clean(const ScanPattern& now) {
  return now.spread < SPREAD_CLEAN && (now.angle < ANGLE_CLEAN || now.angle > 1e8) &&
         std::fabs(now.roll_slope) < SLOPE_WRONG;
}

TrajFault find_traj_fault(const std::vector<Beam>& beams, double dt, bool angled, const ScanPattern& now,
                          const Vector<PO>& wide, Attitude attitude, const SwRot& rot) {
  const TrajFault gross = gross_fault(beams, now);
  if (attitude == Attitude::level) return gross;
  if (gross.kind == TrajFaultKind::none && pattern_is_clean(now)) return gross;
  if (attitude == Attitude::missing) {
    TrajFault fault = gross;
    const bool level = now.spread < SPREAD_LEVEL && (!angled || now.angle < ANGLE_LEVEL);
    if (gross.kind == TrajFaultKind::none && !level) fault.kind = TrajFaultKind::no_attitude;
    return fault;
  }
  if (wide.size() < 2) return gross;
  const TrajFault found = search_fault({beams, dt, angled, wide, rot, now});
  const bool mended =
      found.kind != TrajFaultKind::none && gross_fault(beams, found.changed).kind == TrajFaultKind::none;
  return mended ? found : gross;
}

void agree_on_angles(std::vector<TrajFault*>& faults) {
  int votes[N_ANGLE_CHANGES] = {};
  for (const TrajFault* const f : faults)
    if (f->kind == TrajFaultKind::angles)
      for (const AngleChange c : f->also) votes[static_cast<int>(c)]++;
  const int* const most =
      std::max_element(votes, votes + N_ANGLE_CHANGES);  // the first, which is the simplest
  const AngleChange agreed = static_cast<AngleChange>(most - votes);
  for (TrajFault* const f : faults)
    if (f->kind == TrajFaultKind::angles &&
        std::find(f->also.begin(), f->also.end(), agreed) != f->also.end())
      f->change.angles = agreed;
}

std::string fault_text(const TrajFault& f) {
  switch (f.kind) {
    case TrajFaultKind::none:
      return "";
    case TrajFaultKind::late:
      return "trajectory is " + number(std::fabs(f.change.late), 1) + " s " +
             (f.change.late > 0 ? "late" : "early");
    case TrajFaultKind::angles:
      return angles_text(f.change.angles);
    case TrajFaultKind::low:
      return "trajectory is " + number(std::fabs(f.change.low), 0) + " m too " +
             (f.change.low > 0 ? "low" : "high");
    case TrajFaultKind::no_attitude:
      return "trajectory has no attitudes, and the flight was not level";
    case TrajFaultKind::elsewhere:
      return "points lie " + number(f.now.beside / 1000, 1) + " km beside the trajectory";
    case TrajFaultKind::below:
      return "points lie " + number(-f.now.AGL, 0) + " m above the trajectory";
    case TrajFaultKind::upside:
      return "beams lie " + number(f.now.off_nadir, 0) + " degrees off the nadir beam of the mount";
    case TrajFaultKind::motion:
      return "points and trajectory do not move together";
  }
  return "";
}

std::string fault_remedy(const TrajFault& f) {
  const double late = std::fabs(f.change.late);
  switch (f.kind) {
    case TrajFaultKind::none:
      return "";
    case TrajFaultKind::late:
      return late > 12.5 && late < 19.5 && std::fabs(late - std::round(late)) < 0.3
                 ? "leap seconds? Give the time scale of the trajectory (-po_time, -gps_date)"
                 : "times of another clock? Check the time scale of the trajectory (-po_time, -gps_date)";
    case TrajFaultKind::angles:
      return "check the columns of the trajectory (-po_parse) and its export";
    case TrajFaultKind::low:
      return "geoid? Give -geoid_h or -geoid when points have heights above the geoid";
    case TrajFaultKind::no_attitude:
      return "give a trajectory with roll, pitch and heading (-po_parse), or -po_att 1 to take the flight as "
             "level";
    case TrajFaultKind::elsewhere:
      return f.now.beside > 20000 ? "wrong zone or projection? Check -utm, -wkt and -po_geo"
                                  : "wrong times or another flight? Check -po_time, -gps_date and -po";
    case TrajFaultKind::below:
      return "wrong heights or units? Check -geoid, -geoid_h, -feet and -po_geo";
    case TrajFaultKind::upside:
      return "wrong mount angles or columns? Check -imu, -bore, -mount and -po_parse";
    case TrajFaultKind::motion:
      return "wrong times or another flight? Check -po_time, -gps_date and -po";
  }
  return "";
}

std::string fault_evidence(const TrajFault& f) {
  std::string text = "beams lie within " + number(f.now.spread, 2) + " degrees of their plane or cone";
  const bool mended =
      f.kind == TrajFaultKind::late || f.kind == TrajFaultKind::angles || f.kind == TrajFaultKind::low;
  if (mended) text += ", " + number(f.changed.spread, 2) + " if that is mended";
  if (f.now.angle > 1e8) return text;
  text += "; recorded scan angles fit to " + number(f.now.angle, 1) + " degrees";
  if (mended) text += ", then to " + number(f.changed.angle, 1);
  return text;
}
}  // namespace veld
