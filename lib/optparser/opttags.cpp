#include "lib/optparser/opttags.h"

#include <strings.h>

#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
const char BLANKS[] = " \t";

std::string strip(const std::string& text) {
  const size_t first = text.find_first_not_of(BLANKS);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

// A line that belongs to the saved form of an option file and says nothing: <opt ...>, </opt>, <!-- -->, <?
// ?>.
bool is_frame_line(const std::string& line) {
  for (const char* const start : {"opt ", "opt>", "/opt>", "OPT ", "OPT>", "/OPT>", "!", "?"})
    if (line.compare(1, std::char_traits<char>::length(start), start) == 0) return true;
  return false;
}

// The heading that SaveOptionFile puts over the lines of the persistent file.
constexpr char PERSISTENT_HEADING[] = "<!-- Persistent Options -->";

struct TagReader {
  OptParser& p;
  const std::string& path;
  const std::vector<std::string>& list_tags;
  std::vector<std::string>& tokens;
  std::vector<std::string> stack;  // names of the open tags
  int line_number = 0;
  bool persistent = false;  // below the heading of persistent options

  bool error(const std::string& what) const {
    ERROR_MSG(what << " of option file '" << path << "'");
    return false;
  }
  bool error_here(const std::string& what) const {
    return error(what + " at line " + std::to_string(line_number));
  }

  bool in_list() const {
    return !stack.empty() && std::any_of(list_tags.begin(), list_tags.end(), [this](const std::string& t) {
      return equal_nocase(t, stack.back());
    });
  }
  bool option_line(const std::string& line);
  bool check_delimiters(const std::string& line, size_t& ntags) const;
  bool push_or_pop(const std::string& tag);
  bool tag_line(const std::string& line);
  bool read_line(std::string line);
};

bool TagReader::option_line(const std::string& line) {
  std::vector<std::string> words;
  if (!split_option_line(line, words)) return error_here("missing quotes");
  if (!words.empty()) words[0].insert(0, 1, '-');
  if (words.empty() || !is_option_token(words[0]))
    return error_here("invalid option: " + (words.empty() ? line : words[0]));
  if (tokens.size() + words.size() > MAX_OPT)
    return error_here("more than " + std::to_string(MAX_OPT) + " words");
  p.global_lines.push_back(line);
  if (persistent) p.saved_persistent.push_back(line);
  for (const std::string& word : words) {
    LOG_LINE("F_ARG: " << word);
    tokens.push_back(word);
  }
  return true;
}

bool TagReader::check_delimiters(const std::string& line, size_t& ntags) const {
  size_t nopen = 0, nclose = 0;
  bool quoted = false;
  for (const char c : line) {
    if (c == '"' || c == '\'') quoted = !quoted;
    if (quoted) continue;
    nopen += c == '<';
    nclose += c == '>';
  }
  if (quoted) return error_here("missing quotes");
  if (nopen == 0 || nclose == 0) return error_here("missing tag delimiter");
  if (nopen != nclose) return error_here("mismatched tag delimiters");
  if (nopen > 2) return error_here("too many tags (maximum two per line)");
  ntags = nopen;
  return true;
}

bool TagReader::push_or_pop(const std::string& tag) {
  const bool closing = tag.size() > 1 && tag[1] == '/';
  const size_t start = closing ? 2 : 1;
  const std::string name = tag.substr(start, tag.find_first_of(" >", start) - start);
  if (name.empty()) return error_here("empty tag");
  if (closing) {
    if (stack.empty()) return error_here("extra closing tag </" + name + ">");
    if (!equal_nocase(stack.back(), name))
      return error_here("mismatched tags <" + stack.back() + ">  and </" + name + ">");
    stack.pop_back();
    return true;
  }
  for (const std::string& open : stack)
    if (equal_nocase(open, name)) return error_here("nested tag <" + name + "> detected");
  stack.push_back(name);
  return true;
}

bool TagReader::tag_line(const std::string& line) {
  const size_t first = line.find('<');
  const size_t last = line.rfind('>');
  if (first != std::string::npos && !strip(line.substr(0, first)).empty())
    return error_here("extra text before tag delimiter <");
  if (last != std::string::npos && !strip(line.substr(last + 1)).empty())
    return error_here("extra text after tag delimiter >");
  if (first == 0 && is_frame_line(line)) {
    persistent = persistent || line == PERSISTENT_HEADING;
    return true;
  }
  size_t ntags = 0;
  if (!check_delimiters(line, ntags)) return false;

  // Quotes may hold delimiters, so the end of the first tag is looked for outside them.
  size_t end = 0;
  for (bool quoted = false; end < last; end++) {
    if (line[end] == '"' || line[end] == '\'') quoted = !quoted;
    if (line[end] == '>' && !quoted) break;
  }
  const size_t level = stack.size();
  const std::string tag = line.substr(0, end + 1);
  if (!push_or_pop(tag)) return false;
  p.taglist.push_back(tag);
  if (ntags == 2) {
    const size_t second = line.rfind('<');
    if (second <= end) return error_here("mismatched tag delimiters");
    p.taglist.push_back(strip(line.substr(end + 1, second - end - 1)));
    const std::string other = line.substr(second, last + 1 - second);
    if (!push_or_pop(other)) return false;
    p.taglist.push_back(other);
  }
  p.tag_lines.push_back(std::string(2 * std::min(level, stack.size()), ' ') + line);
  return true;
}

bool TagReader::read_line(std::string line) {
  line_number++;
  if (line.find('\r') != std::string::npos) return error_here("invalid mix of \\r and \\n delimiters");
  line = strip(line);
  const auto value_of = [&line](const std::string& key, std::string& value) {
    if (line.starts_with(key) && line.back() == ']')
      value = line.substr(key.size(), line.size() - key.size() - 1);
  };
  value_of("[dir=", p.saved_dir);
  value_of("[base=", p.saved_base);
  if (line.empty() || line[0] == '#' || line[0] == '/' || line[0] == '[') return true;
  if (line.find_first_of("<>") != std::string::npos) return tag_line(line);
  if (!in_list()) return option_line(line);
  p.taglist.push_back(line);
  p.tag_lines.push_back(std::string(2 * stack.size(), ' ') + line);
  return true;
}
}  // namespace

