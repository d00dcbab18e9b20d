// Planted errors must come back from simulated flights.
#include "prj/LiDAR/VR2inv/VR2inv.h"

#include <gtest/gtest.h>

#include <cmath>

#include "lib/Geometry/angle.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/VR2inv/inv_sim.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {

InvParam no_drift() {
  InvParam p;
  p.Ftx = p.Fty = p.Ftz = false;
  p.HF = false;
  p.CAL1 = true;
  return p;
}
InvParam boresight() {
  InvParam p = no_drift();
  p.Fw = p.Fp = p.Fk = true;
  return p;
}
InvParam with_drift(double dt) {
  InvParam p = boresight();
  p.Ftx = p.Fty = p.Ftz = true;
  p.HF = dt > 0;
  p.dt = dt;
  return p;
}
SimParam flight(double azimuth) {
  SimParam s;
  s.strips = five_strips(azimuth);
  s.bore = {-0.13, 0.085, 0.165};
  return s;
}
// Reference strips under everything: absolute drift becomes visible.
void add_references(SimParam& s) {
  for (int k = -2; k <= 2; k++) {
    SimStrip ref{0, 200. * k, 0, 1600};
    ref.fixed = true;
    s.strips.push_back(ref);
  }
}
InvResult invert(const SimProject& sim, const InvParam& p, const std::string& name = "") {
  InvResult r;
  EXPECT_TRUE(inv_CalTAWarp(name, sim.in, p, r));
  return r;
}
// Displaces the second strip, as all its pairs show it.
void move_second_strip(SimProject& sim, const xyz& by) {
  for (InvPair& p : sim.in.pairs)
    for (xyz& d : p.Def) d += p.sw1 == SwathId(1) ? by : p.sw2 == SwathId(1) ? -by : xyz{0, 0, 0};
}
// Errors of the boresight in units of their reported uncertainties, and these, degrees: RMS and mean over trials.
struct Trials {
  dxyz ratio = {0, 0, 0}, unc = {0, 0, 0};
  float worst = 0;  // m, of the corrected samples
};
Trials run_trials(int n, const InvParam& p, SimParam s) {
  Trials t;
  for (int seed = 1; seed <= n; seed++) {
    s.seed = seed;
    const SimProject sim = simulate(s);
    const InvResult r = invert(sim, p);
    EXPECT_EQ(r.cal_sigma.size(), 3u);
    const dxyz e = to_dxyz(r.calib[0].B) - s.bore / DEG_PER_RAD;
    t.ratio += dxyz{std::pow(e.x / r.cal_sigma(0), 2), std::pow(e.y / r.cal_sigma(1), 2),
                    std::pow(e.z / r.cal_sigma(2), 2)} /
               n;
    t.unc += dxyz{r.cal_sigma(0), r.cal_sigma(1), r.cal_sigma(2)} * (DEG_PER_RAD / n);
    t.worst = std::max(t.worst, static_cast<float>(norm(corrected_error(sim, r).rms)));
  }
  t.ratio = {std::sqrt(t.ratio.x), std::sqrt(t.ratio.y), std::sqrt(t.ratio.z)};
  return t;
}
void expect_noise_left(const InvResult& r, double tol) {
  EXPECT_NEAR(r.chi.x, 1, tol);
  EXPECT_NEAR(r.chi.y, 1, tol);
  EXPECT_NEAR(r.chi.z, 1, tol);
  // Of the planted noise, which varies from vector to vector; the floor under variances makes it less than 1.
  for (float scale : {r.scale.x, r.scale.y, r.scale.z}) EXPECT_NEAR(scale, 0.92, 0.15);
}
}  // namespace

