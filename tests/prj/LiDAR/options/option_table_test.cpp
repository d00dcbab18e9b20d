#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "prj/LiDAR/options/help.h"
#include "prj/LiDAR/options/option_text.h"
#include "tests/prj/LiDAR/options/read_support.h"

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

// The row with the bounds of that list, so that a wrong bound of the table shows.
OptRow with_known_bounds(OptRow row) {
  const Known& k = known_options().at(row.name);
  if (k.lo != "-") row.lo = std::stod(k.lo), row.hi = std::stod(k.hi);
  if (k.nmin != "-") row.nmin = std::stoi(k.nmin), row.nmax = std::stoi(k.nmax);
  return row;
}

std::string kind_of(const OptRow& row) {
  switch (row.kind) {
    case OptKind::flag:
      return "flag";
    case OptKind::boolean:
    case OptKind::integer:
      return "int";
    case OptKind::real:
      return "real";
    case OptKind::text:
      return "text";
    case OptKind::filename:
      return "filename";
    case OptKind::directory:
      return "directory";
    case OptKind::textlist:
      return "texts";
    case OptKind::intlist:
      return "ints";
    case OptKind::reallist:
      return "reals";
  }
  return "";
}

// Option tokens in long or short form with n equal arguments.
std::vector<std::string> form(const OptRow& row, bool abbreviated, const std::string& arg, int n) {
  std::vector<std::string> args{std::string("-") + (abbreviated ? row.abbr : row.name)};
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
      check(with_known_bounds(row), abbreviated);
    }
}

// The value of an option after reading, by its name, as the rows of cl point into cl.
std::string value_of(ReadResult& r, const char* name) {
  for (const OptRow& row : option_rows(r.cl.o))
    if (std::string(row.name) == name) return value_text(row.target);
  return "?";
}
}  // namespace

TEST(OptionTable, NamesAreUniqueAndDefaultsAreTheFields) {
  Options o;
  o.tuning.NTHREADS = default_nthreads();
  o.tuning.NTHREADSIO = default_nthreads_io();
  std::set<std::string> names;
  const std::vector<OptRow> rows = option_rows(o);
  EXPECT_EQ(rows.size(), known_options().size());
  for (const OptRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_TRUE(names.insert(row.name).second);
    if (row.abbr[0] != '\0') {
      EXPECT_TRUE(names.insert(row.abbr).second);
      EXPECT_EQ(row.abbr[1], '\0');
    }
    EXPECT_TRUE(is_option_token(std::string("-") + row.name));
    EXPECT_GT(std::string(row.meaning).size(), 5u);
    EXPECT_LE(row.lo, row.hi);
    EXPECT_LE(row.nmin, row.nmax);
    const bool by_machine = std::string(row.name).rfind("nthreads", 0) == 0;
    const std::string value = row.kind == OptKind::flag ? "off" : value_text(row.target);
    const std::string help = row.deflt;
    if (is_list(row.kind) || row.kind == OptKind::directory || by_machine || help == "(auto)") continue;
    if (row.kind == OptKind::real)
      EXPECT_EQ(std::stof(help), std::stof(value));
    else
      EXPECT_EQ(help, value.empty() ? "empty" : value);
  }
}

