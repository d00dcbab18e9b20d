#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "prj/LiDAR/options/help.h"
#include "prj/LiDAR/options/option_text.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
std::string value_text(const OptTarget& target) {
  std::ostringstream text;
  text.precision(9);
  std::visit(
      [&text](const auto* value) {
        using T = std::decay_t<decltype(*value)>;
        if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::string>)
          text << *value;
        else
          for (const auto& element : *value) text << element << ' ';
      },
      target);
  return text.str();
}

std::string number(double x) {
  std::ostringstream text;
  text.precision(15);
  text << x;
  return text.str();
}

bool is_number(OptKind kind) {
  return kind == OptKind::boolean || kind == OptKind::integer || kind == OptKind::real ||
         kind == OptKind::intlist || kind == OptKind::reallist;
}
bool is_list(OptKind kind) {
  return kind == OptKind::textlist || kind == OptKind::intlist || kind == OptKind::reallist;
}

// A line of the list of options that is kept by hand beside the table.
struct Known {
  std::string abbr, kind, lo, hi, nmin, nmax, deflt;  // "-": none, or not fixed
};

const std::map<std::string, Known>& known_options() {
  static const std::map<std::string, Known> list = [] {
    std::map<std::string, Known> options;
    std::ifstream file(OPTION_LIST_PATH);
    for (std::string line; std::getline(file, line);) {
      std::istringstream words(line);
      std::string name;
      Known k;
      if (line.empty() || line[0] == '#') continue;
      words >> name >> k.abbr >> k.kind >> k.lo >> k.hi >> k.nmin >> k.nmax >> std::ws;
      std::getline(words, k.deflt);
      EXPECT_TRUE(options.emplace(name, k).second) << name;
    }
    return options;
  }();
  return list;
}

std::string kind_of(const OptRow& row) {
  static const std::map<OptKind, const char*> names = {
      {OptKind::flag, "flag"},           {OptKind::boolean, "int"},    {OptKind::integer, "int"},
      {OptKind::real, "real"},           {OptKind::text, "text"},      {OptKind::filename, "filename"},
      {OptKind::directory, "directory"}, {OptKind::textlist, "texts"}, {OptKind::intlist, "ints"},
      {OptKind::reallist, "reals"}};
  return names.at(row.kind);
}

// Option tokens in long or short form with n equal arguments.
Args form(const OptRow& row, bool abbreviated, const std::string& arg, int n) {
  Args args{std::string("-") + (abbreviated ? row.abbr : row.name)};
  args.insert(args.end(), static_cast<size_t>(n), arg);
  return args;
}

// What the target holds after n arguments of this text.
std::string expected(const OptRow& row, const std::string& arg, int n) {
  const bool word_of_help = std::string(row.name) == "help";
  if (row.kind == OptKind::flag || word_of_help || (row.kind == OptKind::boolean && n == 0)) return "1";
  if (row.kind == OptKind::intlist && n == 0) return "1 ";  // standing alone
  if (row.kind == OptKind::real && std::holds_alternative<float*>(row.target)) {
    const float value = std::strtof(arg.c_str(), nullptr);
    return value_text(OptTarget(const_cast<float*>(&value)));
  }
  std::string text;
  for (int i = 0; i < n; i++) text += arg + (is_list(row.kind) ? " " : "");
  return text;
}

// Calls check(row, abbreviated) for every row in each of its forms.
template <typename F>
void for_each_form(F&& check) {
  Options o;
  for (const OptRow& row : option_rows(o))
    for (const bool abbreviated : {false, true}) {
      if (abbreviated && row.abbr[0] == '\0') continue;
      SCOPED_TRACE(std::string("-") + (abbreviated ? row.abbr : row.name));
      check(row, abbreviated);
    }
}

// The value of an option after reading, by its name, as the rows of cl point into cl.
std::string value_of(ReadResult& r, const char* name) {
  for (const OptRow& row : option_rows(r.cl.o))
    if (std::string(row.name) == name) return value_text(row.target);
  return "?";
}
}  // namespace