// All parameters at once as far as they can be told apart: each within its own reported uncertainty.
TEST(Inversion, CalibrationComesBackWithinItsUncertainty) {
  const struct {
    const char* what;
    void (*plant)(SimParam&);
    void (*ask)(InvParam&);
  } cases[] = {
      {"boresight", [](SimParam&) {}, [](InvParam&) {}},
      {"lever",
       [](SimParam& s) {
         s.lever = {0.2, -0.15, 0};
       },
       [](InvParam& p) { p.Fx = p.Fy = true; }},
      {"range scale", [](SimParam& s) { s.internal[1] = 4e-4; }, [](InvParam& p) { p.FE[1] = true; }},
      {"scan angle scale", [](SimParam& s) { s.internal[2] = 2e-3; }, [](InvParam& p) { p.FE[2] = true; }},
      {"scan angle terms", [](SimParam& s) { s.internal[3] = -2e-3, s.internal[4] = 6e-3; },
       [](InvParam& p) { p.FE[3] = p.FE[4] = true; }},
      {"tilt", [](SimParam& s) { s.internal[5] = 5e-3; }, [](InvParam& p) { p.FE[5] = true; }},
  };
  for (double azimuth : {0., 37.})
    for (const auto& c : cases) {
      SCOPED_TRACE(testing::Message() << c.what << " azimuth " << azimuth);
      SimParam s = flight(azimuth);
      InvParam p = boresight();
      c.plant(s), c.ask(p);
      p.Cpri0 = 10;  // a prior that wide leaves the data alone
      const InvResult r = invert(simulate(s), p);
      expect_noise_left(r, 0.09);  // with the second order terms of the planted angles
      ASSERT_EQ(r.calib.size(), 1u);
      const Calib& cal = r.calib[0];
      const double found[] = {cal.L.x,  cal.L.y,  cal.B.x,  cal.B.y,  cal.B.z, cal.I(0),
                              cal.I(1), cal.I(2), cal.I(3), cal.I(4), cal.I(5)};
      const double* I = s.internal;
      const dxyz bore = s.bore / DEG_PER_RAD;
      const double truth[] = {s.lever.x, s.lever.y, bore.x, bore.y, bore.z, I[0],
                              I[1],      I[2],      I[3],   I[4],   I[5]};
      const std::vector<std::string> order = {"x", "y", "w", "p", "k", "I1", "I2", "I3", "I4", "I5", "I6"};
      for (size_t i = 0; i < r.cal_names.size(); i++) {
        const size_t k = std::find(order.begin(), order.end(), r.cal_names[i]) - order.begin();
        ASSERT_LT(k, order.size());
        // Second order terms of the planted angles are some 1e-5.
        EXPECT_NEAR(found[k], truth[k], 4 * r.cal_sigma(i) + 1.5e-5) << r.cal_names[i];
      }
    }
}

TEST(Inversion, ReportedUncertaintyIsTheScatter) {
  SimParam s = flight(20);
  s.spacing = 40, s.sample = 40;
  InvParam p = boresight();
  p.Cpri0 = 10;
  const Trials t = run_trials(60, p, s);
  // The scatter of a standard deviation from 60 trials is 9%.
  for (double ratio : {t.ratio.x, t.ratio.y, t.ratio.z}) EXPECT_NEAR(ratio, 1, 0.28);
  // Drift that is not among the unknowns must not make a calibration look better than it is.
  s.const_pos = {0.05, 0.05, 0.05};
  const Trials drifting = run_trials(16, boresight(), s);
  for (double ratio : {drifting.ratio.x, drifting.ratio.y, drifting.ratio.z}) {
    EXPECT_GT(ratio, 0.3);
    EXPECT_LT(ratio, 2.5);
  }
}

TEST(Inversion, PriorsFromTheDataHardlyBias) {
  for (double azimuth : {0., 37.}) {
    SimParam s = flight(azimuth);
    const SimProject sim = simulate(s);
    const InvResult r = invert(sim, boresight());  // AutoPri
    EXPECT_NEAR(r.calib[0].B.x * DEG_PER_RAD, s.bore.x, 0.002 * 0.13 + 0.0003);
    EXPECT_NEAR(r.calib[0].B.y * DEG_PER_RAD, s.bore.y, 0.002 * 0.085 + 0.0003);
    EXPECT_NEAR(r.calib[0].B.z * DEG_PER_RAD, s.bore.z, 0.002 * 0.165 + 0.0009);
    const SimError e = corrected_error(sim, r);
    EXPECT_LT(norm(e.rms), 0.004);
  }
}

