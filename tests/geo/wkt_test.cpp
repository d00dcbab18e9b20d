// The scanner: what it finds, what it refuses, and in which words.
#include "geo/wkt.h"

#include <gtest/gtest.h>

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

TEST(Wkt, Units) {
  struct Row {
    const char* unit;
    double metres;
  };
  for (const Row& row :
       {Row{"US survey foot", FEET_US}, Row{"Foot_US", FEET_US}, Row{"foot (International)", FEET_INT},
        Row{"Intl. Feet", FEET_INT}, Row{"Meters", 1}, Row{"metre", 1}, Row{"fathom", 1}}) {
    const std::string text = changed(TM_TEXT, "UNIT[\"metre\"", std::string("UNIT[\"") + row.unit + "\"");
    EXPECT_EQ(get_WKT_unit(wkt_normalise(text)), row.metres) << row.unit;
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
      {"AUTHORITY[\"EPSG\",\"25832\"]", "TOWGS84[1,2,3,0,0,0,0]",
       "ERROR: datum shifts (TOWGS84) are not available yet"},
      {"PARAMETER[\"false_northing\",-1.5e2]", "PARAMETER[\"false_northing\",", "parse error"}};
  for (const Row& row : rows) {
    GeoRefParam g;
    std::string said;
    EXPECT_FALSE(init_of(changed(TM_TEXT, row.from, row.to), g, said)) << row.from << " -> " << row.to;
    EXPECT_NE(said.find(row.message), std::string::npos) << row.message << " in " << said;
  }
  GeoRefParam g;
  std::string said;
  EXPECT_FALSE(init_of(TM_TEXT, g, said, false, "egm2008"));
  EXPECT_NE(said.find("not available yet"), std::string::npos) << said;
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
      {"6378206.4, 294.9786982", "TOWGS84[0,0,0,0,0,0,0],", false, false, false},
      {"6377397.155, 299.1528", "TOWGS84[598.1,73.7,418.2,0.202,0.045,-2.455,6.7],", false, false, false},
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
    EXPECT_NE(testing::internal::GetCapturedStderr().find("could not parse spheroid, using WGS84"),
              std::string::npos);
    EXPECT_EQ(a, WGS84_A);
    EXPECT_EQ(e2, WGS84_E2);
  }
}
