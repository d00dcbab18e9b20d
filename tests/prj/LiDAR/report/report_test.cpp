#include "prj/LiDAR/report/report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "prj/LiDAR/report/accuracy.h"
#include "prj/LiDAR/report/svg_plots.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
GCPresult check_points(int n, double dz, double sigma, const char* prefix) {
  GCPresult r;
  for (int i = 0; i < n; i++) {
    r.gcp.push_back({prefix + std::to_string(i), {0, 0, 0}, sigma, false, true});
    for (const double sign : {0.5, 1.5}) {  // two swaths with a mean of dz
      GCPoccur o;
      o.gcp = i;
      o.dz = sign * (i % 2 ? dz : -dz);
      r.occ.push_back(o);
    }
  }
  return r;
}

const Statement& statement(const std::vector<Statement>& list, const std::string& part) {
  for (const Statement& s : list)
    if (s.rule.find(part) != std::string::npos) return s;
  static const Statement none{"", "", Kept::open};
  return none;
}

TEST(Accuracy, ClassHoldsTheErrorOfTheSurvey) {
  AccuracyFigures f;
  add_check_points(check_points(30, 0.04, 0.03, "C"), f);
  EXPECT_EQ(f.nNVA, 30);
  EXPECT_NEAR(f.rmse_V(), 0.05, 1e-9);
  f.rms_overlap = 0.039, f.max_pair = 0.081;
  const std::vector<Statement> s = asprs_statements(f);
  EXPECT_EQ(statement(s, "class 5 cm").kept, Kept::yes);
  EXPECT_EQ(statement(s, "swath to swath").kept, Kept::yes);
  EXPECT_EQ(statement(s, "worst pair").kept, Kept::no);
  AccuracyFigures few;
  add_check_points(check_points(29, 0.04, 0.03, "C"), few);
  EXPECT_EQ(statement(asprs_statements(few), "at least 30").kept, Kept::no);
  EXPECT_EQ(statement(asprs_statements(few), "class 5 cm").kept, Kept::open);
  AccuracyFigures vegetated;
  add_check_points(check_points(4, 0.2, 0.01, "vva_"), vegetated);
  EXPECT_EQ(vegetated.nNVA, 0);
  EXPECT_NEAR(vegetated.rmse_VVA, 0.2, 1e-9);
}

TEST(Accuracy, QualityLevelsByTheirWorstRule) {
  AccuracyFigures f;
  f.rmse_NVA = 0.06, f.rms_overlap = 0.03, f.density = 9;
  f.rms_open = 0.02, f.p95_open = 0.05, f.max_open = 0.12, f.precision = 0.02, f.max_precision = 0.05;
  std::vector<QualityLevel> q = usgs_levels(f);
  EXPECT_EQ(q[0].kept, Kept::no);
  EXPECT_EQ(q[1].kept, Kept::yes);
  f.density = 3;
  q = usgs_levels(f);
  EXPECT_EQ(q[1].kept, Kept::no);
  EXPECT_EQ(q[2].kept, Kept::yes);
  f.max_open = 0.5;  // a car, as long as nearly all is within the limit
  EXPECT_EQ(usgs_levels(f)[2].kept, Kept::open);
  f.p95_open = 0.3;
  EXPECT_EQ(usgs_levels(f)[2].kept, Kept::no);
  f.max_open = 0.1, f.rmse_NVA = -1;
  EXPECT_EQ(usgs_levels(f)[2].kept, Kept::open);
}

