// What a pair of two lines stands for when pairs of their other channels were skipped.
#include "prj/LiDAR/VR2proc/inv_input.h"

#include <gtest/gtest.h>

namespace veld {
namespace {
struct TestPair {
  int sw1, sw2;
  uint64_t n;
  uint64_t nfull;  // expected
};
}  // namespace

TEST(SetNfull, PairsStandForTheSkippedOnesOfTheirLines) {
  // Two lines of two channels (0 and 1, 2 and 3), one line of a single channel (4), a reference (5).
  const int main[6] = {0, 0, 2, 2, 4, 5};
  SwathVector<InvSwath> swaths;
  for (int i = 0; i < 6; i++) {
    InvSwath s;
    s.mainch = SwathId(main[i]);
    s.fl = i < 5 ? 0 : -1;
    s.fixed = i == 5;
    swaths.push_back(s);
  }
  const struct {
    const char* what;
    std::vector<TestPair> pairs;
  } cases[] = {
      {"main channels only: one of two", {{0, 2, 100, 200}, {0, 1, 70, 70}, {2, 3, 70, 70}}},
      {"all pairs are there", {{0, 2, 10, 10}, {0, 3, 10, 10}, {1, 2, 10, 10}, {1, 3, 10, 10}}},
      {"one is missing: those that shared a swath with it", {{0, 2, 10, 10}, {0, 3, 10, 20}, {1, 2, 10, 20}}},
      {"the single channel crosses both", {{0, 4, 10, 20}}},
      {"a reference sees both channels", {{2, 5, 10, 20}, {4, 5, 10, 10}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<InvPair> pairs;
    for (const TestPair& t : c.pairs) {
      InvPair p;
      p.sw1 = SwathId(t.sw1);
      p.sw2 = SwathId(t.sw2);
      p.P.resize(t.n);
      pairs.push_back(std::move(p));
    }
    set_nfull(swaths, pairs);
    for (size_t k = 0; k < pairs.size(); k++) EXPECT_EQ(pairs[k].nfull, c.pairs[k].nfull) << k;
  }
}
}  // namespace veld
