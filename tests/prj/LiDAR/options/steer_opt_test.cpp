#include "prj/LiDAR/options/steer_opt.h"

#include "tests/prj/LiDAR/options/read_support.h"

namespace veld {
TEST(SteerOpt, CalibrationString) {
  const struct {
    const char* arg;
    bool uav;
    const char* flags;  // x y z w p k 1..7
  } cases[] = {
      {"", false, "0001110111110"},   {"", true, "0001110010000"},     {"L", false, "1110000000000"},
      {"B", false, "0001110000000"},  {"I", false, "0000001111111"},   {"yB", false, "0101110000000"},
      {"0B", false, "0000000000000"}, {"xk7", false, "1000010000001"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arg);
    InvParam inv;
    errors_of([&] { EXPECT_TRUE(parse_calib_opt(c.arg, c.uav, inv)); });
    std::string flags;
    for (const bool f : {inv.Fx, inv.Fy, inv.Fz, inv.Fw, inv.Fp, inv.Fk}) flags += f ? '1' : '0';
    for (int k = 0; k < 7; k++) flags += inv.FE[k] ? '1' : '0';
    EXPECT_EQ(flags, c.flags);
  }
}

TEST(SteerOpt, DriftString) {
  DriftOpt d;
  EXPECT_TRUE(parse_drift_opt("con", d));
  EXPECT_TRUE(d.con);
  EXPECT_TRUE(parse_drift_opt("auto", d));
  EXPECT_TRUE(d.auto_dt && !d.con);
  EXPECT_TRUE(parse_drift_opt("0", d));
  EXPECT_TRUE(d.none);
  EXPECT_TRUE(parse_drift_opt("2.5", d));
  EXPECT_EQ(d.dt, 2.5);
}

TEST(SteerOpt, DriftComponents) {
  InvParam inv;
  EXPECT_TRUE(parse_drift_comp_opt("zA", inv));
  EXPECT_TRUE(!inv.Ftx && !inv.Fty && inv.Ftz && inv.Faw && inv.Fap && inv.Fak);
  EXPECT_TRUE(parse_drift_comp_opt("0", inv));
  EXPECT_FALSE(inv.Ftz || inv.Faw);
}

TEST(SteerOpt, OutputName) {
  testing::internal::CaptureStdout();
  OutputName out;
  EXPECT_TRUE(parse_output_name("*", out));
  EXPECT_EQ(out.prefix + "|" + out.suffix + "|" + out.ext, "||");
  EXPECT_TRUE(parse_output_name("p_*_c.LAZ", out));
  EXPECT_EQ(out.prefix + "|" + out.suffix, "p_|_c");
  for (const char* const bad : {"plain.las", "a/*.las", "*:.las", "*|.las", "*_*.las"})
    EXPECT_EQ(errors_of([&] { EXPECT_FALSE(parse_output_name(bad, out)); }),
              "ERROR: invalid output format, prefix*suffix.ext required, no illegal characters\n")
        << bad;
  EXPECT_EQ(errors_of([&] { EXPECT_FALSE(parse_output_name("*.txt", out)); }),
            "ERROR: output format extension not supported\n");
  Options o;
  o.correction.lax = o.correction.lax_append = true;
  o.oplz = 1;
  o.correction.tile.size = 100;
  show_output_name({"p_", "_c", ".las"}, o);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "LiDAR output: 'p_*_c.las' + PLZ + LAX(append) [TILES] \n");
}
}  // namespace veld