TEST(Report, PageIsWholeAndNeedsNothingBesideIt) {
  TempDir dir;
  Project prj;
  prj.name = dir.path + "/p";
  Swath s;
  s.cache = CacheName(dir.path + "/<b>&\"1\".las");
  s.corrected = dir.path + "/c.las";
  prj.swaths.add(s);
  s.cache = CacheName(dir.path + "/lost.las");
  s.corrected.clear();
  const SwathId lost = prj.swaths.add(s);
  prj.swaths.reject(lost, SwathState::untiled, "no points");
  write_text(prj.name + "_DZ.jpg", std::string("\xFF\xD8\x00\xFF", 4));
  CorrResult corr;
  corr.qc.nused = 1, corr.qc.rms0 = 0.227, corr.qc.rms = 0.008, corr.qc.worst_rms = 0.008;
  corr.qc.worst1 = SwathId(0), corr.qc.worst2 = SwathId(1);
  PairQC pair{7, SwathId(0), SwathId(1), {}, {}};
  pair.before.rms = 0.227f, pair.stat.rms = 0.008f, pair.stat.n = 100;
  corr.qc.pairs = {pair};
  corr.qc.hist.count.assign(40, 5);
  corr.swc = {SwathId(0)};
  corr.inv.summary = {"Found boresight roll 0.1 +- 0.002 degrees"};
  corr.inv.cal_names = {"w", "k"};
  corr.inv.cal_sigma.resize(2, 1e-4);
  corr.inv.cal_corr.resize(2, 2, 0.25);
  corr.inv.pairs = {{7, SwathId(0), SwathId(1), 1779, {0.015f, 0.016f, 0.017f}}};
  corr.inv.swaths = SwathVector<InvCorr>(prj.swaths);
  InvCorr& drift = corr.inv.swaths[SwathId(0)];
  drift.Tt.resize(2, xyz{0.1f, 0, 0});
  drift.Tt[1].x = -0.123f;
  drift.At.resize(2, xyz{0, 0, 0});
  corr.AGL = 500;
  corr.control.shifts[0] = {0, 0, -0.146};
  corr.separation.all.add(0.02f);
  ReportInput in;
  in.swaths = {{"0", {{{0, 0}, {100, 0}, {100, 50}, {0, 50}}}, false}};
  in.pairs = {{8, SwathId(0), SwathId(1), 0, {}, {}, {}, "no vertex left"}};
  in.before.gcp = corr.control.gcp = check_points(3, 0.02, 0.01, "C<");
  comp_GCP_stats({}, corr.control.gcp);
  in.complete = false;
  ASSERT_TRUE(write_report(prj, corr, in));
  const std::string page = read_text(prj.name + "_report.html");
  for (const char* const part :
       {"1 of 2 swaths were aligned; the height differences between them went from "
        "0.227 to 0.008 m RMS in 1 pairs",
        "3 check points differ by", "&lt;b&gt;&amp;&quot;1&quot;.las / lost.las", "swath lost.las",
        "no points", "data:image/jpeg;base64,/9gA/w==", "<polyline",
        "boresight roll 0.1 \u00b1 0.002 degrees", "FAIL", "C&lt;0", "-0.123", "0.050", "0.017", "-0.146",
        "1779", "no vertex left", "M34.0 414.0L794.0 414.0"})
    EXPECT_TRUE(holds(page, part)) << part;
  EXPECT_FALSE(holds(page, "<script"));
  EXPECT_FALSE(holds(page, "<b>"));
  // Every address is of this page or of data.
  const std::regex address("(src|href)=\"([^\"]*)\"");
  for (std::sregex_iterator m(page.begin(), page.end(), address), end; m != end; ++m) {
    const std::string to = (*m)[2];
    if (to[0] == '#')
      EXPECT_TRUE(holds(page, "id=\"" + to.substr(1) + "\"")) << to;
    else
      EXPECT_EQ(to.rfind("data:", 0), 0u) << to;
  }
  // Elements are closed in the order of their opening.
  std::vector<std::string> open;
  const std::regex tag("<(/?)([a-z0-9]+)[^>]*?(/?)>");
  const std::string body = page.substr(page.find("<main>"));
  for (std::sregex_iterator m(body.begin(), body.end(), tag), end; m != end; ++m) {
    const std::string name = (*m)[2];
    if ((*m)[3] == "/" || name == "img") continue;
    if ((*m)[1] == "") {
      open.push_back(name);
    } else if (name != "body" && name != "html") {
      ASSERT_FALSE(open.empty()) << name;
      EXPECT_EQ(open.back(), name);
      open.pop_back();
    }
  }
  EXPECT_TRUE(open.empty());
}

TEST(Report, OutlinesKeepTheirShapeWithFewerCorners) {
  MapRing stairs;  // along a line of 100 m, and back 50 m above it
  for (int i = 0; i < 100; i++) stairs.push_back({i * 1.0, i % 2 * 0.5});
  for (int i = 100; i > 0; i--) stairs.push_back({i * 1.0, 50 + i % 2 * 0.5});
  const MapRing ring = simplify_ring(stairs, 1);
  EXPECT_LE(ring.size(), 6u);
  const auto [low, high] = std::ranges::minmax(ring, {}, &dxy::x);
  EXPECT_NEAR(high.x - low.x, 100, 1);
}
}  // namespace
}  // namespace veld