bool equal_nocase(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

bool is_tag(const std::string& text) { return !text.empty() && text[0] == '<'; }

bool split_option_line(const std::string& line, std::vector<std::string>& tokens) {
  tokens.clear();
  std::string word;
  bool quoted = false, in_word = false;
  for (const char c : line) {
    if (c == '"' || c == '\'') {
      quoted = !quoted;
      in_word = true;  // so that an empty pair of quotes is a word
    } else if (!quoted && (c == ' ' || c == '\t' || c == '=')) {
      if (in_word) tokens.push_back(word);
      word.clear();
      in_word = false;
    } else {
      word += c;
      in_word = true;
    }
  }
  if (in_word) tokens.push_back(word);
  return !quoted;
}

bool AddFileOpt(OptParser& p, const std::string& path, const std::vector<std::string>& list_tags,
                std::vector<std::string>& tokens) {
  LOG_ENTER("AddFileOpt '" << path << "'");
  TxtFileIn in(false);
  if (!in.open(path)) {
    ERROR_MSG("could not read option file " << path);
    return false;
  }
  TagReader reader{p, path, list_tags, tokens, {}};
  std::string line;
  while (std::getline(in.fs, line))  // as it stands: a carriage return is a fault of the file
    if (!reader.read_line(line)) return false;
  if (in.fs.bad()) {
    ERROR_MSG("could not read option file " << path);
    return false;
  }
  if (!reader.stack.empty()) {
    ERROR_MSG("extra tags " << reader.stack.size() << " (closing tags missing) in option file " << path);
    return false;
  }
  LOG_LINE("TAGS: size=" << p.taglist.size());
  return true;
}

const std::string* TagLine::find(const std::string& attribute) const {
  for (const auto& a : attr)
    if (equal_nocase(a.first, attribute)) return &a.second;
  return nullptr;
}

bool ParseTagLine(const std::string& line, TagLine& tag) {
  tag = TagLine();
  const auto error = [&line](const std::string& what) {
    ERROR_MSG(what);
    ERROR_MSG("Line: " << line);
    return false;
  };
  const size_t end = line.rfind('>');
  tag.closing = line.size() > 1 && line[1] == '/';
  const size_t start = tag.closing ? 2 : 1;
  const size_t blank = line.find_first_of(BLANKS, 1);
  tag.name = line.substr(std::min(start, line.size()), std::min(blank, end) - start);
  if (end == std::string::npos || line[0] != '<')
    return error("attribute syntax error for tag <" + tag.name + ">");

  size_t i = std::min(blank, end);
  for (;;) {
    while (i < end && (line[i] == ' ' || line[i] == '\t')) i++;
    if (i >= end) return true;
    const size_t equal = line.find('=', i);
    if (equal == std::string::npos || equal >= end)
      return error("attribute syntax error for tag <" + tag.name + ">");
    const std::string name = strip(line.substr(i, equal - i));
    if (name.empty()) return error("missing attribute for tag <" + tag.name + ">");
    if (name.find_first_of(" \t\"'<>") != std::string::npos)
      return error("attribute syntax error for tag <" + tag.name + ">");
    i = equal + 1;
    while (i < end && (line[i] == ' ' || line[i] == '\t')) i++;
    std::string value;
    if (i < end && (line[i] == '"' || line[i] == '\'')) {
      const size_t close = line.find(line[i], i + 1);
      if (close == std::string::npos || close >= end)
        return error("attribute syntax error for tag <" + tag.name + ">");
      value = line.substr(i + 1, close - i - 1);
      i = close + 1;
    } else {
      const size_t stop = std::min(line.find_first_of(BLANKS, i), end);
      value = line.substr(i, stop - i);
      i = stop;
    }
    if (strip(value).empty())
      return error("missing value for attribute " + name + " for tag <" + tag.name + ">");
    if (tag.find(name)) return error("multiple attribute " + name + " for tag <" + tag.name + ">");
    tag.attr.emplace_back(name, value);
  }
}
}  // namespace veld
