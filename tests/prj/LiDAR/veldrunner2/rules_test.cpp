#include "prj/LiDAR/veldrunner2/rules.h"

#include <algorithm>

#include "tests/prj/LiDAR/veldrunner2/read_support.h"

namespace {
Options derived(const std::vector<std::string>& args) {
  ReadResult r;
  read_into(r, args);
  EXPECT_TRUE(r.ok) << r.errors;
  derive_defaults(r.cl.o, r.cl.given);
  return r.cl.o;
}

std::string checked(const std::vector<std::string>& args) {
  ReadResult r;
  read_into(r, args);
  EXPECT_TRUE(r.ok) << r.errors;
  derive_defaults(r.cl.o, r.cl.given);
  return errors_of([&r] {
    const bool ok = check_exclusions(r.cl.o, r.cl.given);
    const bool available = check_available(r.cl.o, r.cl.given);
    EXPECT_FALSE(ok && available);
  });
}
}  // namespace

TEST(Rules, DerivedDefaults) {
  EXPECT_EQ(derived({"-uav"}).dt_range, 10);
  EXPECT_EQ(derived({"-uav", "-dt_range", "20"}).dt_range, 20);
  EXPECT_EQ(derived({"-uav"}).dev_range, 0.5f);
  EXPECT_EQ(derived({"-uav", "-dev_max", "1"}).dev_max, 1.0f);
  EXPECT_EQ(derived({"-nthreads", "1"}).nthreads_io, 1);
  EXPECT_EQ(derived({"-dz_mix"}).dz_color, 2);
  EXPECT_EQ(derived({"-dz_mix", "-dz_color", "5"}).dz_color, 5);
  EXPECT_EQ(derived({"-scan"}).map, 0);
  EXPECT_EQ(derived({"-scan"}).full, 1);
  EXPECT_EQ(derived({"-dz_range", "2"}).dz16_range, 2.0f);
  EXPECT_EQ(derived({"-dz16_range", "3"}).dz_range, 3.0f);
  EXPECT_EQ(derived({"-dz_range", "1", "-dz_range_1", "0.5"}).dz_range_1, 0.5f);
  EXPECT_EQ(derived({"-dz_range", "1"}).dz_range_1, 1.0f);
  EXPECT_EQ(derived({"-v_range", "2"}).v_range_1, 2.0f);
  const Options calib = derived({"-calib", "name", "-dpoc", "A", "-boost", "4"});
  EXPECT_EQ(calib.corr, std::vector<std::string>{"name"});
  EXPECT_EQ(calib.dpoc, "0");
  EXPECT_TRUE(calib.nil);
  EXPECT_EQ(calib.unc_adj, 1);
  EXPECT_EQ(calib.reg_reduce, 1);
  EXPECT_EQ(calib.boost, 4);
}

TEST(Rules, ExclusionsHaveTheirWords) {
  const struct {
    std::vector<std::string> args;
    const char* message;
  } cases[] = {
      {{"-corr", "x", "-reg"}, "commands {-reg -corr -align -calib -scan -fastqc} are mutually exclusive"},
      {{"-align", "-scan"}, "commands {-reg -corr -align -calib -scan -fastqc} are mutually exclusive"},
      {{"-calib", "-align"}, "commands {-reg -corr -align -calib -scan -fastqc} are mutually exclusive"},
      {{"-smap", "-zmap"}, "options {-smap -zmap} are mutually exclusive"},
      {{"-oa", "-oi"}, "options {-oa -oi} are mutually exclusive"},
      {{"-opls", "-oplz"}, "-opls and -oplz are mutually exclusive"},
      {{"-feet", "-metre"}, "only one unit option can be used"},
      {{"-dz_range", "5", "-dz16_range", "2"}, "DZ_range>DZ16_range not allowed"},
      {{"-align2", "-dz_range_1", "5", "-dz16_range_1", "2"}, "DZ_range_1>DZ16_range_1 not allowed"},
      {{"-corr"},
       "option -corr requires DUT files, manual corrections (-shift_corr, -calib_corr, -shift, -gcp) or "
       "time/angle "
       "update"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(checked(c.args).rfind(std::string("ERROR: ") + c.message + "\n", 0), 0u) << c.message;
}

// Defaults must never stop a run, nor any option that the program knows to do.
TEST(Rules, PlainRunsAreAvailable) {
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"-i", "a"},
                                             {"-scan", "-i", "a"},
                                             {"-align", "-i", "a", "-po", "b", "-utm", "33"},
                                             {"-calib", "-i", "a"},
                                             {"-corr", "x", "-D", "10", "-A"},
                                             {"-reg", "-map", "0", "-N", "2"}}) {
    ReadResult r;
    read_into(r, args);
    derive_defaults(r.cl.o, r.cl.given);
    EXPECT_EQ(errors_of([&r] {
                EXPECT_TRUE(check_exclusions(r.cl.o, r.cl.given));
                EXPECT_TRUE(check_available(r.cl.o, r.cl.given));
              }),
              "");
  }
}

// Whatever option is refused as not available is the one that was given.
TEST(Rules, WhatIsNotAvailableIsNamed) {
  Options defaults;
  int nrefused = 0;
  for (const OptRow& row : option_rows(defaults)) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> args{std::string("-") + row.name};
    const std::string value = row.kind == OptKind::boolean ? "1"
                              : row.kind == OptKind::integer || row.kind == OptKind::intlist
                                  ? std::to_string(static_cast<int64_t>(row.hi))
                              : row.kind == OptKind::real || row.kind == OptKind::reallist
                                  ? std::to_string(std::min(row.hi, 20.0))
                              : row.kind == OptKind::directory ? "/"
                                                               : "word";
    args.insert(args.end(), static_cast<size_t>(row.kind == OptKind::flag ? 0 : std::max(row.nmin, 1)),
                value);
    ReadResult r;
    read_into(r, args);
    ASSERT_TRUE(r.ok) << r.errors;
    derive_defaults(r.cl.o, r.cl.given);
    bool ok = false;
    const std::string text = errors_of([&] { ok = check_available(r.cl.o, r.cl.given); });
    EXPECT_EQ(text, ok ? "" : std::string("ERROR: option -") + row.name + " is not available yet\n");
    nrefused += !ok;
  }
  EXPECT_GT(nrefused, 10);
}
