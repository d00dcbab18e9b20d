// The summary of a run for programs, against its schema.
#include <gtest/gtest.h>

#include <algorithm>
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
  return project.program.run({"-align", "-utm", "33", "-i", "L*.las", "-po", "traj.out", "-odir", "out", "-tmpdir",
                              "tmp", "-C", "B", "-out", "*_c.las"});
}

Json parse(const std::string& path) { return Json::parse(read_text(path), nullptr, false); }
}  // namespace

TEST(RunReport, AnAlignmentFitsTheSchema) {
  const ScoredProject project;
  const std::string& dir = project.dir;
  const RunOutput r = align(project);
  ASSERT_EQ(r.code, 0) << r.err;
  const Json schema = parse(SOURCE_PATH "/docs/run.schema.json"), report = parse(dir + "/out/project_run.json");
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
  for (const Json& output : report["outputs"]) listed.insert(std::filesystem::path(output["file"]).filename());
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
}  // namespace veld
