// Flight lines of a trajectory.
#include "prj/LiDAR/POio/traj_cut.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace veld {
namespace {
constexpr double DT = 0.01;  // s, of the samples
struct Leg {
  double seconds, turn_deg_s, speed;
};

// A track flown leg after leg, with a platform's heading noise of 1 degree at 12 Hz.
Vector<PO> fly(const std::vector<Leg>& legs) {
  std::vector<PO> list;
  double t = 1000, x = 500000, y = 5e6, heading = 30;
  for (const Leg& leg : legs)
    for (int i = 0; i < std::lround(leg.seconds / DT); i++) {
      PO rec = {};
      rec.t = t, rec.x = x, rec.y = y, rec.z = 800;
      rec.yaw = static_cast<float>(heading + std::sin(t * 75));
      list.push_back(rec);
      t += DT;
      heading += leg.turn_deg_s * DT;
      x += leg.speed * DT * std::sin(heading * M_PI / 180);
      y += leg.speed * DT * std::cos(heading * M_PI / 180);
    }
  Vector<PO> po(list.size());
  std::copy(list.begin(), list.end(), po.val);
  return po;
}
}  // namespace

// Three lines with turns between them come back with their times, however the turns fall on the samples.
TEST(TrajCut, LinesBetweenTurns) {
  const TrajCutParam par = {.Dmin = 1000};
  for (const double rate : {3.0, 3.3, 4.7, 11.0}) {
    const double turn = 180 / rate;
    const Vector<PO> po = fly({{60, 0, 60}, {turn, rate, 60}, {50, 0, 60}, {turn, -rate, 60}, {40, 0, 60}});
    const TrajCut cut = cut_traj_yawdist(po, DT, par);
    ASSERT_EQ(cut.segments.size(), 3u) << rate;
    const double begin[] = {1000, 1060 + turn, 1110 + 2 * turn}, length[] = {60, 50, 40};
    for (size_t k = 0; k < 3; k++) {
      const CutSegment& s = cut.segments[k];
      EXPECT_EQ(s.number, static_cast<int>(k) + 1);
      // At most the tolerated turn and two samples more at the end, and none at the start.
      EXPECT_NEAR(s.tmin, begin[k], 2 * par.DT) << rate;
      EXPECT_GE(s.tmax, begin[k] + length[k] - par.DT) << rate;
      EXPECT_LE(s.tmax, begin[k] + length[k] + par.dymax / rate + par.DT) << rate;
    }
    TrajCutParam turns = par;
    turns.keep = true, turns.buf = 3;
    const TrajCut all = cut_traj_yawdist(po, DT, turns);
    ASSERT_EQ(all.segments.size(), 5u) << rate;
    for (size_t k = 0; k < 5; k++) EXPECT_EQ(all.segments[k].turn, k % 2 == 1);
    EXPECT_NEAR(all.segments[0].tmin, cut.segments[0].tmin - 3, 1e-9);
  }
}

TEST(TrajCut, LengthsAndGaps) {
  const Vector<PO> line = fly({{100, 0, 50}});
  const struct {
    const char* what;
    double Dmin, Dmax;
    size_t n;
  } cases[] = {{"whole", 20, 999999, 1},
               {"cut in pieces of Dmax", 20, 1000, 5},
               {"shorter than Dmin", 6000, 999999, 0}};
  for (const auto& c : cases) {
    const TrajCut cut = cut_traj_yawdist(line, DT, {.Dmin = c.Dmin, .Dmax = c.Dmax});
    ASSERT_EQ(cut.segments.size(), c.n) << c.what;
    for (size_t k = 0; k + 1 < c.n; k++) EXPECT_NEAR(cut.segments[k].length, c.Dmax, 50 * 0.4);
  }
  Vector<PO> gap = line;
  for (size_t i = 3000; i < gap.size(); i++) gap[i].t += 10;
  EXPECT_EQ(cut_traj_yawdist(gap, DT, TrajCutParam()).segments.size(), 2u);
  EXPECT_TRUE(cut_traj_yawdist(Vector<PO>(), DT, TrajCutParam()).samples.empty());
  // A multirotor that stands and turns has no line.
  EXPECT_TRUE(cut_traj_yawdist(fly({{60, 20, 0}}), DT, TrajCutParam()).segments.empty());
  EXPECT_DEATH(cut_traj_yawdist(line, 0, TrajCutParam()), "dt!=0.0|dt != 0.0");
}
}  // namespace veld
