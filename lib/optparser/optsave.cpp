#include <algorithm>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"
#include "lib/optparser/optparser.h"
#include "lib/optparser/opttags.h"

namespace veld {
namespace {
std::string option_of(const std::string& line) {
  std::vector<std::string> words;
  (void)split_option_line(line, words);  // the line has been read before, so its quotes are closed
  return words.empty() ? "" : words[0];
}

// Later lines win when the file is read again, and the persistent ones stand last: those that the run
// overrode stay out.
bool overridden(const OptParser& p, const std::string& line) {
  const std::string option = option_of(line);
  return std::any_of(p.global_lines.begin(), p.global_lines.end(),
                     [&option](const std::string& l) { return option_of(l) == option; });
}
// The way from the directory of a file up to a directory that holds it; empty when it does not.
std::string way_up(const std::string& dir, const std::string& path) {
  const std::string top = real_path(dir);
  std::string at = path, name;
  split_path(path, at, name);
  at = real_path(at.empty() ? "." : at);
  if (top.empty() || (at != top && !at.starts_with(with_slash(top)))) return "";
  std::string way = "./";
  for (const char c : at.substr(top.size()))
    if (c == '/') way += "../";
  return way;
}
}  // namespace

void SaveOptionFile(const OptParser& p, const std::string& path, const std::string& soft,
                    const std::string& dir) {
  LOG_ENTER("SaveOptionFile '" << path << "'");
  LOG_MSG("Saving command line and other options to file " << path);
  ResultFile out(false);
  bool good = out.open(path);
  if (good) {
    out.fs << "<opt soft=\"" << soft << "\">\n";
    if (!p.tag_lines.empty()) {
      out.fs << "<!-- Input Tree -->\n";
      for (const std::string& line : p.tag_lines) out.fs << line << '\n';
    }
    out.fs << "<!-- Global Options -->\n[dir=" << dir << "]\n";
    if (const std::string base = way_up(dir, path); !base.empty()) out.fs << "[base=" << base << "]\n";
    for (const std::string& line : p.global_lines) out.fs << line << '\n';
    if (!p.persistent_lines.empty()) {
      out.fs << "<!-- Persistent Options -->\n";
      for (const std::string& line : p.persistent_lines)
        if (!overridden(p, line)) out.fs << line << '\n';
    }
    out.fs << "</opt>\n";
    good = out.commit();
  }
  if (!good) WARNING_MSG("failed to save option file " << path);
}
}  // namespace veld
