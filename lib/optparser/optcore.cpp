#include <algorithm>
#include <cctype>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/optparser/optparser.h"

namespace veld {
namespace {
// The rest of the token may hold the first argument. False when the token is another option.
bool matches(const std::string& token, const std::string& key, int mode, std::vector<std::string>& args) {
  if (!is_option_token(token) || token.compare(0, key.size(), key) != 0) return false;
  args.clear();
  if (token.size() == key.size()) return true;
  const char next = token[key.size()];
  const bool separated = next == '=' || next == ' ';
  if (mode == 1 && !separated) return false;
  const std::string rest = token.substr(key.size() + (separated ? 1 : 0));
  if (next == '=' || !rest.empty()) args.push_back(rest);
  return true;
}

// Checks the count, cuts what is too much. False when the occurrence is not valid.
bool check_count(OptParser& p, std::vector<std::string>& args, const std::string& key, int nargmin,
                 int nargmax) {
  const int n = static_cast<int>(args.size());
  if (n < nargmin) {
    ERROR_MSG("option " << key << " requires " << (nargmax > nargmin ? "at least " : "") << nargmin
                        << " argument" << (nargmin > 1 ? "s" : "") << ", found " << n);
    p.error = true;
    return false;
  }
  if (n > nargmax) {
    ERROR_MSG("option " << key << " takes " << (nargmin < nargmax ? "maximum " : "") << nargmax << " argument"
                        << (nargmax > 1 ? "s" : "") << ", found " << n << ", discarding last "
                        << n - nargmax);
    p.error = true;
    args.resize(static_cast<size_t>(nargmax));
  }
  return true;
}
}  // namespace

bool is_option_token(const std::string& text) {
  return text.size() >= 2 && text[0] == '-' &&
         (std::isalpha(static_cast<unsigned char>(text[1])) || text[1] == '?' || text[1] == '$');
}

bool has_illegal_chars(const std::string& name) {
  return name.find_first_of(ILLEGAL_NAME_CHARS) != std::string::npos;
}

std::vector<OptOccurrence> GetOptAll(OptParser& p, const std::string& longopt, const std::string& shortopt,
                                     int nargmin, int nargmax, bool single, bool repeatable) {
  ASSERT(longopt.length() || shortopt.length());
  ASSERT(nargmin >= 0);
  std::vector<OptOccurrence> found;
  p.last_match = -1;
  const std::string& name = p.mode == 1 ? longopt : shortopt;
  if (name.empty()) return found;
  const std::string key = "-" + name;
  const unsigned char letter = shortopt.empty() ? 0 : static_cast<unsigned char>(shortopt[0]);
  if (single && p.mode == 0) {
    if (p.single_asked[letter]) ERROR_MSG("(OPTION PARSING) single " << key << " repeated");
    ASSERT(!p.single_asked[letter]);
    p.single_asked[letter] = true;
  }

  int count = 0;
  OptOccurrence occurrence;
  for (size_t i = 0; i < p.args.size(); i++) {
    if (p.args[i].used || !matches(p.args[i].text, key, p.mode, occurrence.args)) continue;
    occurrence.pos = p.last_match = static_cast<int>(i);
    count++;
    p.args[i].used = true;
    for (size_t k = i + 1; k < p.args.size() && !p.args[k].used && !is_option_token(p.args[k].text); k++) {
      occurrence.args.push_back(p.args[k].text);
      if (static_cast<int>(occurrence.args.size()) <= nargmax) p.args[k].used = true;
    }
    if (letter && p.mode == 1) p.long_found[letter] = true;
    if (letter && p.mode == 0 && p.long_found[letter]) {
      WARNING_MSG("option -" << longopt << " used, short option " << shortopt << " ignored");
      return {};
    }
    if (check_count(p, occurrence.args, key, nargmin, nargmax))
      found.push_back(occurrence);
    else if (!repeatable)
      found.clear();  // the last occurrence decides
  }
  if (count >= 2 && !repeatable)
    WARNING_MSG("option " << key << " found " << count
                          << " times, last valid occurrence overrides previous ones");
  if (!found.empty()) {
    const bool both = !shortopt.empty() && !longopt.empty();
    p.given.push_back(both ? shortopt + "|" + longopt : shortopt + longopt);
  }
  return found;
}

bool GetOpt(OptParser& p, std::vector<std::string>& args, const std::string& longopt,
            const std::string& shortopt, int nargmin, int nargmax, bool single) {
  const std::vector<OptOccurrence> found = GetOptAll(p, longopt, shortopt, nargmin, nargmax, single, false);
  if (found.empty()) return false;
  args = found.back().args;
  return true;
}

bool CheckUnknownOpt(const OptParser& p) {
  LOG_ENTER("CheckUnknownOpt argc=" << p.args.size());
  std::string unknown, extra;
  for (const OptToken& token : p.args)
    if (!token.used) (is_option_token(token.text) ? unknown : extra) += token.text + " ";
  if (!unknown.empty()) ERROR_MSG("unknown options: " << unknown);
  if (!extra.empty()) ERROR_MSG("extra arguments: " << extra);
  return unknown.empty() && extra.empty();
}
}  // namespace veld
