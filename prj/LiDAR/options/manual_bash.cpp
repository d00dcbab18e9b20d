// The completion for bash. Options with the same arguments share a branch of one case statement.
#include <map>

#include "prj/LiDAR/options/manual.h"
#include "prj/LiDAR/options/option_text.h"

namespace veld {
namespace {
constexpr double MOST_VALUES = 20;  // longer ranges of integers are not listed

// The words that an argument of this option can be; empty when they are too many.
std::string value_words(const OptRow& row) {
  if (row.kind == OptKind::boolean) return "0 1";
  const bool integers = row.kind == OptKind::integer || row.kind == OptKind::intlist;
  if (!integers || row.hi - row.lo > MOST_VALUES) return "";
  std::string words;
  for (int v = static_cast<int>(row.lo); v <= static_cast<int>(row.hi); v++)
    words += (words.empty() ? "" : " ") + std::to_string(v);
  return words;
}

// The line that offers arguments, empty for nothing to offer.
std::string offer(const OptRow& row) {
  const std::string hint = row.complete;
  if (row.kind == OptKind::directory) return "_veldrunner_files /";
  if (!hint.empty() && hint[0] == '*') {
    std::string endings;  // "*.las *.laz" -> ".las .laz"
    for (const char c : hint)
      if (c != '*') endings += c;
    return endings.empty() ? "_veldrunner_files" : "_veldrunner_files " + endings;
  }
  const std::string words = hint.empty() ? value_words(row) : hint;
  return words.empty() ? "" : "_veldrunner_words " + words;
}

std::string pattern(const OptRow& row) {  // of a case branch; "$" stands for itself
  std::string text = std::string("'-") + row.name + "'";
  if (row.abbr[0] != '\0') text += std::string("|'-") + row.abbr + "'";
  return text;
}

const char HEAD[] =
    R"(# bash completion for veldrunner: names of options, files by ending, directories, values.

# Offers directories, and files with one of the endings (none: all files; "/": no files).
_veldrunner_files() {
  local file ending
  compopt -o filenames 2>/dev/null
  while IFS= read -r file; do
    if [[ -d $file || $# -eq 0 ]]; then
      COMPREPLY+=("$file")
      continue
    fi
    for ending in "$@"; do
      [[ ${file,,} == *"$ending" ]] && COMPREPLY+=("$file")
    done
  done < <(compgen -f -- "$cur")
}

# Offers those of its arguments that start with the word.
_veldrunner_words() {
  mapfile -t COMPREPLY < <(compgen -W "$*" -- "$cur")
}

_veldrunner() {
  local cur=${COMP_WORDS[COMP_CWORD]} option='' i
  local -i given=0 most=0
  COMPREPLY=()
  # The option that the word belongs to, and how many arguments it has before the word.
  for ((i = COMP_CWORD - 1; i > 0; i--)); do
    if [[ ${COMP_WORDS[i]} == -[A-Za-z?\$]* ]]; then
      option=${COMP_WORDS[i]}
      break
    fi
    given+=1
  done
)";
}  // namespace

std::string bash_completion_text() {
  Options o;
  const std::vector<OptRow> rows = documented_rows(o);
  std::string names, counts;
  std::map<int, std::string> by_count;
  std::map<std::string, std::string> by_offer;
  for (const OptRow& row : rows) {
    names += (names.empty() ? "-" : " -") + std::string(row.name);
    if (row.nmax > 0) {
      std::string& count = by_count[row.nmax];
      count += (count.empty() ? "" : "|") + pattern(row);
    }
    const std::string line = offer(row);
    if (line.empty()) continue;
    std::string& branch = by_offer[line];
    branch += (branch.empty() ? "" : "|") + pattern(row);
  }
  std::string text = HEAD;
  text += "  case $option in\n";
  for (const auto& [most, patterns] : by_count)
    text += "    " + patterns + ") most=" + std::to_string(most) + " ;;\n";
  text +=
      "  esac\n  if [[ $cur != -[A-Za-z\\$]* && $cur != - ]] && ((given < most)); then\n    case $option "
      "in\n";
  for (const auto& [line, patterns] : by_offer) text += "      " + patterns + ") " + line + " ;;\n";
  text += "    esac\n  else\n    _veldrunner_words '" + names +
          "'\n  fi\n}\ncomplete -F _veldrunner veldrunner\n";
  return text;
}
}  // namespace veld
