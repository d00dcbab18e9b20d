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

  SwathTable swaths;
  for (const char* const path : {"a", "b", "c", "r"})
    swaths.add({.cache = CacheName(path), .group = path[0] == 'r' ? 0 : 1, .fixed = path[0] == 'r'});
  ASSERT_TRUE(align2_proc_fxnames(0, swaths));
  EXPECT_EQ(swaths.ids().size(), 4u);
  swaths[SwathId(1)].corrected = "one/b";
  swaths[SwathId(2)].corrected = "one/c";
  ASSERT_TRUE(align2_proc_fxnames(1, swaths));
  EXPECT_EQ(swaths.ids(), (std::vector<SwathId>{SwathId(1), SwathId(2), SwathId(3)})) << "numbers stay";
  EXPECT_EQ(swaths[SwathId(0)].state, SwathState::uncorrected);
  EXPECT_EQ(swaths[SwathId(1)].path(), "one/b");
  EXPECT_EQ(swaths[SwathId(3)].path(), "r");
  EXPECT_EQ(errors_of([&] { EXPECT_FALSE(align2_proc_fxnames(1, swaths)); }),
            "ERROR: no corrected swath to work with in alignment step 2\n");
}
}  // namespace veld