// The table against the list: names, kinds, bounds and defaults that scripts of users rely on; the defaults that the
// help tells are those of the fields.
TEST(OptionTable, RowsAreThoseOfTheListKeptByHand) {
  Options o;
  o.tuning.NTHREADS = o.tuning.NTHREADSIO = 0;
  EXPECT_EQ(known_options().size(), option_rows(o).size());
  std::set<std::string> names;
  for (const OptRow& row : option_rows(o)) {
    SCOPED_TRACE(row.name);
    ASSERT_EQ(known_options().count(row.name), 1u);
    EXPECT_TRUE(names.insert(row.name).second);
    EXPECT_TRUE(row.abbr[0] == '\0' || names.insert(row.abbr).second);
    const Known& k = known_options().at(row.name);
    EXPECT_EQ(row.abbr, k.abbr == "-" ? "" : k.abbr);
    EXPECT_EQ(kind_of(row), k.kind);
    EXPECT_EQ(row.kind == OptKind::boolean, k.kind == "int" && k.lo == "0" && k.hi == "1");
    EXPECT_EQ(k.lo == "-" ? "-" : number(row.lo), k.lo);
    EXPECT_EQ(k.hi == "-" ? "-" : number(row.hi), k.hi);
    EXPECT_EQ(k.nmin == "-" ? "-" : std::to_string(row.nmin), k.nmin);
    EXPECT_EQ(k.nmax == "-" ? "-" : std::to_string(row.nmax), k.nmax);
    if (k.deflt == "-" && is_number(row.kind) && !is_list(row.kind)) continue;  // by the machine
    std::string value = value_text(row.target);
    if (!value.empty() && value.back() == ' ') value.pop_back();
    if (row.kind == OptKind::real)
      EXPECT_EQ(std::stof(value), std::stof(k.deflt));
    else
      EXPECT_EQ(value, k.deflt == "-" ? "" : k.deflt);
    const std::string help = row.deflt;
    if (is_list(row.kind) || row.kind == OptKind::directory || help == "(auto)") continue;
    if (row.kind == OptKind::real)
      EXPECT_EQ(std::stof(help), std::stof(value));
    else
      EXPECT_EQ(help, row.kind == OptKind::flag ? "off" : value.empty() ? "empty" : value);
  }
}

TEST(OptionTable, EveryOptionTakesItsBounds) {
  for_each_form([](const OptRow& row, bool abbreviated) {
    std::vector<std::string> values;
    if (is_number(row.kind))
      values = {number(row.lo), number(row.hi)};
    else if (row.kind == OptKind::directory)
      values = {"/"};
    else
      values = {"word"};
    for (const std::string& value : values)
      for (const int n : {row.nmin, row.nmax}) {
        ReadResult r;
        read_into(r, form(row, abbreviated, value, n));
        EXPECT_TRUE(r.ok) << value << " x " << n << ": " << r.errors;
        EXPECT_EQ(r.errors, "");
        EXPECT_EQ(r.cl.given, GivenSet{row.name});
        EXPECT_EQ(value_of(r, row.name), expected(row, value, n));
      }
  });
}

