// Every option that is taken does something or stops the run. The sources tell whether it does something: a value
// is used where code outside the table, the rules and the logs reads it.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "prj/LiDAR/options/availability.h"
#include "tests/prj/LiDAR/options/read_support.h"

namespace veld {
namespace {
struct Source {
  std::string name, text;  // without comments, string literals and texts for log and console
  std::set<std::string> option_variables;
};

// The end of a bracket that opens at `at`.
size_t closing(const std::string& text, size_t at) {
  int depth = 0;
  for (; at < text.size(); at++) {
    if (text[at] == '(') depth++;
    if (text[at] == ')' && --depth == 0) break;
  }
  return at;
}

std::string code_of(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::ostringstream all;
  all << file.rdbuf();
  const std::string text = all.str();
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
  for (const std::string macro :
       {"LOG_LINE(", "LOG_MSG(", "LOG_MSG1(", "LOG_ENTER(", "WARNING_MSG(", "ERROR_MSG("})
    for (size_t at = 0; (at = code.find(macro, at)) != std::string::npos;)
      code.erase(at, closing(code, at + macro.size() - 1) + 1 - at);
  return code;
}

// Names of the variables of type Options in a source.
std::set<std::string> option_variables(const std::string& code) {
  std::set<std::string> names = {"cl.o"};
  static const std::regex declared("\\bOptions\\s*&?\\s*(\\w+)");
  for (std::sregex_iterator m(code.begin(), code.end(), declared), end; m != end; ++m) names.insert((*m)[1]);
  return names;
}

const std::vector<Source>& sources() {
  static const std::vector<Source> list = [] {
    std::vector<Source> found;
    for (const char* const folder : {SOURCE_PATH "/prj", SOURCE_PATH "/image"})
      for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h")
          found.push_back({entry.path().filename(), code_of(entry.path()), {}});
    for (Source& s : found) s.option_variables = option_variables(s.text);
    return found;
  }();
  return list;
}

// The table and what only moves values from one option to another.
bool is_table(const std::string& name) {
  return name.rfind("option", 0) == 0 || name == "rules.cpp" || name == "align2.cpp" ||
         name == "availability.cpp";
}

// Values that rules.cpp and align2.cpp put in the place of others, which are read.
const std::set<std::string> PASSED_ON = {"dz_range_1", "dz16_range_1", "v_range_1", "v_color"};

bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

// Calls visit(position behind it) for each place where `variable.field` stands.
template <typename F>
void for_each_access(const std::string& code, const std::string& variable, const std::string& field,
                     F&& visit) {
  const std::string access = variable + "." + field;
  for (size_t at = 0; (at = code.find(access, at)) != std::string::npos; at += access.size()) {
    const size_t behind = at + access.size();
    if (at > 0 && is_word(code[at - 1])) continue;
    if (behind < code.size() && is_word(code[behind])) continue;
    visit(at, behind);
  }
}

bool is_written(const std::string& code, size_t behind) {
  while (behind < code.size() && code[behind] == ' ') behind++;
  return code.compare(behind, 1, "=") == 0 && code.compare(behind, 2, "==") != 0;
}

// Words of the sources that are read, each with the sources that read it. Declarations stand in headers.
const std::map<std::string, std::set<std::string>>& read_words() {
  static const std::map<std::string, std::set<std::string>> words = [] {
    std::map<std::string, std::set<std::string>> found;
    for (const Source& s : sources()) {
      if (s.name.back() == 'h' || is_table(s.name)) continue;
      for (size_t at = 0; at < s.text.size(); at++) {
        if (!is_word(s.text[at])) continue;
        size_t end = at;
        while (end < s.text.size() && is_word(s.text[end])) end++;
        if (!is_written(s.text, end)) found[s.text.substr(at, end - at)].insert(s.name);
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
      std::ifstream file(entry.path());
      std::ostringstream all;
      all << file.rdbuf();
      const std::string text = all.str();
      for (std::sregex_iterator m(text.begin(), text.end(), row), end; m != end; ++m)
        found[(*m)[1]] = (*m)[2];
    }
    return found;
  }();
  return fields;
}

// Whether a stage reads a field of its parameters.
bool is_parameter_read(const std::string& name) { return read_words().count(name) > 0; }

bool is_used(const std::string& option) {
  const std::string field = targets().at(option);
  if (const size_t dot = field.rfind('.'); dot != std::string::npos)
    return is_parameter_read(field.substr(dot + 1));
  for (const Source& s : sources()) {
    if (is_table(s.name)) continue;
    bool used = false;
    for (const std::string& variable : s.option_variables)
      for_each_access(s.text, variable, field,
                      [&](size_t, size_t behind) { used = used || !is_written(s.text, behind); });
    if (used) return true;
  }
  return false;
}

// Options that work through others alone.
const std::set<std::string> BY_OTHERS = {"all"};
// Options that are read by their name as groups of files.
const std::set<std::string> GROUPS_OF_FILES = {"input", "input_list", "ref", "ref_list", "po", "po_list"};

// The option with values that ask for something.
std::vector<std::string> asking(const OptRow& row, const std::string& boolean) {
  std::vector<std::string> args{std::string("-") + row.name};
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
  ASSERT_GT(sources().size(), 100u);
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
  EXPECT_FALSE(is_parameter_read("no_such_parameter"));
}

TEST(OptionUse, DefaultsThatCannotBeDoneAreLeftOutAndSaid) {
  const auto text = [](const std::vector<std::string>& args) {
    ReadResult r;
    read_into(r, args);
    derive_defaults(r.cl.o, r.cl.given);
    std::string all;
    for (const std::string& subject : left_out(r.cl.o, r.cl.given)) all += subject + ";";
    return all;
  };
  EXPECT_EQ(text({"-reg"}), "");
  EXPECT_EQ(text({"-align", "-all", "-map", "0"}), "");
}

TEST(OptionUse, VoxelOptionsAreTakenAndSaid) {
  ReadResult r;
  read_into(r, {"-exp", "-X0", "5", "-vreg_dim", "16"});
  ASSERT_TRUE(r.ok) << r.errors;
  EXPECT_EQ(errors_of([&] { warn_no_effect(r.cl.given); }),
            "WARNING: no effect, voxel experiments are not part of this version: -exp -vreg_dim -X0\n");
  EXPECT_EQ(errors_of([] { warn_no_effect({"align"}); }), "");
}
}  // namespace veld
