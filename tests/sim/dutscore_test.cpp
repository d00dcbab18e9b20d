// Displacements of planted errors: the score must be what was planted.
#include "sim/dutscore.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>

#include "tests/support/temp_dir.h"

namespace veld {
namespace {
// Errors of a swath over 100 m x 100 m: linear in place and height.
dxyz planted_error(const dxyz& p, double sign) {
  return sign * dxyz{0.20 + 0.002 * (p.x - 50), -0.10 + 0.001 * (p.y - 50), 0.03 + 0.002 * (p.z - 5)};
}

// Points every half metre; a house for x < 20, trees for x > 80.
ErrorField field(double sign) {
  Vector<dxyz> observed(40000), truth(40000);
  std::vector<uint8_t> cls(40000);
  for (int i = 0; i < 40000; i++) {
    const double x = 0.5 * (i % 200), y = 0.5 * (i / 200);
    const double z = x < 20 ? 8 : 5 + std::sin(0.3 * x) * std::cos(0.2 * y);
    observed(i) = {x, y, z};
    truth(i) = observed(i) - planted_error(observed(i), sign);
    cls[static_cast<size_t>(i)] = x < 20 ? 6 : x > 80 ? 5 : 2;
  }
  return ErrorField(observed, truth, cls);
}

TEST(DutScore, FindsWhatWasPlanted) {
  const ErrorField first = field(1), second = field(-1);
  DutFile dut;
  dut.swaths = {"a", "b"};
  dut.pairs = {{0, 1, 0}};
  for (int i = 0; i < 100; i++) {  // open land; every tenth vector is wrong by 0.5 m and says it is sure
    const dxyz p{30 + 4.0 * (i % 10), 30 + 4.0 * (i / 10), 5};
    const dxyz e1 = planted_error(p, 1), d = e1 - planted_error(p, -1);
    const bool wrong = i % 10 == 0;
    const double unc = wrong ? 0.001 : 0.01;
    dut.vectors.push_back({p, d + dxyz{wrong ? 0.5 : 0.01, 0, 0}, {unc, unc, unc}, i % 4 != 0, 0});
  }
  dut.vectors.push_back({{10, 50, 8}, {0, 0, 0}, {1, 1, 1}, true, 0});
  dut.vectors.push_back({{90, 50, 5}, {0, 0, 0}, {1, 1, 1}, true, 0});
  dut.vectors.push_back({{300, 50, 5}, {0, 0, 0}, {1, 1, 1}, true, 0});
  const DutScore score = score_dut(dut, {&first, &second}, 6, 0.1);
  const VectorStat& open = score.pairs[0][static_cast<size_t>(Land::open)];
  EXPECT_EQ(open.n, 100);
  EXPECT_EQ(open.ntimed, 75);
  EXPECT_EQ(score.all[static_cast<size_t>(Land::built)].n, 1);
  EXPECT_EQ(score.all[static_cast<size_t>(Land::forest)].n, 1);
  EXPECT_EQ(score.nwithout, 1);
  const double tol = 1e-3;  // swath 1 is looked up where swath 2 sees the place, 0.4 m off
  EXPECT_NEAR(open.median.x, 0.01, tol);
  EXPECT_NEAR(open.median.y, 0, tol);
  EXPECT_NEAR(open.median.z, 0, tol);
  EXPECT_NEAR(open.weighted.x, (10 * 0.5 * 1e6 + 90 * 0.01 * 1e4) / (10 * 1e6 + 90 * 1e4), 2 * tol);
  EXPECT_NEAR(open.spread.x, 0, tol);
  EXPECT_NEAR(open.gross.x, 0.1, 1e-9);
  EXPECT_NEAR(open.gross.z, 0, 1e-9);
  EXPECT_NEAR(open.ratio50.x, 1, 0.1);
  EXPECT_NEAR(open.ratio99.x, 500, 5);
}

const char* const INDEX =
    "#[IDX-23.05.15]\n"
    "NSwaths GridSize Level Dim Unit\n"
    "2 8 7 3 0 0 0 1 1 2 2 1 1 2 2 0.1\n\n"
    "#S 0 1 0 1 0 1 0 0 100.5 200.5 /data/my flight/L01.las\n"
    "#S 1 1 0 1 0 1 0 0 300.5 400.5 L02.laz\n\n"
    "#P 0 0 1 1\n\n"
    "#N 1 1\n";

struct FileCase {
  const char* what;
  uint32_t magic;
  uint16_t pair;
  std::string index;
  bool ok;
};

TEST(DutFile, ReadsRecordsAndRefusesOtherFiles) {
  const std::string index = INDEX;
  std::string feet = index, missing = index;
  feet.replace(feet.find(" 3 0 "), 5, " 3 1 ");
  missing.replace(missing.find("#P 0 0 1"), 8, "#P 0 0 2");
  const FileCase cases[] = {{"good", 0x471EFF39, 0, index, true},
                            {"other file", 0x471EFF38, 0, index, false},
                            {"pair that is not listed", 0x471EFF39, 1, index, false},
                            {"feet", 0x471EFF39, 0, feet, false},
                            {"swath that is not listed", 0x471EFF39, 0, missing, false}};
  for (const FileCase& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    std::ofstream(dir.path + "/p_idx.log") << c.index;
    uint8_t bytes[84] = {};
    const auto put = [&](size_t at, auto value) { std::memcpy(bytes + at, &value, sizeof value); };
    put(0, c.magic);
    put(4, uint32_t{0x0003378A});
    put(20, int32_t{500123});
    put(24, int32_t{5300456});
    const float numbers[7] = {210.5F, 0.1F, -0.2F, 0.3F, 0.01F, 0.02F, 0.03F};
    std::memcpy(bytes + 28, numbers, sizeof numbers);
    put(60, 150.0);
    put(68, -2e307);
    put(76, c.pair);
    std::ofstream(dir.path + "/p.dut", std::ios::binary).write(reinterpret_cast<const char*>(bytes), 84);
    DutFile dut;
    ASSERT_EQ(read_dut(dir.path + "/p.dut", dut), c.ok);
    if (!c.ok) continue;
    EXPECT_EQ(dut.swaths, (std::vector<std::string>{"L01", "L02"}));
    ASSERT_EQ(dut.vectors.size(), 1u);
    const DutVector& v = dut.vectors[0];
    EXPECT_EQ(v.p, (dxyz{500123, 5300456, 210.5}));
    EXPECT_NEAR(v.d.y, -0.2, 1e-6);
    EXPECT_NEAR(v.unc.z, 0.03, 1e-6);
    EXPECT_FALSE(v.timed);
  }
}
}  // namespace
}  // namespace veld
