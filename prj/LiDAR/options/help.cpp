#include "prj/LiDAR/options/help.h"

#include <algorithm>
#include <cctype>

#include "prj/LiDAR/options/identity.h"
#include "prj/LiDAR/options/option_text.h"
#include "prj/LiDAR/options/outputs.h"

namespace veld {
namespace {
constexpr size_t NAME_COLUMN = 22;  // width of the names

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool holds(const std::string& text, const std::string& word) {
  return lower(text).find(word) != std::string::npos;
}

std::string row_text(const OptRow& row) {
  std::string text = "  " + names_text(row);
  text.resize(std::max(NAME_COLUMN, text.size()), ' ');
  text += std::string(" ") + row.meaning + " (" + argument_text(row);
  if (!row.deflt.empty()) text += "; default " + row.deflt;
  if (!row.availability.is_available()) text += "; not available yet";
  return text + ")\n";
}
}  // namespace

std::string help_text(const std::string& word) {
  // The word may be given as on a command line, with its dash.
  const std::string wanted = lower(word.size() > 1 && word[0] == '-' ? word.substr(1) : word);
  if (wanted == "outputs") return outputs_text();
  std::string text;
  if (wanted.empty()) {
    text += short_identity() + "\n\nEXAMPLES\n";
    for (const Example& e : examples())
      text += std::string("  ") + PROGRAM_NAME + " " + e.line + "\n      " + example_meaning(e) + "\n";
    text += "\n";
  }
  text += "OPTIONS AND ARGUMENTS\n";
  Options o;
  const std::vector<OptRow> rows = documented_rows(o);
  size_t nlisted = 0;
  for (int t = 0; t < N_THEMES; t++) {
    const Theme theme = static_cast<Theme>(t);
    std::string section;
    for (const OptRow& row : rows_of_theme(rows, theme)) {
      if (!wanted.empty() && !holds(names_text(row), wanted) && !holds(row.meaning, wanted)) continue;
      section += row_text(row);
      nlisted++;
    }
    if (!section.empty()) text += std::string("\n") + theme_title(theme) + "\n" + section;
  }
  if (nlisted == 0) text += "\nno option matches '" + word + "'\n";
  return text;
}
}  // namespace veld