TEST(OptionTable, BeyondTheBoundsIsRefusedInTheWordsOfItsType) {
  for_each_form([](const OptRow& row, bool abbreviated) {
    const std::string key = std::string("option -") + (abbreviated ? row.abbr : row.name);
    const auto refused = [&](const std::string& value, int n, const std::string& words) {
      ReadResult r;
      read_into(r, form(row, abbreviated, value, n));
      EXPECT_FALSE(r.ok) << value;
      EXPECT_EQ(r.errors.rfind("ERROR: " + key, 0), 0u) << r.errors;
      EXPECT_TRUE(holds(r.errors, words)) << r.errors;
      EXPECT_TRUE(holds(r.errors, "ERROR: stopping due to option argument errors: use -h for help\n"));
      const bool surplus = words == " takes ";  // is discarded, what stands before it is taken
      if (!is_list(row.kind) && !surplus) {
        ReadResult untouched;
        read_into(untouched, {});
        EXPECT_EQ(value_of(r, row.name), value_of(untouched, row.name));
      }
    };
    const int n = std::max(row.nmin, 1);
    switch (row.kind) {
      case OptKind::boolean:
        refused("-1", 1, "boolean (0 or 1) required, keeping default value");
        refused("2", 1, "boolean (0 or 1) required");
        break;
      case OptKind::integer:
      case OptKind::intlist:
        refused(number(row.lo - 1), n, " out of range [");
        refused(number(row.hi + 1), n, " out of range [");
        refused("1x", n, "integer required");
        break;
      case OptKind::real:
      case OptKind::reallist:
        refused(number(row.lo - std::fabs(row.lo) * 0.01 - 0.01), n, " out of range [");
        refused(number(row.hi + std::fabs(row.hi) * 0.01 + 0.01), n, " out of range [");
        refused("word", n, "numeric required");
        break;
      case OptKind::filename:
        refused("a*b", 1, "(illegal characters), keeping");
        break;
      case OptKind::directory:
        refused("/no/such/place", 1, ": invalid directory '/no/such/place', keeping");
        break;
      default:
        break;
    }
    if (row.nmin > 0) refused("1", row.nmin - 1, " requires ");
    if (std::string(row.name) != "help")
      refused(row.kind == OptKind::directory ? "/" : "0", row.nmax + 1, " takes ");
  });
}

TEST(OptionTable, HelpHasAllAndFinds) {
  const std::string all = help_text("");
  Options o;
  for (const OptRow& row : option_rows(o)) {
    EXPECT_TRUE(holds(all, std::string("  -") + row.name + " ")) << row.name;
    EXPECT_TRUE(holds(all, row.meaning)) << row.name;
  }
  EXPECT_TRUE(holds(all, "veldrunner -clear_log -c\n"));
  EXPECT_TRUE(holds(all, "\nOPTIONS AND ARGUMENTS\n"));
  const std::string some = help_text("NTHREADS");
  EXPECT_TRUE(holds(some, "-nthreads -N"));
  EXPECT_FALSE(holds(some, "-drift"));
  EXPECT_TRUE(holds(help_text("zzz"), "no option matches 'zzz'"));
}

TEST(ReadOptions, GroupsKeepTheOrderOfTheCommandLine) {
  ReadResult r;
  read_into(r, "-l x.txt -i a b -l y.txt -r f -po p -po q");
  ASSERT_TRUE(r.ok) << r.errors;
  EXPECT_EQ(r.errors, "");
  const InputArgs& in = r.cl.in;
  ASSERT_EQ(in.mobile.size(), 3u);
  EXPECT_TRUE(in.mobile[0].list);
  EXPECT_EQ(in.mobile[1].args, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(in.mobile[2].args[0], "y.txt");
  EXPECT_EQ(in.fixed.size(), 1u);
  EXPECT_EQ(in.po.size(), 2u);
}

TEST(ReadOptions, ALetterTooFewOrSwappedIsNoShortOption) {
  const struct {
    const char *given, *said;
  } cases[] = {
      {"-algin", "ERROR: unknown options: -algin (did you mean -align?) \n"},
      {"-tempdir", "ERROR: unknown options: -tempdir (did you mean -tmpdir?) \n"},
      {"-inputs", "ERROR: unknown options: -inputs (did you mean -input?) \n"},
      {"-quiet1", "ERROR: unknown options: -quiet1 (did you mean -quiet?) \n"},
      {"-zzzzzz", "ERROR: unknown options: -zzzzzz \n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.given);
    ReadResult r;
    read_into(r, {"-utm", "33", c.given});
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.errors.substr(0, std::string(c.said).size()), c.said) << r.errors;
  }
}
}  // namespace veld