TEST(Inversion, ConstantErrorsOfStrips) {
  SimParam s = flight(37);
  s.bore = {0, 0, 0};
  s.const_pos = {0.1, 0.1, 0.1};
  const SimProject sim = simulate(s);
  InvParam p = with_drift(0);
  p.Fw = p.Fp = p.Fk = false;
  p.Cpri0 = 2;  // m: the prior from the data pulls constants of this size towards zero
  const InvResult r = invert(sim, p);
  expect_noise_left(r, 0.06);
  dxyz mean = {0, 0, 0};
  for (const dxyz& c : sim.const_pos) mean += c / 5.;
  for (int i = 0; i < 5; i++) {  // the correction is the error with its sign turned, but for the common part
    ASSERT_EQ(r.swaths[SwathId(i)].Tt.size(), 1u);
    EXPECT_NEAR(r.swaths[SwathId(i)].Tt(0).x, -(sim.const_pos[i].x - mean.x), 0.006);
    EXPECT_NEAR(r.swaths[SwathId(i)].Tt(0).y, -(sim.const_pos[i].y - mean.y), 0.006);
    EXPECT_NEAR(r.swaths[SwathId(i)].Tt(0).z, -(sim.const_pos[i].z - mean.z), 0.003);
  }
}

TEST(Inversion, DriftBetweenStrips) {
  for (double azimuth : {0., 37.})
    for (double dt : {2., 6.}) {
      SCOPED_TRACE(testing::Message() << "azimuth " << azimuth << " dt " << dt);
      SimParam s = flight(azimuth);
      s.drift_pos = {0.03, 0.03, 0.04};
      const SimProject sim = simulate(s);
      const InvResult con = invert(sim, with_drift(0)), hf = invert(sim, with_drift(dt));
      const SimError before = corrected_error(sim, con);
      EXPECT_GT(con.scale.z, 1.5);  // constants leave drift behind
      ASSERT_TRUE(hf.step2_ok);
      expect_noise_left(hf, 0.09);
      const SimError after = corrected_error(sim, hf);
      // What all strips have in common stays: nothing between them shows it.
      EXPECT_LT(norm(after.rms), 0.8 * norm(before.rms));
      EXPECT_LT(norm(after.rms), 0.45 * norm(dxyz{0.03, 0.03, 0.04}));
    }
}

// A line that is announced to drift more than the others takes what is between them.
TEST(Inversion, AnnouncedDriftIsLookedForWhereItIs) {
  double known = 0, unknown = 0;
  for (const unsigned seed : {1, 2, 3, 4}) {
    SimParam s = flight(37);
    s.drift_pos = {0.01, 0.01, 0.01};
    s.strips[1].worse = 12;
    s.seed = seed;
    SimProject sim = simulate(s);
    InvResult plain, told;
    InvInput copy = sim.in;
    ASSERT_TRUE(inv_CalTAWarp("", copy, with_drift(4), plain));
    for (const SwathId id : sim.in.swaths.ids()) {
      const float f = id.number == 1 ? 0.12f : 0.01f;
      for (const double t : {-1e6, 1e6})
        sim.in.swaths[id].accuracy.push_back({t, {f, f, f}, {1e-4f, 1e-4f, 1e-4f}});
    }
    ASSERT_TRUE(inv_CalTAWarp("", sim.in, with_drift(4), told));
    unknown += norm(corrected_error(sim, plain).rms), known += norm(corrected_error(sim, told).rms);
  }
  EXPECT_LT(known, 0.8 * unknown);
}

