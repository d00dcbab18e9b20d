#include "prj/LiDAR/options/rules.h"

#include "tests/prj/LiDAR/options/read_support.h"

namespace veld {
namespace {
Options derived(const Args& args) {
  ReadResult r;
  read_into(r, args);
  EXPECT_TRUE(r.ok) << r.errors;
  derive_defaults(r.cl.o, r.cl.given);
  return r.cl.o;
}
}  // namespace

TEST(Rules, DerivedDefaults) {
  EXPECT_EQ(derived("-uav").tuning.DT_RANGE, 10);
  EXPECT_EQ(derived("-uav -dt_range 20").tuning.DT_RANGE, 20);
  EXPECT_EQ(derived("-uav").scanning.Jend, 0);
  EXPECT_EQ(derived("-uav -coarse 2").scanning.Jend, 2);
  EXPECT_EQ(derived("-uav").tuning.DEV_RANGE, 0.5f);
  EXPECT_EQ(derived("-uav -dev_max 1").scanning.tiling.DTS, 1.0f);
  EXPECT_EQ(derived("-nthreads 1").tuning.NTHREADSIO, 1);
  EXPECT_EQ(derived("-dz_mix").scanning.map.dz_color, 2);
  EXPECT_EQ(derived("-dz_mix -dz_color 5").scanning.map.dz_color, 5);
  EXPECT_EQ(derived("-scan").scanning.map.maps, 0);
  EXPECT_EQ(derived("-scan").scanning.FULL, 1);
  EXPECT_EQ(derived("-dz_range 2").scanning.map.dz16_range, 2.0f);
  EXPECT_EQ(derived("-dz16_range 3").scanning.map.dz_range, 3.0f);
  EXPECT_EQ(derived("-dz_range 1 -dz_range_1 0.5").dz_range_1, 0.5f);
  EXPECT_EQ(derived("-dz_range 1").dz_range_1, 1.0f);
  EXPECT_EQ(derived("-v_range 2").v_range_1, 2.0f);
  const Options calib = derived("-calib name -dpoc A -boost 4");
  EXPECT_EQ(calib.corr, std::vector<std::string>{"name"});
  EXPECT_EQ(calib.dpoc, "0");
  EXPECT_TRUE(calib.correction.nil);
  EXPECT_EQ(calib.correction.inv.UADJ, 1);
  EXPECT_EQ(calib.scanning.regpairs.RDIM, 1);
  EXPECT_EQ(calib.tuning.NR_BOOST, 4);
}
}  // namespace veld
