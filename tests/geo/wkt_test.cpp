// The scanner: what it finds, what it refuses, and in which words.
#include "geo/wkt.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

namespace veld {
namespace {
const char* const TM_TEXT =
    "PROJCS[\"x\", GEOGCS[\"g\", DATUM[\"d\",\n  SPHEROID[\"WGS 84\", 6378137, 298.257223563]],\n"
    "  UNIT[\"degree\",0.01745]],\n  PROJECTION[\"Transverse_Mercator\"],\n"
    "  PARAMETER[\"latitude_of_origin\",0], PARAMETER[\"central_meridian\",9], "
    "PARAMETER[\"scale_factor\",0.9996],\n"
    "  PARAMETER[\"false_easting\",500000], PARAMETER[\"false_northing\",-1.5e2],\n"
    "  UNIT[\"metre\",1, AUTHORITY[\"EPSG\",\"9001\"]], AUTHORITY[\"EPSG\",\"25832\"]]";

std::string changed(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

// Result of init and all that it wrote on the console.
bool init_of(const std::string& text, GeoRefParam& g, std::string& said, bool same_datum = false,
             const std::string& geoid = "") {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  const bool ok = g.init(0, text, 0, geoid, same_datum);
  said = testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout();
  return ok;
}
}  // namespace

TEST(Wkt, AnyCaseAnyBlanks) {
  GeoRefParam g;
  std::string said;
  ASSERT_TRUE(init_of(TM_TEXT, g, said)) << said;
  EXPECT_EQ(g.kind, ProjKind::TM);
  EXPECT_EQ(g.lcm, 9);
  EXPECT_EQ(g.ko, 0.9996);
  EXPECT_EQ(g.No, -150);
  EXPECT_EQ(g.unit, 1);
  EXPECT_TRUE(g.samedat);
  EXPECT_EQ(get_WKT_authority(wkt_normalise(TM_TEXT)), "25832");
}

// The number holds; a name that says something else is reported.
TEST(Wkt, Units) {
  struct Row {
    const char* unit;
    double metres;
    const char* message;
  };
  for (const Row& row :
       {Row{"\"US survey foot\",0.3048006096012192", FEET_US, ""}, Row{"\"Foot_US\",0.3048006", FEET_US, ""},
        Row{"\"foot (International)\",0.3048", FEET_INT, ""}, Row{"\"Foot\",0.3048", FEET_INT, ""},
        Row{"\"foot\",0.30480060960121924", FEET_US, ""},
        Row{"\"Clarke's foot\",0.3047972654", 0.3047972654, ""}, Row{"\"fathom\",1.8288", 1.8288, ""},
        Row{"\"Meters\",1.0", 1, ""}, Row{"\"metre\",0.3048", FEET_INT, "unit name and number disagree"},
        Row{"\"Foot_US\",0.3048", FEET_INT, "unit name and number disagree"}}) {
    GeoRefParam g;
    std::string said;
    const std::string text = changed(TM_TEXT, "UNIT[\"metre\",1,", std::string("UNIT[") + row.unit + ",");
    ASSERT_TRUE(init_of(text, g, said)) << row.unit << said;
    EXPECT_EQ(g.unit, row.metres) << row.unit;
    EXPECT_EQ(g.unit_z, row.metres) << row.unit;
    EXPECT_EQ(said.find("disagree") != std::string::npos, *row.message != '\0') << said;
  }
}

// Only the projected system's own entry is the unit of the plane, only the vertical system's that of heights.
TEST(Wkt, UnitsOfCompoundSystems) {
  const std::string feet = changed(TM_TEXT, "UNIT[\"metre\",1,", "UNIT[\"Foot_US\",0.3048006096012192,");
  const auto compound = [](const std::string& plane, const std::string& vertical) {
    return "COMPD_CS[\"both, UNIT[\"," + plane + "," + vertical + "]";
  };
  const std::string metre_z = "VERT_CS[\"h\",VERT_DATUM[\"d\",2005],UNIT[\"metre\",1],AXIS[\"Up\",UP]]";
  const std::string feet_z =
      "VERT_CS[\"h\",VERT_DATUM[\"d\",2005],UNIT[\"US survey foot\",0.3048006096012192]]";
  const std::string no_unit = changed(TM_TEXT, "UNIT[\"metre\",1, AUTHORITY[\"EPSG\",\"9001\"]],", "");
  struct Row {
    std::string text;
    double plane, height;
    const char* message;
  };
  const Row rows[] = {
      {compound(TM_TEXT, feet_z), 1, FEET_US, ""},
      {compound(feet, metre_z), FEET_US, 1, ""},
      {compound(feet, "VERT_CS[\"h\",VERT_DATUM[\"d\",2005]]"), FEET_US, FEET_US,
       "unit of the vertical system missing"},
      {std::string(TM_TEXT) +
           ",VERTCS[\"NAVD_1988_Foot_US\",VDATUM[\"d\"],UNIT[\"Foot_US\",0.3048006096012192]]",
       1, FEET_US, ""},
      {no_unit, 1, 1, "unit missing, using default"},
      {compound(no_unit, feet_z), 1, FEET_US, "unit missing, using default"},
  };
  for (const Row& row : rows) {
    GeoRefParam g;
    std::string said;
    ASSERT_TRUE(init_of(row.text, g, said)) << row.text << said;
    EXPECT_EQ(g.unit, row.plane) << row.text;
    EXPECT_EQ(g.unit_z, row.height) << row.text;
    EXPECT_TRUE(holds(said, row.message)) << said;
    dxyz p = {0, 0, 0};
    double lon = 0, lat = 0, h = 0;
    ASSERT_TRUE(geo_forward(g, 9.5, 48, 300, p));
    EXPECT_NEAR(p.z * row.height, 300, 1e-9);
    ASSERT_TRUE(geo_inverse(g, p, lon, lat, h));
    EXPECT_NEAR(lat, 48, 1e-9);
    EXPECT_NEAR(h, 300, 1e-9);
  }
}

TEST(Wkt, Refusals) {
  struct Row {
    const char* from;
    const char* to;
    const char* message;
  };
  const Row rows[] = {
      {"Transverse_Mercator", "Cassini_Soldner", "unsupported projection"},
      {"Transverse_Mercator", "Hotine_Oblique_Mercator_Two_Point_Center", "unsupported projection"},
      {"PROJECTION", "PROJECTILE", "unsupported projection"},
      {"central_meridian", "central", "ERROR: TM projection: WKT string parse error"},
      {"central_meridian", "central", "WKT parser - central_meridian parameter missing"},
      {"scale_factor\",0.9996", "scale_factor\",one", "WKT parser - scale_factor parameter value not found"},
      {"scale_factor\",0.9996", "scale_factor\",nan", "WKT parser - scale_factor parameter value not found"},
      {"scale_factor\",0.9996", "scale_factor\",0", "ERROR: TM projection: inconsistent parameters"},
      {"UNIT[\"metre\",1,", "UNIT[\"metre\",one,", "ERROR: WKT parser - could not parse unit"},
      {"UNIT[\"metre\",1,", "UNIT[\"metre\",0,", "ERROR: WKT parser - could not parse unit"},
      {"PARAMETER[\"false_northing\",-1.5e2]", "PARAMETER[\"false_northing\",", "parse error"}};
  for (const Row& row : rows) {
    GeoRefParam g;
    std::string said;
    EXPECT_FALSE(init_of(changed(TM_TEXT, row.from, row.to), g, said)) << row.from << " -> " << row.to;
    EXPECT_TRUE(holds(said, row.message)) << row.message << " in " << said;
  }
  GeoRefParam g;
  std::string said;
  EXPECT_FALSE(init_of(TM_TEXT, g, said, false, "egm2008"));
  EXPECT_TRUE(holds(said, "missing bin file for geoid egm2008")) << said;
  EXPECT_FALSE(g.init(61, "", 0, "", false));
  for (size_t n = 0; n < 420; n += 7) {  // a text that stops anywhere is refused or read, never worse
    const std::string text = std::string(TM_TEXT).substr(0, n);
    (void)init_of(text, g, said);
  }
}

TEST(Wkt, DatumStep) {
  struct Row {
    const char* spheroid;
    const char* towgs84;
    bool same_datum, ok, samedat;
  };
  const Row rows[] = {
      {"6378137, 298.257223563", "", false, true, true},
      {"6378137, 298.257222101", "", false, true, false},  // GRS80: the spheroids differ
      {"6378137, 298.257222101", "TOWGS84[0,0,0,0,0,0,0],", false, true, false},
      {"6378206.4, 294.9786982", "TOWGS84[0,0,0,0,0,0,0],", false, true, false},
      {"6377397.155, 299.1528", "TOWGS84[598.1,73.7,418.2,0.202,0.045,-2.455,6.7],", false, true, false},
      {"6377397.155, 299.1528", "TOWGS84[598.1,73.7,418.2,0.202,0.045,-2.455,6.7],", true, true, true},
      {"6378206.4, 294.9786982", "TOWGS84[1,2],", false, true, false}};
  for (const Row& row : rows) {
    GeoRefParam g;
    std::string said;
    const std::string text =
        changed(TM_TEXT, "6378137, 298.257223563]]", std::string(row.spheroid) + "]," + row.towgs84 + "]");
    EXPECT_EQ(init_of(text, g, said, row.same_datum), row.ok) << row.spheroid << row.towgs84 << said;
    EXPECT_EQ(g.samedat, row.samedat) << row.spheroid << row.towgs84;
  }
}

TEST(Wkt, SpheroidFallsBack) {
  for (const char* entry :
       {"SPHEROID[\"s\"]", "SPHEROID[\"s\",abc,298]", "SPHEROID[\"s\",6,298]", "SPHEROID[\"s\",6378137"}) {
    double a = 0, e2 = 0;
    testing::internal::CaptureStderr();
    get_WKT_spheroid(wkt_normalise(entry), a, e2);
    EXPECT_TRUE(holds(testing::internal::GetCapturedStderr(), "could not parse spheroid, using WGS84"));
    EXPECT_EQ(a, WGS84_A);
    EXPECT_EQ(e2, WGS84_E2);
  }
}
}  // namespace veld
