#include "tests/lib/optparser/opt_support.h"

namespace veld {
TEST(OptCore, TokensAndArguments) {
  for (const char* const token : {"-a", "-x1", "-?", "-$", "-help"})
    EXPECT_TRUE(is_option_token(token)) << token;
  for (const char* const token : {"-", "", "a", "-1", "-.5", "--a", "-_"})
    EXPECT_FALSE(is_option_token(token)) << token;
}

// One integer option -nthreads / -N, range 1 to 256, default 9, asked in both modes.
TEST(OptCore, Forms) {
  const struct {
    std::vector<std::string> args;
    int64_t value;
    bool error;
    std::string message;
  } cases[] = {
      {{"-nthreads", "4"}, 4, false, ""},
      {{"-nthreads=4"}, 4, false, ""},
      {{"-N", "4"}, 4, false, ""},
      {{"-N8"}, 8, false, ""},
      {{"-N=8"}, 8, false, ""},
      {{"-nthreads", "4", "-N", "2"}, 4, false, "WARNING: option -nthreads used, short option N ignored"},
      {{"-N", "1", "-N", "2"},
       2,
       false,
       "WARNING: option -N found 2 times, last valid occurrence overrides previous ones"},
      {{"-nthreadsX", "4"}, 9, false, ""},
      {{}, 9, false, ""},
      {{"-nthreads"}, 9, true, "ERROR: option -nthreads requires 1 argument, found 0"},
      {{"-N", "2", "3"}, 2, true, "ERROR: option -N takes 1 argument, found 2, discarding last 1"},
  };
  const struct {
    const char *arg, *fault;
  } faults[] = {{"x", "invalid argument 'x', integer required"},
                {"2.5", "invalid argument '2.5', integer required"},
                {"-1", "value -1 out of range [1,256]"},
                {"99999999999999999999", "invalid argument '99999999999999999999', integer required"},
                {"", "invalid argument '', integer required"}};
  const auto ask = [](const std::vector<std::string>& args, int64_t value_then, bool error,
                      const std::string& message) {
    SCOPED_TRACE(testing::PrintToString(args));
    OptParser p = make_parser(args);
    int64_t value = 9;
    StdErr err;
    for (p.mode = 1; p.mode >= 0; p.mode--) GetOptInt(p, value, "nthreads", "N", 1, 256);
    EXPECT_EQ(err.text(), message.empty() ? "" : message + "\n");
    EXPECT_EQ(value, value_then);
    EXPECT_EQ(p.error, error);
    EXPECT_EQ(p.given, value != 9 ? std::vector<std::string>{"N|nthreads"} : std::vector<std::string>{});
  };
  for (const auto& c : cases) ask(c.args, c.value, c.error, c.message);
  for (const auto& f : faults)
    ask(*f.arg ? std::vector<std::string>{"-N", f.arg} : std::vector<std::string>{"-N="}, 9, true,
        std::string("ERROR: option -N: ") + f.fault + ", keeping default value 9");
}

TEST(OptCore, Numbers) {
  const struct {
    const char* arg;
    bool float_parse;
    double deflt, value;
    const char* message;
  } cases[] = {
      {"0.5", true, 1, 0.5, ""},
      {"0.01", true, 1, static_cast<double>(0.01f), ""},  // a bound is a bound in 32 bits too
      {"0.01", false, 1, 0.01, ""},
      {"0.5x", true, 1, 1,
       "ERROR: option -v: invalid input '0.5x', numeric required, keeping default value 1.000\n"},
      {"9", true, 1, 1,
       "ERROR: option -v: value 9.000 out of range [0.010,2.000], keeping default value 1.000\n"},
      {"nan", true, 1, 1,
       "ERROR: option -v: value nan out of range [0.010,2.000], keeping default value 1.000\n"},
      {"9", false, -1, -1,
       "ERROR: option -v: value 9.000 out of range [0.010,2.000], keeping default value (auto)\n"},
  };
  for (const auto& c : cases) {
    OptParser p = make_parser({"-v", c.arg});
    double value = c.deflt;
    StdErr err;
    GetOptDouble(p, value, "v", "", c.float_parse, 0.01, 2);
    EXPECT_EQ(err.text(), c.message);
    EXPECT_EQ(value, c.value);
  }
}

TEST(OptCore, Lists) {
  OptParser p = make_parser({"-imu", "1", "-2.5", "3", "-ch", "0", "x", "40", "-two", "1", "7", "-f", "a/b"});
  Vector<double> imu, two(2, 0.0);
  Vector<int> ch;
  std::string file = "keep";
  StdErr err;
  EXPECT_TRUE(GetOptDoubles(p, imu, "imu", "", {-10.}, {10.}, 3, 300, false));
  EXPECT_FALSE(GetOptInts(p, ch, "ch", "", 0, 31, 1, 32));
  EXPECT_FALSE(GetOptDoubles(p, two, "two", "", {0., 0.}, {5., 5.}));
  EXPECT_FALSE(GetOptFileName(p, file, "f", ""));
  EXPECT_EQ(
      err.text(),
      "ERROR: option -ch, argument 2: invalid argument 'x', integer required\n"
      "ERROR: option -ch, argument 3: value 40 out of range [0,31]\n"
      "ERROR: option -two, argument 2: value 7.000 out of range [0.000,5.000], keeping default value 0.000\n"
      "ERROR: option -f: invalid file name 'a/b' (illegal characters), keeping keep\n");
  ASSERT_EQ(imu.size(), 3u);
  EXPECT_EQ(imu(1), -2.5);
  EXPECT_TRUE(ch.empty());
  EXPECT_EQ(two(0), 0);
  EXPECT_EQ(p.given, std::vector<std::string>{"imu"});
}

TEST(OptCore, OccurrencesKeepTheirOrder) {
  OptParser p = make_parser({"-i", "a", "b", "-x", "-i", "c"});
  p.mode = 0;
  const auto found = GetOptAll(p, "input", "i", 1, 256, true, true);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].args, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(found[1].pos, 4);
  EXPECT_EQ(p.last_match, 4);
}

TEST(OptCore, WhatIsLeftIsNamed) {
  OptParser p = make_parser({"stray", "-foo", "1", "-ok", "-bar"});
  StdErr err;
  EXPECT_TRUE(GetOptFlag(p, "ok", ""));
  EXPECT_FALSE(CheckUnknownOpt(p));
  EXPECT_EQ(err.text(), "ERROR: unknown options: -foo -bar \nERROR: extra arguments: stray 1 \n");
}

TEST(OptCoreDeathTest, AShortNameIsAskedOnce) {
  OptParser p = make_parser({});
  p.mode = 0;
  GetOptFlag(p, "one", "o");
  EXPECT_DEATH(GetOptFlag(p, "other", "o"), "\\(OPTION PARSING\\) single -o repeated");
}
}  // namespace veld