TEST(Inversion, DriftAgainstReferencesIsAbsolute) {
  for (bool att : {false, true}) {
    SCOPED_TRACE(att);
    SimParam s = flight(37);
    s.drift_pos = {0.04, 0.04, 0.04};
    if (att) s.drift_att = {0.006, 0.006, 0.01};
    add_references(s);
    s.fixed_shift_z = 0.4;
    const SimProject sim = simulate(s);
    InvParam p = with_drift(4);
    p.Faw = p.Fap = p.Fak = att;
    p.ShiftRef = true;
    const InvResult r = invert(sim, p);
    ASSERT_TRUE(r.step2_ok && r.has_shift);
    // The references lie lower: all strips go down to them.
    EXPECT_NEAR(r.shift.z, -0.4, 0.04);
    const SimError e = corrected_error(sim, r);
    EXPECT_NEAR(e.mean.x, 0, 0.005);
    EXPECT_NEAR(e.mean.y, 0, 0.005);
    EXPECT_NEAR(e.mean.z, -0.4, 0.005);
    EXPECT_LT(e.rms.x, 0.012);
    EXPECT_LT(e.rms.y, 0.012);
    EXPECT_LT(e.rms.z, 0.006);
  }
}

TEST(Inversion, SmoothnessAndPriorDoNotTieDriftDown) {
  SimParam s = flight(0);
  s.drift_pos = {0.03, 0.03, 0.04};
  for (float wide : {0.5f, 10.f}) {  // a wide prior must not tie the nodes together
    InvParam p = with_drift(3);
    p.Cpri0 = wide;
    expect_noise_left(invert(simulate(s), p), 0.1);
  }
}

TEST(Inversion, AttitudeModesAgreeOnThePoints) {
  for (int mode : {0, 1, 2}) {
    SCOPED_TRACE(mode);
    SimParam s = flight(37);
    s.drift_pos = {0.02, 0.02, 0.02};
    s.drift_att = {0.004, 0.004, 0.008};
    const SimProject sim = simulate(s);
    InvParam p = with_drift(4);
    p.Faw = p.Fap = p.Fak = true;
    p.FA = mode;
    const InvResult r = invert(sim, p);
    expect_noise_left(r, 0.08);
    const SimError e = corrected_error(sim, r);
    EXPECT_LT(norm(e.rms), 0.035);
    EXPECT_LT(norm(e.mean), 0.06);  // position and attitude drift must not shift the whole block
  }
}

// A street of wrong vectors: they agree with each other and claim to be the best of all.
namespace {
uint64_t plant_patches(SimProject& sim, double radius) {
  uint64_t n = 0;
  for (InvPair& p : sim.in.pairs) {
    const dxyz centre = p.P(static_cast<int64_t>(p.P.size() / 3));
    for (uint64_t i = 0; i < p.P.size(); i++) {
      if (std::hypot(p.P(i).x - centre.x, p.P(i).y - centre.y) > radius) continue;
      p.Def(i) += {0.3f, -0.2f, 0.05f};
      p.Unc(i) = {0.003f, 0.003f, 0.001f};
      n++;
    }
  }
  return n;
}
}  // namespace

TEST(Inversion, WrongPatchesAreNotBelieved) {
  TempDir dir;
  SimParam s = flight(37);
  s.drift_pos = {0.03, 0.03, 0.04};
  s.drift_att = {0.003, 0.003, 0.006};
  InvParam p = with_drift(4);
  p.Faw = p.Fap = p.Fak = true;
  const SimProject clean = simulate(s);
  SimProject sim = clean;
  uint64_t n = 0;
  for (const InvPair& pair : sim.in.pairs) n += pair.P.size();
  const double share = static_cast<double>(plant_patches(sim, 45)) / static_cast<double>(n);
  ASSERT_GT(share, 0.08);
  const InvResult good = invert(clean, p), r = invert(sim, p, dir.path + "/p");
  p.robust = false;
  const InvResult trusting = invert(sim, p);
  const double floor = norm(corrected_error(clean, good).rms);
  EXPECT_LT(norm(corrected_error(sim, r).rms), 1.15 * floor + 0.001);
  EXPECT_GT(norm(corrected_error(sim, trusting).rms), 3 * floor);
  EXPECT_NEAR(r.scale.x, 1, 0.3);  // the scale is that of the vectors that are right
  EXPECT_NEAR(r.scale.z, 1, 0.3);
  const std::string stat = read_text(dir.path + "/p_inv_stat.log");
  const size_t line = stat.find('\n', stat.find('\n') + 1);         // the end of the first pair's
  EXPECT_GT(std::stod(stat.substr(stat.rfind(' ', line - 3))), 3);  // percent put aside; the names are empty
}