// The table against the list: names, kinds, bounds and defaults that scripts of users rely on.
TEST(OptionTable, RowsAreThoseOfTheListKeptByHand) {
  Options o;
  o.tuning.NTHREADS = o.tuning.NTHREADSIO = 0;
  EXPECT_EQ(known_options().size(), option_rows(o).size());
  for (const OptRow& row : option_rows(o)) {
    SCOPED_TRACE(row.name);
    ASSERT_EQ(known_options().count(row.name), 1u);
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
      EXPECT_NE(r.errors.find(words), std::string::npos) << r.errors;
      EXPECT_NE(r.errors.find("ERROR: stopping due to option argument errors: use -h for help\n"),
                std::string::npos);
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

namespace {
// Reads the option with one value in all its places; the text that a refusal gives.
bool takes(const OptRow& row, bool abbreviated, const std::string& value, std::string& errors) {
  ReadResult r;
  read_into(r, form(row, abbreviated, value, row.kind == OptKind::flag ? 0 : std::max(row.nmin, 1)));
  errors = r.errors.substr(0, r.errors.find('\n'));
  return r.ok;
}

// Values at the bounds of the option and beyond them (or, without bounds, of a wrong form).
void edge_values(const OptRow& row, std::vector<std::string>& inside, std::vector<std::string>& outside) {
  inside = {"word"};
  if (row.kind == OptKind::filename) outside = {"a*b"};
  if (row.kind == OptKind::directory) inside = {"/"}, outside = {"/no/such/place"};
  if (!is_number(row.kind)) return;
  const bool whole = row.kind != OptKind::real && row.kind != OptKind::reallist;
  const auto step = [whole](double x) { return whole ? 1.0 : std::fabs(x) * 0.01 + 0.01; };
  inside = {number(row.lo), number(row.hi)};
  outside = {number(row.lo - step(row.lo)), number(row.hi + step(row.hi)), "word"};
}
}  // namespace

// The table for people: every option with what this build does with it.
TEST(OptionTable, IsWrittenWithItsProof) {
  const std::string help = help_text("");
  std::ofstream table(OPTION_TABLE_PATH);
  table << "option\tshort name\targument\tdefault\tlong parsed\tshort parsed\tbounds taken\trefused "
           "beyond\tin help\tmessage "
           "beyond\n";
  Options o;
  int nrows = 0;
  for (const OptRow& of_table : option_rows(o)) {
    const OptRow row = with_known_bounds(of_table);
    SCOPED_TRACE(row.name);
    std::vector<std::string> inside, outside;
    edge_values(row, inside, outside);
    const bool has_short = row.abbr[0] != '\0';
    std::string errors, message;
    bool parsed[2] = {true, true}, refused = true;
    for (const bool abbreviated : {false, true}) {
      if (abbreviated && !has_short) continue;
      for (const std::string& value : inside) parsed[abbreviated] &= takes(row, abbreviated, value, errors);
      for (const std::string& value : outside) {
        refused &= !takes(row, abbreviated, value, errors);
        if (message.empty()) message = errors;
      }
    }
    const bool in_help = help.find(std::string("  -") + row.name + " ") != std::string::npos;
    EXPECT_TRUE(parsed[0] && parsed[1] && refused && in_help);
    table << '-' << row.name << '\t' << (has_short ? std::string("-") + row.abbr : "") << '\t'
          << argument_text(row) << '\t' << row.deflt << '\t' << (parsed[0] ? "yes" : "NO") << '\t'
          << (!has_short  ? ""
              : parsed[1] ? "yes"
                          : "NO")
          << '\t' << (is_number(row.kind) ? number(row.lo) + " and " + number(row.hi) : "none") << '\t'
          << (outside.empty() ? ""
              : refused       ? "yes"
                              : "NO")
          << '\t' << (in_help ? "yes" : "NO") << '\t' << message << '\n';
    nrows++;
  }
  EXPECT_EQ(nrows, static_cast<int>(known_options().size()));
  EXPECT_TRUE(table.good());
}

TEST(OptionTable, HelpHasAllAndFinds) {
  const std::string all = help_text("");
  Options o;
  for (const OptRow& row : option_rows(o)) {
    EXPECT_NE(all.find(std::string("  -") + row.name + " "), std::string::npos) << row.name;
    EXPECT_NE(all.find(row.meaning), std::string::npos) << row.name;
  }
  EXPECT_NE(all.find("veldrunner -clear_log -c\n"), std::string::npos);
  EXPECT_NE(all.find("\nOPTIONS AND ARGUMENTS\n"), std::string::npos);
  const std::string some = help_text("NTHREADS");
  EXPECT_NE(some.find("-nthreads -N"), std::string::npos);
  EXPECT_EQ(some.find("-drift"), std::string::npos);
  EXPECT_NE(help_text("zzz").find("no option matches 'zzz'"), std::string::npos);
}

TEST(ReadOptions, GroupsKeepTheOrderOfTheCommandLine) {
  ReadResult r;
  read_into(r, {"-l", "x.txt", "-i", "a", "b", "-l", "y.txt", "-r", "f", "-po", "p", "-po", "q"});
  ASSERT_TRUE(r.ok) << r.errors;
  EXPECT_EQ(r.errors, "");
  const InputArgs& in = r.cl.in;
  ASSERT_EQ(in.mobile.size(), 3u);
  EXPECT_TRUE(in.mobile[0].list);
  EXPECT_EQ(in.mobile[1].args, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(in.mobile[2].args[0], "y.txt");
  EXPECT_EQ(in.fixed.size(), 1u);
  EXPECT_EQ(in.po.size(), 2u);

  ReadResult wrong;
  read_into(wrong, {"-i", "a", "-r", "f", "-i", "b"});
  EXPECT_FALSE(wrong.ok);
  EXPECT_EQ(wrong.errors, "ERROR: inputs must always precede references in the command line\n");
}

TEST(ReadOptions, UnknownOptionsStopQuietOrNot) {
  ReadResult r;
  read_into(r, {"-utm", "33", "-zzz", "stray"});
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.errors,
            "ERROR: unknown options: -zzz \nERROR: extra arguments: stray \n"
            "ERROR: stopping due to unknown options or syntax errors: use -h for help\n");
  ReadResult quiet;
  read_into(quiet, {"-quiet", "-mem", "1", "-zzz"});
  EXPECT_FALSE(quiet.ok);
  EXPECT_NE(quiet.errors.find("ERROR: unknown options: -zzz \n"), std::string::npos) << quiet.errors;
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
