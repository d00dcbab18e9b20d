// The summary of a run for programs, against its schema.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/run/scored_project.h"

namespace veld {
namespace {
using Json = nlohmann::json;

bool has_type(const Json& value, const std::string& type) {
  if (type == "object") return value.is_object();
  if (type == "array") return value.is_array();
  if (type == "string") return value.is_string();
  if (type == "integer") return value.is_number_integer();
  if (type == "number") return value.is_number();
  return type == "null" && value.is_null();
}

// The parts of a schema that ours uses: type, enum, required, properties, items.
void expect_valid(const Json& value, const Json& schema, const std::string& where) {
  if (schema.contains("enum")) {
    const Json& list = schema["enum"];
    EXPECT_TRUE(std::find(list.begin(), list.end(), value) != list.end()) << where << ": " << value.dump();
  }
  if (schema.contains("type")) {
    const Json& type = schema["type"];
    bool any = false;
    for (const Json& t : type.is_array() ? type : Json::array({type})) any = any || has_type(value, t);
    EXPECT_TRUE(any) << where << ": " << value.dump() << " is no " << type.dump();
  }
  if (value.is_object()) {
    if (schema.contains("required")) {
      for (const Json& name : schema["required"])
        EXPECT_TRUE(value.contains(name.get<std::string>())) << where << " lacks " << name;
    }
    if (schema.contains("properties"))
      for (const auto& [name, of] : schema["properties"].items())
        if (value.contains(name)) expect_valid(value[name], of, where + "." + name);
  }
  if (value.is_array() && schema.contains("items"))
    for (const Json& item : value) expect_valid(item, schema["items"], where + "[]");
}

// The run of an alignment in the simulated project.
RunOutput align(const ScoredProject& project) {
  return project.program.run("-align -utm 33 -i L*.las -po traj.out -odir out -tmpdir tmp -C B -out *_c.las");
}

Json parse(const std::string& path) { return Json::parse(read_text(path), nullptr, false); }
}  // namespace

TEST(RunReport, AnAlignmentFitsTheSchema) {
  const ScoredProject project;
  const std::string& dir = project.dir;
  const RunOutput r = align(project);
  ASSERT_EQ(r.code, 0) << r.err;
  const Json schema = parse(SOURCE_PATH "/docs/run.schema.json"),
             report = parse(dir + "/out/project_run.json");
  ASSERT_FALSE(schema.is_discarded());
  ASSERT_FALSE(report.is_discarded());
  expect_valid(report, schema, "report");
  EXPECT_EQ(report["command"], "align");
  EXPECT_EQ(report["exit"], 0);
  EXPECT_EQ(report["options"]["utm"], 33);
  ASSERT_EQ(report["passes"].size(), 1u);
  const Json& pass = report["passes"][0];
  ASSERT_EQ(pass["swaths"].size(), 3u);
  EXPECT_TRUE(std::filesystem::exists(dir + "/" + pass["swaths"][1]["output"].get<std::string>()));
  ASSERT_FALSE(pass["pairs"].empty());
  for (const Json& pair : pass["pairs"])
    EXPECT_LT(pair["dz_corrected"]["rms_m"], pair["dz_before"]["rms_m"]) << pair.dump();
  EXPECT_EQ(pass["correction"]["calibration"].size(), 1u);
  std::set<std::string> listed;
  for (const Json& output : report["outputs"])
    listed.insert(std::filesystem::path(output["file"]).filename());
  for (const auto& entry : std::filesystem::directory_iterator(dir + "/out")) {
    const std::string name = entry.path().filename();
    if (name.starts_with("veldrunner") || name.ends_with(".sum") || name == "project_run.json") continue;
    EXPECT_TRUE(listed.count(name)) << name;
  }
}

TEST(RunReport, AFailedRunHasOneToo) {
  const ScoredProject project;
  for (const char* name : {"/L01.las", "/L02.las", "/L03.las"}) write_text(project.dir + name, "no swath");
  write_text(project.dir + "/out/project_run.json", "old");
  const RunOutput r = align(project);
  EXPECT_EQ(r.code, 1);
  const Json report = parse(project.dir + "/out/project_run.json");
  ASSERT_FALSE(report.is_discarded());
  expect_valid(report, parse(SOURCE_PATH "/docs/run.schema.json"), "report");
  EXPECT_EQ(report["exit"], 1);
  EXPECT_FALSE(report["errors"].empty());
}

// Outlines, maps and the log of the quality control of a scan; gdalinfo agrees on the place of a map.
TEST(RunReport, AScanShowsWhereSwathsLie) {
  const ScoredProject project;
  const std::string& dir = project.dir;
  const RunOutput r =
      project.program.run("-scan -utm 33 -i L*.las -name s -tiff -obj -map -sep -xzview -tmpdir tmp");
  ASSERT_EQ(r.code, 0) << r.err;
  for (const char* name : {"s_sw_fp.geojson", "s_sw_mbr_prj.geojson"}) {
    const Json shapes = parse(dir + "/" + name);
    ASSERT_FALSE(shapes.is_discarded()) << name;
    ASSERT_EQ(shapes["features"].size(), 3u);
    EXPECT_EQ(shapes["features"][1]["properties"]["swath"], 1);
    EXPECT_EQ(shapes["features"][0]["geometry"]["type"], "MultiPolygon");
  }
  EXPECT_NEAR(parse(dir + "/s_sw_fp.geojson")["features"][0]["geometry"]["coordinates"][0][0][0][0], 15, 3);
  const std::string log = read_text(dir + "/s_QC.log");
  for (const char* row : {"Quality control report\n", "Swaths used 3\n", "Area total ", "Area overlap "})
    EXPECT_TRUE(holds(log, row)) << row << log;
  for (const char* name :
       {"s_mN.jpg", "s_mD.jpg", "s_mZ.tif", "s_dt.jpg", "s_dev.jpg", "s_ovr.jpg", "s_sep.tif",
        "s_sep_stat.log", "s_xzview.jpg", "s_trans.txt", "s_DZ.tif", "s_sw_fp.obj"})
    EXPECT_TRUE(std::filesystem::exists(dir + "/" + name)) << name;
  if (std::system("gdalinfo --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "gdalinfo is not installed";
  const Json shape = parse(dir + "/s_sw_mbr_prj.geojson");
  for (const char* name : {"s_DZ", "s_sep", "s_mN"}) {
    ASSERT_EQ(std::system(("cd " + dir + " && gdalinfo -json " + name + ".tif > info.json").c_str()), 0);
    const Json info = parse(dir + "/info.json");
    const double x0 = info["geoTransform"][0], y0 = info["geoTransform"][3], pixel = info["geoTransform"][1];
    EXPECT_TRUE(holds(info["coordinateSystem"]["wkt"].get<std::string>(), "UTM zone 33N"));
    // Corners are those of tiles; of cells of grid pixels, which are 0.8 m, half such a pixel beside them.
    const double shift = std::string(name) == "s_sep" ? -0.4 : 0;
    EXPECT_NEAR(std::remainder(x0, 128.0), shift, 1e-5) << name;
    EXPECT_NEAR(std::remainder(y0, 128.0), shift, 1e-5) << name;
    for (const Json& feature : shape["features"]) {
      const Json& corner = feature["geometry"]["coordinates"][0][0][0];
      if (std::string(name) == "s_DZ") continue;  // of the overlap only
      EXPECT_GT(corner[0], x0);
      EXPECT_LT(corner[0], x0 + pixel * info["size"][0].get<double>());
      EXPECT_LT(corner[1], y0);
      EXPECT_GT(corner[1], y0 - pixel * info["size"][1].get<double>());
    }
  }
}

TEST(RunReport, SwathsBesideTheBoxStayOut) {
  const ScoredProject project;
  const RunOutput r = project.program.run("-scan -i L*.las -bbox_x 0 1");
  EXPECT_EQ(r.code, 1);
  EXPECT_TRUE(holds(r.err, "WARNING: 3 mobile swaths dropped based on bounding box check")) << r.err;
  EXPECT_TRUE(holds(r.err, "ERROR: failed to select swaths based on bounding boxes")) << r.err;
}
}  // namespace veld
