#include "prj/LiDAR/inputs/georef_setup.h"

#include "prj/LiDAR/tuning.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
const char TM[] =
    "PROJCS[\"grid\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563]],"
    "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],"
    "PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",15],PARAMETER[\"scale_factor\",0."
    "9996],"
    "PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],UNIT[\"US survey "
    "foot\",0.3048006096012192]]";
}  // namespace

TEST(GeorefSetup, UnitsOfOptionsAndOfTheWkt) {
  TempDir dir;
  write_text(dir.path + "/tm.prj", TM);
  const struct {
    Args args;
    bool ok;
    double unit, out;
    std::string words;
  } cases[] = {
      {"-utm 33", true, 1, 1, ""},
      {"-utm -60", true, 1, 1, ""},
      {"-feet", true, 0.3048, 1, ""},
      {"-feet_us -out_metre 0", true, 1200.0 / 3937.0, 1200.0 / 3937.0, ""},
      {"-wkt tm.prj", true, 1200.0 / 3937.0, 1, ""},
      {"-wkt tm.prj -metre", true, 1, 1, ""},
      {"-wkt tm.prj -utm 33", true, 1, 1, "WARNING: wkt ignored due to -utm option\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    ReadResult r;
    read_into(r, c.args);
    GeoRefParam georef;
    testing::internal::CaptureStdout();
    const std::string errors = errors_of([&] {
      EXPECT_EQ(setup_georef(r.cl.o, {"", dir.path}, georef), c.ok);
    });
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(holds(errors, c.words)) << errors;
    if (!c.ok) continue;
    EXPECT_NEAR(DATAUNIT, c.unit, 1e-9);
    EXPECT_NEAR(DATAUNIT_Z, c.unit, 1e-9);
    if (georef.Zone < 0) {
      dxyz p;
      ASSERT_TRUE(geo_forward(georef, 177, -45, 0, p));
      EXPECT_NEAR(p.y, 10000000 - 4982950.4, 0.1);
    }
    EXPECT_NEAR(OUTDATAUNIT, c.out, 1e-9);
  }
}
}  // namespace veld
