// A correction of swaths that a displacement file was made from: names decide which is which.
#include "prj/LiDAR/run/dut_swaths.h"

#include "prj/LiDAR/DUTio/DUTio.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
class DutSwaths : public testing::Test {
 protected:
  TempDir dir;
  std::string dut = dir.path + "/r";
  Project prj;
  std::string path(const std::string& name) const { return dir.path + "/" + name + ".las"; }
  void SetUp() override {  // lines a, b, c and a union of references r, s
    DUTidx idx;
    idx.gsize = 8, idx.level = 7, idx.dim = 4;
    for (const char* const name : {"a", "b", "c", "r"}) {
      DUTswath line;
      line.path = path(name);
      line.fixed = name[0] == 'r';
      line.group = line.fixed ? 0 : 1;
      if (line.fixed) line.path += " (union of 2 input reference swaths)";
      idx.swaths.push_back(line);
    }
    DUTwriter w;
    ASSERT_TRUE(open_DUT_IDX(w, dut, idx, true, false));
    ASSERT_TRUE(close_DUT_IDX(w));
    prj.nmgrp = prj.ngrp = 1;
    prj.chgrp = {0};
  }
  void add(const std::string& names) {
    for (const char name : names) {
      Swath s;
      s.fixed = name >= 'r';
      s.group = s.fixed ? 0 : 1;
      s.cache = CacheName(path({name}));
      write_text(s.path(), "x");
      prj.swaths.push_back(s);
    }
  }
  std::string rows() const {  // names in order, those that get no corrected file in brackets
    std::string text;
    for (const Swath& s : prj.swaths) {
      const std::string name = s.path().substr(dir.path.size() + 1, 1);
      text += s.corr ? name : "(" + name + ")";
    }
    return text;
  }
};
}  // namespace

TEST_F(DutSwaths, NamesDecideTheOrder) {
  add("cabrs");
  ASSERT_TRUE(complete_DUT_swaths(dut, prj));
  EXPECT_EQ(rows(), "abcrs");
  for (size_t i = 0; i < 5; i++) EXPECT_EQ(prj.swaths[i].mainch, static_cast<int>(i));
}

TEST_F(DutSwaths, ASwathThatWasRejectedStandsBehindTheOthers) {
  add("abxcrs");
  ASSERT_TRUE(complete_DUT_swaths(dut, prj));
  EXPECT_EQ(rows(), "abcxrs");
}

TEST_F(DutSwaths, MissingSwathsComeInForTheirDisplacements) {
  add("brs");
  EXPECT_NE(errors_of([&] { EXPECT_FALSE(complete_DUT_swaths(dut, prj)); }).find("missing swath "),
            std::string::npos);
  for (const char* const name : {"a", "c"}) write_text(path(name), "x");
  ASSERT_TRUE(complete_DUT_swaths(dut, prj));
  EXPECT_EQ(rows(), "(a)b(c)rs");
  prj.swaths.clear();
  add("bd");
  EXPECT_NE(
      errors_of([&] { EXPECT_FALSE(complete_DUT_swaths(dut, prj)); }).find("d.las is not in displacement"),
      std::string::npos);
}
}  // namespace veld