TEST(Inversion, CalibrationBesideDriftWithinItsUncertainty) {
  SimParam s = flight(37);
  s.spacing = 30, s.sample = 40;
  s.drift_pos = {0.04, 0.04, 0.04};
  s.drift_att = {0.004, 0.004, 0.008};
  InvParam p = with_drift(5);
  p.Faw = p.Fap = p.Fak = true;
  const Trials t = run_trials(16, p, s);
  for (double ratio : {t.ratio.x, t.ratio.y, t.ratio.z}) {
    EXPECT_GT(ratio, 0.4);
    EXPECT_LT(ratio, 2);
  }
  EXPECT_LT(t.worst, 0.04f);
  EXPECT_LT(t.unc.x, 0.004);  // not by claiming nothing
  EXPECT_LT(t.unc.y, 0.01);
  EXPECT_LT(t.unc.z, 0.008);
}

// One strip is off by much more than an INS may be: the automatic prior gives way to the data.
TEST(Inversion, ShiftOfOneStripComesBackWhole) {
  for (double dt : {0., 5.}) {
    SimParam s = flight(0);
    s.bore = {0, 0, 0};
    SimProject sim = simulate(s);
    move_second_strip(sim, {0.2f, 0, 0.3f});
    InvParam p = with_drift(dt);
    p.Fw = p.Fp = p.Fk = false;
    p.Faw = p.Fap = p.Fak = true;
    const InvResult r = invert(sim, p);
    xyz others = {0, 0, 0};
    for (int k : {0, 2, 3, 4}) others += r.swaths[SwathId(k)].Tt(0) / 4.f;
    EXPECT_NEAR(r.swaths[SwathId(1)].Tt(0).x - others.x, -0.2, 0.02);
    EXPECT_NEAR(r.swaths[SwathId(1)].Tt(0).y - others.y, 0, 0.02);
    EXPECT_NEAR(r.swaths[SwathId(1)].Tt(0).z - others.z, -0.3, 0.02);
  }
}

// Vectors of a pair that are off together: small displacements are left alone, large ones are taken out whole.
TEST(Inversion, WhatVegetationMakesIsNotCorrected) {
  const struct {
    double shift;  // m, of the second strip
    float common, sig_min;
    bool corrected;
  } cases[] = {
      {0.04, 0.04f, 2, false}, {0.04, 0.04f, 0, true}, {0.04, 0.001f, 2, true}, {0.3, 0.04f, 2, true}};
  for (const auto& c : cases) {
    SimParam s = flight(0);
    s.bore = {0, 0, 0};
    SimProject sim = simulate(s);
    const float shift = static_cast<float>(c.shift);
    move_second_strip(sim, {shift, 0, shift});
    for (InvPair& p : sim.in.pairs) {
      p.Com.resize(p.P.size(), c.common);
      for (xyz& u : p.Unc)
        u = {std::hypot(u.x, 2 * c.common), std::hypot(u.y, 2 * c.common), std::hypot(u.z, c.common)};
    }
    InvParam p = with_drift(5);
    p.SIGmin = c.sig_min;
    const InvResult r = invert(sim, p);
    float most = 0;
    for (const InvCorr& line : r.swaths)
      for (const xyz& T : line.Tt) most = std::max(most, norm(T));
    EXPECT_EQ(most > 0, c.corrected) << c.shift << ' ' << c.common << ' ' << c.sig_min;
    EXPECT_EQ(norm(r.calib[0].B) > 0, c.corrected);
  }
}

