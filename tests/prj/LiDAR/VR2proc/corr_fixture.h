// tests/prj/LiDAR/VR2proc/corr_fixture.h
// A swath of 1000 points in 10 s, the level flight north over it, and a correction of it.
#pragma once
#include <gtest/gtest.h>

#include <cmath>

#include "las/las_access.h"
#include "prj/LiDAR/VR2proc/corr_swath.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/swath_writer.h"
#include "tests/support/temp_dir.h"

namespace veld {
constexpr double T0 = 1000;  // s, of the first point

// 300 m above the ground, 40 m/s, 20 samples a second, over (500000, 5000000) at t0.
inline Vector<PO> level_track(double t0, double seconds) {
  const int n = static_cast<int>(seconds * 20) + 1;
  Vector<PO> po(static_cast<uint64_t>(n));
  for (int i = 0; i < n; i++)
    po(i) = {t0 + i * 0.05, 500000, 5000000 + 40 * (i * 0.05 + t0 - T0), 400, 0, 0, 0};
  return po;
}

// Coordinates are multiples of a step.
inline std::vector<TestPoint> flat_points(double step) {
  std::vector<TestPoint> points;
  for (int i = 0; i < 1000; i++) {
    TestPoint p;
    p.t = T0 + i * 0.01;
    p.x = 500000 + std::round(50 * std::sin(0.1 * i) / step) * step;
    p.y = 5000000 + std::round(0.4 * i / step) * step;
    p.z = 100 + i % 7;
    p.cls = i % 5;
    p.rn = 1 + i % 2;
    p.nr = 2;
    points.push_back(p);
  }
  return points;
}

class CorrFixture : public testing::Test {
 protected:
  TempDir dir;
  Vector<PO> po = level_track(T0 - 2, 14);
  SwathCorr corr;
  std::vector<std::string> sources;
  CorrJob job;  // dir/a.las to dir/a_c.las
  CorrCount count;

  void SetUp() override {
    TMPDIR = dir.path + "/";
    corr.po = &po;
    job.path = dir.path + "/a.las";
    job.out = dir.path + "/a_c.las";
    job.sid = "Auto Geom Corr: LB";
    sources = {job.path};
    job.sources = &sources;
    job.points.corr = &corr;
  }
  bool run() { return init_SwathCorr(corr) && corr_swath_las(job, count); }
};
}  // namespace veld
