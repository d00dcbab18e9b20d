// One time base for swaths and trajectories whose clocks differ.
#include "prj/LiDAR/POio/POtime.h"
#include "tests/prj/LiDAR/VR2POsync/sync_project.h"

namespace veld {
namespace {
constexpr double W = 2301 * WEEK_S;  // start of GPS week 2301

struct Case {
  const char* name;
  double sw_t;  // first time of the swath
  bool sw_adj;
  double po_t;  // first time of the trajectory, 20 s before the swath by its own clock
  int po_time;
  uint32_t gweek;
  bool DAY;
  double sw_corr, po_corr;
  bool adj;  // both end in adjusted time
  const char* message;
};
}  // namespace

TEST(GrpSyncTime, Table) {
  const Case cases[] = {
      {"both in seconds of the week", 305020, false, 305000, 0, 0, false, 0, 0, false, ""},
      {"both adjusted", W + 305020 - 1e9, true, W + 305000 - 1e9, 1, 0, false, 0, 0, true, ""},
      {"swath adjusted, trajectory weekly", W + 305020 - 1e9, true, 305000, 0, 0, false, 0, W - 1e9, true,
       "GPS time converted to adjusted: 0 swaths, 1 PO files in 1 groups"},
      {"swath weekly, trajectory adjusted", 305020, false, W + 305000 - 1e9, 1, 0, false, W - 1e9, 0, true,
       "GPS time corrected: 2 swaths, 0 PO files in 1 groups"},
      {"user's week, all weekly", 305020, false, 305000, 0, 2301, false, W - 1e9, W - 1e9, true,
       "GPS time converted to adjusted: 2 swaths, 1 PO files in 1 groups"},
      {"user's week is that of the data", W + 305020 - 1e9, true, 305000, 0, 2301, false, 0, W - 1e9, true,
       ""},
      {"user's week is another one", W + 305020 - 1e9, true, 305000, 0, 2300, false, 0, W - 1e9, true,
       "different GPS weeks: user=2300, data=2301 (group 1)"},
      {"swath in full GPS seconds", W + 305020, false, 305000, 0, 0, false, -1e9, W - 1e9, true, ""},
      {"swath behind the week's end, trajectory rolled over", 604810, false, 604790, 0, 0, false, 0, 0, false,
       ""},
      {"swath of the next week, trajectory adjusted", 10, false, W + WEEK_S - 10 - 1e9, 1, 0, false,
       W + WEEK_S - 1e9, 0, true, ""},
      {"seconds of the day, DAY", 45820, false, 305000, 0, 0, true, 259200, 0, false, ""},
      {"seconds of the day without DAY", 45820, false, 305000, 0, 0, false, 0, 0, false,
       "swath and PO timestamps span more than 12 hours (group 1)"},
      {"12 hours apart by mistake", 305020, false, 260000, 0, 0, false, 0, 0, false,
       "span more than 12 hours"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SyncProject p;
    p.add_swath(c.sw_t, c.sw_t + 30, c.sw_adj);
    p.add_swath(c.sw_t + 31, c.sw_t + 50, c.sw_adj);
    p.add_pair(0, 1, 3);
    p.prj.pogroups[0].time = c.po_time;
    p.prj.pogroups[0].gweek = c.gweek;
    p.par.DAY = c.DAY;
    p.add_track("t.txt", c.po_t, c.po_t + 80);
    const int n = p.run();
    EXPECT_TRUE(p.has(c.message)) << p.said;
    EXPECT_EQ(p.has("span more than"), std::string(c.message).find("span more") != std::string::npos)
        << p.said;
    EXPECT_EQ(n, p.has("span more than") ? 0 : 2) << p.said;
    ASSERT_EQ(p.res.files.size(), 1u);
    EXPECT_EQ(p.swath(0).clock.shift, c.sw_corr);
    EXPECT_EQ(p.swath(1).clock.shift, c.sw_corr);
    EXPECT_EQ(p.res.files[0].TimeCorr, c.po_corr);
    EXPECT_EQ(p.swath(0).clock.adj, c.adj);
    EXPECT_EQ(p.swath(0).clock.begin, c.sw_t + c.sw_corr);
    if (n == 2) {
      EXPECT_NEAR(p.res.O1[0](0).y, 5321000 + 8 * (p.res.pairs[0].t1(0) - p.res.files[0].scan.t0 - c.po_corr),
                  1e-3);
    }
  }
}

TEST(GrpSyncTime, GroupsHaveTheirOwnClocks) {
  SyncProject p;
  p.prj.pogroups.resize(2);
  p.add_swath(305020, 305050, false, 1);
  p.add_swath(W + 305120 - 1e9, W + 305150 - 1e9, true, 2);
  p.add_pair(0, 1, 4);
  p.add_track("a.txt", 305000, 305060, 1);
  p.add_track("b.txt", 305100, 305160, 2);
  EXPECT_EQ(p.run(), 2) << p.said;
  EXPECT_EQ(p.file_of(0), 0);
  EXPECT_EQ(p.file_of(1), 1);
  EXPECT_EQ(p.swath(0).clock.shift, 0);
  EXPECT_EQ(p.res.files[1].TimeCorr, W - 1e9);
  EXPECT_FALSE(p.res.groups[0].adj);
  EXPECT_TRUE(p.res.groups[1].adj);
  EXPECT_EQ(p.res.groups[1].week, 2301u);
}

TEST(GrpSyncTime, ChannelsOfALineShareInterval) {
  SyncProject p;
  p.prj.pogroups.resize(2);
  p.prj.chgrp = {0, 1};
  p.add_swath(1020, 1040, false, 1, 0);
  p.add_swath(1060, 1080, false, 1, 0);
  p.add_swath(1018, 1041, false, 2, 1);
  p.add_pair(0, 2, 4);
  p.add_pair(0, 1, 4);
  p.add_track("t.txt", 1000, 1100, 1);
  p.add_file("t.txt", 2);
  EXPECT_EQ(p.run(), 3) << p.said;
  EXPECT_EQ(p.swath(0).clock.begin, 1018);
  EXPECT_EQ(p.swath(0).clock.end, 1041);
  EXPECT_EQ(p.swath(1).clock.begin, 1060);
  EXPECT_EQ(p.file_of(2), 0);  // the file of the main channel
  EXPECT_TRUE(holds(p.log("_ch_stat.log"), "0,2  1,2  2  00:00:23")) << p.log("_ch_stat.log");

  p.par.ICH = true;  // independent channels keep their own
  EXPECT_EQ(p.run(), 3) << p.said;
  EXPECT_EQ(p.swath(0).clock.begin, 1020);

  p.prj.pofiles[1].path += "x";
  EXPECT_EQ(p.run(), 0);
  EXPECT_TRUE(p.has("ERROR: PO sync: group/channel inconsistency for channel 1, PO file ")) << p.said;
  p.prj.swaths[SwathId(2)].mainch = SwathId(2);  // not the one that the index says
  EXPECT_EQ(p.run(), 0);
  EXPECT_TRUE(p.has("ERROR: incompatible DUT file, swath 2 is no main channel, in the project it is one, "))
      << p.said;
}
}  // namespace veld
