// Every option that is taken does something or stops the run. The sources tell whether it does something: a value
// is used where code outside the table, the rules and the logs reads it.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "prj/LiDAR/options/availability.h"
#include "tests/prj/LiDAR/options/read_support.h"
#include "tests/support/temp_dir.h"

namespace veld {
namespace {
// A source without comments, string literals and texts for log and console.
std::string code_of(const std::string& path) {
  const std::string text = read_text(path);
  std::string code;
  for (size_t i = 0; i < text.size(); i++) {
    if (text.compare(i, 2, "//") == 0) {
      i = text.find('\n', i);
      code += '\n';
    } else if (text[i] == '"' || (text[i] == '\'' && (i == 0 || !std::isalnum(text[i - 1])))) {
      const char quote = text[i];
      for (i++; i < text.size() && text[i] != quote; i++) i += text[i] == '\\';
    } else {
      code += text[i];
    }
  }
  for (const char* const macro :
       {"LOG_LINE(", "LOG_MSG(", "LOG_MSG1(", "LOG_ENTER(", "WARNING_MSG(", "ERROR_MSG("})
    for (size_t at = 0; (at = code.find(macro, at)) != std::string::npos;)
      code.erase(at, code.find(';', at) - at);
  return code;
}

// The table and what only moves values from one option to another.
bool is_table(const std::string& name) {
  return name.rfind("option", 0) == 0 || name == "rules.cpp" || name == "align2.cpp" ||
         name == "availability.cpp";
}

// Values that rules.cpp and align2.cpp put in the place of others, which are read.
const std::set<std::string> PASSED_ON = {"dz_range_1", "dz16_range_1", "v_range_1", "v_color", "porec"};

bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

bool is_written(const std::string& code, size_t behind) {
  while (behind < code.size() && code[behind] == ' ') behind++;
  return code.compare(behind, 1, "=") == 0 && code.compare(behind, 2, "==") != 0;
}

// Words of the sources that are read, other than by copying from option to option; those that stand as members, "a.x"
// or "a->x", also as ".x". Declarations stand in headers.
const std::set<std::string>& read_words() {
  static const std::set<std::string> words = [] {
    std::set<std::string> found;
    for (const char* const folder : {SOURCE_PATH "/prj", SOURCE_PATH "/image"})
      for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() != ".cpp" || is_table(entry.path().filename())) continue;
        const std::string code = code_of(entry.path());
        for (size_t at = 2; at < code.size(); at++) {
          if (!is_word(code[at])) continue;
          size_t end = at;
          while (end < code.size() && is_word(code[end])) end++;
          const std::string word = code.substr(at, end - at);
          const bool member = code[at - 1] == '.' || code.compare(at - 2, 2, "->") == 0;
          if (!is_written(code, end)) found.insert(word), found.insert((member ? "." : "") + word);
          at = end;
        }
      }
    return found;
  }();
  return words;
}

// What each row of the table sets: "utm" of a field of the options, "correction.inv.CAL1" of one in the parameters of
// a stage.
const std::map<std::string, std::string>& targets() {
  static const std::map<std::string, std::string> fields = [] {
    std::map<std::string, std::string> found;
    static const std::regex row("\\w+\\(\"(\\w+)\", \"\\w?\",[^&]*&o\\.([\\w.]+)");
    for (const auto& entry : std::filesystem::directory_iterator(SOURCE_PATH "/prj/LiDAR/options")) {
      if (entry.path().filename().string().rfind("option_rows_", 0) != 0) continue;
      const std::string text = read_text(entry.path());
      for (std::sregex_iterator m(text.begin(), text.end(), row), end; m != end; ++m)
        found[(*m)[1]] = (*m)[2];
    }
    return found;
  }();
  return fields;
}

// A parameter of a stage is read by any name that ends with it, a field of the options as a member.
bool is_used(const std::string& option) {
  const std::string& field = targets().at(option);
  const size_t dot = field.rfind('.');
  return read_words().count(dot == std::string::npos ? "." + field : field.substr(dot + 1)) > 0;
}

// Options that work through others alone.
const std::set<std::string> BY_OTHERS = {"all"};
// Options that are read by their name as groups of files.
const std::set<std::string> GROUPS_OF_FILES = {"input", "input_list", "ref", "ref_list", "po", "po_list"};

// The option with values that ask for something.
Args asking(const OptRow& row, const std::string& boolean) {
  Args args{std::string("-") + row.name};
  const std::string value = row.kind == OptKind::boolean ? boolean
                            : row.kind == OptKind::integer || row.kind == OptKind::intlist
                                ? std::to_string(static_cast<int64_t>(row.hi))
                            : row.kind == OptKind::real || row.kind == OptKind::reallist
                                ? std::to_string(std::min(row.hi, 20.0))
                            : row.kind == OptKind::directory ? "/"
                                                             : "word";
  args.insert(args.end(), static_cast<size_t>(row.kind == OptKind::flag ? 0 : std::max(row.nmin, 1)), value);
  return args;
}

bool is_refused(const OptRow& row, const std::string& boolean) {
  ReadResult r;
  read_into(r, asking(row, boolean));
  EXPECT_TRUE(r.ok) << r.errors;
  derive_defaults(r.cl.o, r.cl.given);
  bool ok = true;
  const std::string text = errors_of([&] { ok = check_available(r.cl.o, r.cl.given); });
  EXPECT_EQ(text.rfind(std::string("ERROR: option -") + row.name + " is not available yet: ", 0),
            ok ? std::string::npos : 0u)
      << text;
  return !ok;
}
}  // namespace

TEST(OptionUse, EveryOptionIsReadOrStopsTheRun) {
  ASSERT_GT(read_words().size(), 1000u);
  Options defaults;
  for (const OptRow& row : option_rows(defaults)) {
    SCOPED_TRACE(row.name);
    const std::string name = row.name;
    const bool taken =
        is_used(name) || BY_OTHERS.count(name) || GROUPS_OF_FILES.count(name) || PASSED_ON.count(name);
    if (row.availability.kind == Availability::Kind::no_effect)
      EXPECT_EQ(row.theme, Theme::voxel);
    else if (is_available(name))
      EXPECT_TRUE(taken) << "no code reads it";
    else
      EXPECT_TRUE(is_refused(row, "1") || is_refused(row, "0"));
  }
}

// The scan of the sources finds what it should: fields that are only written, only logged, or only copied.
TEST(OptionUse, UnreadFieldsAreFound) {
  for (const char* const unread : {"vgrid_gs", "X0", "vgrid_ret"}) EXPECT_FALSE(is_used(unread)) << unread;
  for (const char* const read :
       {"mem", "utm", "nil", "dpoc", "bb", "cal_1", "qc_grp", "exclude", "clear_xyz"})
    EXPECT_TRUE(is_used(read)) << read;
}
}  // namespace veld
