#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/txtfile.h"
#include "lib/optparser/optparser.h"
#include "lib/optparser/opttags.h"

namespace veld {
namespace {
// Reads the file of options that hold for every run with this executable.
bool AddPersistentOpt(OptParser& p, const std::string& path, std::vector<std::string>& tokens) {
  LOG_ENTER("AddPersistentOpt '" << path << "'");
  TxtFileIn in(false);
  if (!in.open(path)) return true;
  std::string line;
  for (int n = 1; in.getline(line); n++) {
    const size_t start = line.find_first_not_of(" \t=");
    if (start == std::string::npos || line[start] == '#' || line[start] == '/' || line[start] == '[')
      continue;
    std::vector<std::string> words;
    const bool closed = split_option_line(line, words);
    if (!words.empty()) words[0].insert(0, 1, '-');
    if (!closed || words.empty() || !is_option_token(words[0])) {
      ERROR_MSG("invalid option: " << (words.empty() ? line : words[0]) << " at line " << n
                                   << " of persistent option file " << path);
      p.error = true;
      continue;
    }
    if (tokens.size() + words.size() > MAX_OPT) {
      ERROR_MSG("more than " << MAX_OPT << " words in persistent option file " << path);
      return false;
    }
    // A saved option file brings its persistent lines along: a list of files must not come twice.
    const std::string text = line.substr(start, line.find_last_not_of(" \t") + 1 - start);
    if (std::find(p.saved_persistent.begin(), p.saved_persistent.end(), text) != p.saved_persistent.end()) {
      LOG_LINE("already in the option file: " << text);
      continue;
    }
    p.persistent_lines.push_back(text);
    for (const std::string& word : words) {
      LOG_LINE("P_ARG: " << word);
      tokens.push_back(word);
    }
  }
  return true;
}

std::string quoted(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_of(" \t='") == std::string::npos;
  return plain ? text : '"' + text + '"';
}

// The command line as lines of an option file: one an option, without its dash and without -opt itself.
void record_command_line(OptParser& p, const std::vector<OptToken>& args) {
  bool skip = false;
  for (const OptToken& token : args) {
    if (is_option_token(token.text)) {
      const size_t equal = token.text.find('=');
      const std::string name = token.text.substr(1, equal == std::string::npos ? equal : equal - 1);
      skip = name == "opt";
      if (skip) continue;
      p.global_lines.push_back(name);
      if (equal != std::string::npos) p.global_lines.back() += " " + quoted(token.text.substr(equal + 1));
    } else if (!skip && !p.global_lines.empty()) {
      p.global_lines.back() += " " + quoted(token.text);
    }
  }
}

// A saved option file means the names in it from where its run was, wherever it is read again. Names of the command
// line that exist keep their meaning.
void enter_saved_directory(OptParser& p, const std::string& file) {
  std::string dir, name, current;
  split_path(file, dir, name);
  const std::string beside = p.saved_base.empty() ? "" : real_path(dir + p.saved_base);
  const std::string target = is_directory(beside) ? beside : p.saved_dir;
  if (target.empty() || !is_directory(target)) return;
  if (!current_directory(current) || real_path(current) == real_path(target)) return;
  for (OptToken& token : p.args)
    if (!token.used && !is_option_token(token.text) && file_mode(token.text) >= 0)
      token.text = real_path(token.text);
  if (chdir(target.c_str()) == 0) LOG_MSG("Working in " << target << ", as option file " << file << " says");
}

void put_in_front(OptParser& p, const std::vector<std::string>& tokens) {
  std::vector<OptToken> merged;
  merged.reserve(tokens.size() + p.args.size());
  for (const std::string& token : tokens) merged.push_back({token, false});
  merged.insert(merged.end(), p.args.begin(), p.args.end());
  p.args.swap(merged);
}

bool set_refdir(OptParser& p) {
  std::string dir;
  if (!GetOptString(p, dir, "$", "")) return true;
  char* const text = realpath(dir.c_str(), nullptr);
  if (!text) {
    ERROR_MSG("unable to resolve path " << dir);
    return false;
  }
  p.refdir = text;
  std::free(text);
  LOG_LINE("REFDIR " << p.refdir);
  return true;
}
}  // namespace

bool InitGetOptAll(OptParser& p, int argc, char** argv, const std::string& base,
                   const std::vector<std::string>& list_tags) {
  LOG_ENTER("InitGetOptAll argc=" << argc);
  p = OptParser();
  if (argc <= 1) {
    ERROR_MSG("this program requires arguments");
    LOG_MSG("(this is a command line tool, it runs in a terminal, not by clicking the icon)");
    return false;
  }
  for (int i = 1; i < argc; i++) {
    LOG_LINE("L_ARG: " << argv[i]);
    p.args.push_back({argv[i], false});
  }
  const std::vector<OptToken> command_line = p.args;

  const std::vector<OptOccurrence> opt = GetOptAll(p, "opt", "", 0, 1, false, false);
  std::vector<std::string> tokens;
  if (!opt.empty()) {
    if (opt.back().args.empty()) {
      ERROR_MSG("option -opt needs one argument (option file)");
      return false;
    }
    if (!AddFileOpt(p, opt.back().args[0], list_tags, tokens)) return false;
    enter_saved_directory(p, opt.back().args[0]);
    put_in_front(p, tokens);
  }
  record_command_line(p, command_line);
  tokens.clear();
  if (!AddPersistentOpt(p, base + ".opt.txt", tokens)) return false;
  put_in_front(p, tokens);

  if (!set_refdir(p)) return false;
  p.mul = GetOptFlag(p, "mul", "");
  if (p.mul) WARNING_MSG("multiple instance check override, logs may get corrupted");
  return true;
}
}  // namespace veld
