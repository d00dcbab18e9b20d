// tests/support/tiling_fixture.h
// A test fixture with a temporary directory for swaths and caches, and a short call of the tiling.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "prj/LiDAR/LmTidx_w/LmTidx_w.h"
#include "prj/LiDAR/tuning.h"
#include "tests/support/swath_writer.h"
#include "tests/support/temp_dir.h"

namespace veld {
class TilingTest : public testing::Test {
 protected:
  TempDir dir;
  TilingParam par;
  LmTswathResult res;

  void SetUp() override { TMPDIR = dir.path + "/"; }
  void TearDown() override {
    AUTO_ADJ = false;
    CHECK_SW_TSTAMP = true;
    DATAUNIT = DATAUNIT_Z = 1.0;
    GGSD_OPT = -1.0f;
  }
  std::string file(const std::string& name) const { return dir.path + "/" + name; }
  std::string make(const std::string& name, const std::vector<TestPoint>& points,
                   const TestLas& how = {}) const {
    write_test_las(file(name), points, how);
    return file(name);
  }
  bool tile(const std::string& path, bool cache = false, uint64_t max_bytes = uint64_t{1} << 30) {
    TilingMemory memory(max_bytes, 1);
    return LmT_swath(CacheName(path), SwathId(0), par, cache, memory, res);
  }
};
}  // namespace veld
