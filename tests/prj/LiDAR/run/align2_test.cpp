#include "prj/LiDAR/run/align2.h"

#include "prj/LiDAR/inputs/inputs.h"
#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
TEST(Align2, TheSecondStepReadsWhatTheFirstWrote) {
  Options o;
  o.align2 = true;
  o.odir_1 = "one/";
  o.correction.nil = true;
  o.out = "*_c.las";
  o.scanning.map.dz_range = 1, o.dz_range_1 = 0.5f;
  OUTDIR = "two/";
  const Options first = align2_options(o, 0), second = align2_options(o, 1);
  EXPECT_EQ(first.odir, "one/");
  EXPECT_EQ(first.scanning.map.dz_range, 0.5f);
  EXPECT_FALSE(first.correction.nil);
  EXPECT_EQ(second.odir, "two/");
  EXPECT_EQ(second.scanning.map.dz_range, 1.0f);
  EXPECT_TRUE(second.correction.nil);
  EXPECT_EQ(second.out, "*") << "the names of the first step stand";

  Project prj;
  prj.swaths = {{CacheName("a"), 1, 0, 0, false, true},
                {CacheName("b"), 2, 1, 1, false, true},
                {CacheName("c"), 2, 1, 2, false, true},
                {CacheName("r"), 0, 0, 3, true, true}};
  ASSERT_TRUE(align2_proc_fxnames(0, {}, prj));
  EXPECT_EQ(prj.swaths.size(), 4u);
  ASSERT_TRUE(align2_proc_fxnames(1, {"", "one/b", "one/c", ""}, prj));
  ASSERT_EQ(prj.swaths.size(), 3u);
  EXPECT_EQ(prj.swaths[0].path(), "one/b");
  EXPECT_EQ(prj.swaths[0].group, 2);
  EXPECT_EQ(prj.swaths[1].channel, 1);
  EXPECT_EQ(prj.swaths[2].path(), "r");
  EXPECT_TRUE(prj.swaths[2].fixed);
  EXPECT_EQ(errors_of([&] {
              EXPECT_FALSE(align2_proc_fxnames(1, {"", "", ""}, prj));
            }),
            "ERROR: no corrected swath to work with in alignment step 2\n");
}
}  // namespace veld
