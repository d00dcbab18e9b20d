#include "prj/LiDAR/check/project_check.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

namespace veld {
namespace {
SwathProbe swath_at(double x, double y, double t0) {
  SwathProbe p;
  p.header.npoints = 1000;
  for (int i = 0; i < 100; i++) p.beams.push_back({t0 + i, {x + 10 * i, y + i % 7, 100}, 0});
  p.nkept = p.beams.size();
  p.timed = true;
  return p;
}

struct Set {
  Project prj;
  std::vector<SwathProbe> probes;
  void add(const char* name, const SwathProbe& probe) {
    Swath s;
    s.cache = CacheName(name);
    prj.swaths.add(s);
    probes.push_back(probe);
  }
  std::vector<Problem> problems() const {
    SwathVector<SwathProbe> by_swath(prj.swaths);
    for (const Swath& s : prj.swaths) by_swath[s.id] = probes[static_cast<size_t>(s.id.number)];
    return find_problems(prj, by_swath, 33);
  }
};
}  // namespace

TEST(ProjectCheck, WhatDoesNotBelongIsNamed) {
  const struct {
    const char* what;
    void (*spoil)(Set& s);
    bool error;
    const char* text;
  } cases[] = {
      {"feet", [](Set& s) { s.add("X.las", swath_at(500000 / 0.3048, 5300000 / 0.3048, 900)); }, true,
       " km from the other swaths: its coordinates are feet among metres?"},
      {"zone", [](Set& s) { s.add("X.las", swath_at(80000, 5310000, 900)); }, true,
       "another zone or projection?"},
      {"degrees",
       [](Set& s) {
         SwathProbe p = swath_at(0, 0, 900);
         for (Beam& b : p.beams) b.P = {-90 + 1e-7 * b.P.x, 47 + 1e-7 * b.P.y, 100};
         s.add("X.las", p);
       },
       true, "degrees? Points must be projected"},
      {"copy", [](Set& s) { s.add("X.las", s.probes[1]); }, true,
       "X.las holds the same points as B.las: a copy?"},
      {"beside", [](Set& s) { s.add("X.las", swath_at(505000, 5300000, 900)); }, false,
       "X.las overlaps no other swath"},
      {"no time", [](Set& s) { s.probes[0].timed = false; }, false, "A.las has no time stamps"},
      {"filter", [](Set& s) { s.probes[2].nkept = 0, s.probes[2].dropped = "WHY"; }, false,
       "filters keep 0 of 100 points looked at in C.las: WHY"},
      {"unreadable", [](Set& s) { s.probes[1] = SwathProbe(), s.probes[1].fault = "cannot be read"; }, false,
       "B.las cannot be read"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Set s;
    s.add("A.las", swath_at(500000, 5300000, 0));
    s.add("B.las", swath_at(500200, 5300002, 300));
    s.add("C.las", swath_at(500300, 5300001, 600));
    EXPECT_TRUE(s.problems().empty());
    c.spoil(s);
    const std::vector<Problem> found = s.problems();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].error, c.error);
    EXPECT_TRUE(holds(found[0].text, c.text)) << found[0].text;
  }
}
}  // namespace veld