TEST(Inversion, DriftAfterTheCalibration) {
  SimParam s = flight(0);
  s.const_pos = {0.05, 0.05, 0.05};
  const SimProject sim = simulate(s);
  InvParam p = with_drift(0);
  p.DCC = true;
  const InvResult r = invert(sim, p);
  ASSERT_EQ(r.swaths[SwathId(0)].Tt.size(), 1u);
  EXPECT_LT(norm(corrected_error(sim, r).rms), 0.02);
  EXPECT_GT(r.cal_sigma.size(), 0u);  // the calibration stood alone in step 1
}

// In level flight a higher antenna moves all swaths alike.
TEST(Inversion, WhatOverlapsDoNotDetermineIsSaid) {
  TempDir dir;
  SimProject sim = simulate(flight(0));
  const auto level = [](Vector<xyz>& Att) {
    for (xyz& a : Att) a.x = a.y = 0;
  };
  for (InvPair& p : sim.in.pairs) level(p.Att1), level(p.Att2);
  for (InvSwath& s : sim.in.swaths) level(s.samples.Att);
  for (const bool open : {true, false}) {
    SCOPED_TRACE(open);
    InvParam p = boresight();
    p.Fz = open;
    InvResult r;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    ASSERT_TRUE(inv_CalTAWarp(dir.path + "/p", sim.in, p, r));
    const std::string said = testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout();
    EXPECT_EQ(said.find("do not determine the whole calibration, priors hold it: z\n") != std::string::npos,
              open)
        << said;
    EXPECT_NE(said.find("CORRECTION COMPONENT STATISTICS\n"), std::string::npos) << said;
  }
}

TEST(Inversion, Files) {
  TempDir dir;
  SimParam s = flight(0);
  SimProject sim = simulate(s);
  for (xyz& U : sim.in.pairs[2].Unc) U = {9, 9, 9};  // above every limit
  sim.in.pairs[2].pair = 12;
  InvResult r;
  const std::string base = dir.path + "/p";
  ASSERT_TRUE(inv_CalTAWarp(base, sim.in, boresight(), r));
  EXPECT_EQ(read_text(base + "_int_rej.log"), "Pair# Swath#1 Swath#2 Down% FileName1 FileName2\n12 " +
                                                  to_string(sim.in.pairs[2].sw1) + " " +
                                                  to_string(sim.in.pairs[2].sw2) + " 100.000  \n");
  Calib back;
  ASSERT_TRUE(back.read_file(base + "_cal.txt"));
  EXPECT_NEAR(back.B.x, r.calib[0].B.x, 1e-8);
  EXPECT_NEAR(back.B.z, r.calib[0].B.z, 1e-8);
  const std::string log = read_text(base + "_cal.log");
  EXPECT_EQ(log.substr(0, log.find('\n')),
            "Lever{X Y Z} Bore{Roll Pitch Yaw} Int{I1 I2 I3 I4 I5 I6 I7} NSwaths{Ext Int} Swath# Group# Ch# "
            "FileName [Lever m, Bore degrees, I m or rad]");
  EXPECT_EQ(log.substr(log.size() - 12), " 5 5 0 1 0 \n");
  const std::string stat = read_text(base + "_inv_stat.log");
  EXPECT_EQ(std::count(stat.begin(), stat.end(), '\n'), 1 + r.npair_used + 3);
  EXPECT_TRUE(exists(base + "_cal_cov.txt"));
  EXPECT_FALSE(exists(base + "_cal.log.part"));

  sim = simulate(s);
  EXPECT_FALSE(inv_CalTAWarp(dir.path + "/absent/p", sim.in, boresight(), r));
}

TEST(Inversion, RefusesWhatMemoryCannotHold) {
  SimProject sim = simulate(flight(0));
  InvResult r;
  const int mem = MEM_MB;
  MEM_MB = 0;
  EXPECT_FALSE(inv_CalTAWarp("", sim.in, boresight(), r));
  MEM_MB = mem;
}
}  // namespace veld
