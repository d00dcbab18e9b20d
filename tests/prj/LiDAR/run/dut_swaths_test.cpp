// A correction of swaths that a displacement file was made from: names decide which is which.
#include "prj/LiDAR/run/dut_swaths.h"

#include "lib/general/path.h"
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
  // Lines a, b, x (rejected when it was registered), c, and references r, s with their union.
  void SetUp() override {
    SwathTable swaths;
    for (const char name : std::string("abxcrs")) swaths.add(row(name));
    swaths.reject(SwathId(2), SwathState::untiled, "no points left");
    const std::vector<SwathId> members = {SwathId(4), SwathId(5)};
    Swath both = swaths[members[0]];
    both.members = members;
    swaths.add(both);
    for (const SwathId member : members) swaths.reject(member, SwathState::replaced, "");
    DUTidx idx;
    idx.gsize = 8, idx.level = 7, idx.dim = 4;
    for (const Swath& s : swaths) idx.swaths.push_back(make_DUTswath(swaths, s.id));
    DUTwriter w;
    ASSERT_TRUE(open_DUT_IDX(w, dut, idx, true, false));
    ASSERT_TRUE(close_DUT_IDX(w));
    prj.nmgrp = prj.ngrp = 1;
    prj.chgrp = {0};
  }
  Swath row(char name) const {
    Swath s;
    s.cache = CacheName(dir.path + "/" + name + ".las");
    s.fixed = name == 'r' || name == 's';
    s.group = s.fixed ? 0 : 1;
    if (name != 'x') write_text(s.path(), "x");
    return s;
  }
  void give(const std::string& names) {
    prj.swaths.clear();
    for (const char name : names) prj.swaths.add(row(name));
  }
  // Names in order, those that get no corrected file in brackets, a stroke for what is not present.
  std::string rows() const {
    std::string text;
    for (const Swath& s : prj.swaths) {
      const std::string name = s.path().substr(dir.path.size() + 1, 1);
      text += !s.present() ? "-" : s.corr ? name : "(" + name + ")";
    }
    return text;
  }
};
}  // namespace

TEST_F(DutSwaths, RowsStandInTheOrderOfTheFile) {
  give("cbars");
  ASSERT_TRUE(complete_DUT_swaths(dut, prj));
  EXPECT_EQ(rows(), "ab-crs");
  give("xcabrs");  // the tiling rejects it again
  ASSERT_TRUE(complete_DUT_swaths(dut, prj));
  EXPECT_EQ(rows(), "abxcrs");
  for (const Swath& s : prj.swaths) EXPECT_EQ(s.mainch, s.id);
}

TEST_F(DutSwaths, MissingSwathsComeInForTheirDisplacements) {
  give("brs");
  prj.chgrp = {};
  ASSERT_TRUE(complete_DUT_swaths(dut, prj));
  EXPECT_EQ(rows(), "(a)b-(c)rs");
  EXPECT_EQ(prj.chgrp, std::vector<int>{0});
  const auto refused = [&] { return errors_of([&] { EXPECT_FALSE(complete_DUT_swaths(dut, prj)); }); };
  give("b");
  EXPECT_TRUE(holds(refused(), "has united references: give them, too"));
  give("brs");
  remove_file(dir.path + "/c.las");
  EXPECT_TRUE(holds(refused(), "missing swath "));
}

TEST_F(DutSwaths, ASwathThatTheFileLacksIsAnError) {
  give("abd");
  EXPECT_TRUE(
      holds(errors_of([&] { EXPECT_FALSE(complete_DUT_swaths(dut, prj)); }), "d.las is not in displacement"));
}
}  // namespace veld
