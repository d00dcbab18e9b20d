// The text plots, to the letter.
#include "prj/LiDAR/LmTplot/LmTplot_txt.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

namespace veld {
namespace {
SwathPlot plot(int number, double x) {
  SwathPlot p{"", SwathId(number), 2, {}};
  p.info.bbmin[0] = x;
  p.info.bbmax[0] = x + 10;
  p.info.bbmax[1] = 5;
  for (int i = 0; i < 4; i++) p.info.mbr[i][0] = x + i;
  return p;
}
}  // namespace

TEST(TextPlots, BoxesAndRectanglesAreClosedPolygons) {
  TempDir dir;
  const std::string name = dir.path + "/p";
  ASSERT_TRUE(write_BBOX(name, {plot(0, 1), plot(1, 3)}, true));
  EXPECT_EQ(read_text(name + "_bb.txt"),
            "X Y Swath# Group#\n1.000 0.000 0 2\n11.000 0.000 0 2\n11.000 5.000 0 2\n1.000 5.000 0 2\n1.000 "
            "0.000 0 2\n"
            "3.000 0.000 1 2\n13.000 0.000 1 2\n13.000 5.000 1 2\n3.000 5.000 1 2\n3.000 0.000 1 2\n");
  const std::string obj = read_text(name + "_bb.obj");
  EXPECT_EQ(obj.rfind("v 1.000 0.000 0\nv 11.000 0.000 0\n", 0), 0u);
  EXPECT_TRUE(holds(obj, "v 1.000 0.000 0\nl -1 -2 -3 -4 -5\nv 3.000"));
  ASSERT_TRUE(write_MBR(name, {plot(0, 1)}, false));
  EXPECT_EQ(read_text(name + "_mbr.txt").substr(0, 34), "X Y Swath# Group#\n1.000 0.000 0 2\n");
  EXPECT_FALSE(exists(name + "_mbr.obj"));
  EXPECT_FALSE(write_MBR(dir.path + "/none/p", {plot(0, 1)}, false));
}
}  // namespace veld
