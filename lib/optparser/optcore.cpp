#include <algorithm>
#include <cctype>

#include "lib/general/assert_fail.h"
#include "lib/general/log.h"
#include "lib/optparser/optparser.h"

namespace veld {
namespace {
// The rest of the token may hold the first argument. False when the token is another option.
bool matches(const OptParser& p, const std::string& token, const std::string& key,
             std::vector<std::string>& args) {
  if (!is_option_token(token) || token.compare(0, key.size(), key) != 0) return false;
  args.clear();
  if (token.size() == key.size()) return true;
  const char next = token[key.size()];
  const bool separated = next == '=' || next == ' ';
  if (p.mode == 1 && !separated) return false;
  const bool letters = std::isalpha(static_cast<unsigned char>(next)) != 0;
  if (letters && !nearest_option(p, token).empty()) return false;  // -algin is not -a lgin
  const std::string rest = token.substr(key.size() + (separated ? 1 : 0));
  if (next == '=' || !rest.empty()) args.push_back(rest);
  return true;
}

// Letters that must be changed, put in, left out or swapped with their neighbour (Damerau 1964, restricted).
size_t edit_distance(const std::string& a, const std::string& b) {
  std::vector<size_t> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
  for (size_t j = 0; j <= b.size(); j++) now[j] = j;
  for (size_t i = 1; i <= a.size(); i++) {
    before.swap(last);
    last.swap(now);
    now[0] = i;
    for (size_t j = 1; j <= b.size(); j++) {
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        now[j] = std::min(now[j], before[j - 2] + 1);
    }
  }
  return now[b.size()];
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

std::string nearest_option(const OptParser& p, const std::string& token) {
  constexpr size_t MIN_LETTERS = 4, LETTERS_PER_FAULT = 4;  // shorter names are near to everything
  const std::string name = token.substr(1, token.find_first_of("= ") - 1);
  if (name.size() < MIN_LETTERS) return "";
  size_t least = std::min<size_t>(2, name.size() / LETTERS_PER_FAULT) + 1;
  std::string nearest;
  for (const std::string& known : p.asked) {
    const size_t difference =
        known.size() > name.size() ? known.size() - name.size() : name.size() - known.size();
    if (difference >= least) continue;
    const size_t distance = edit_distance(name, known);
    if (distance < least) {
      least = distance;
      nearest = known;
    }
  }
  return nearest;
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
  if (p.mode == 1) p.asked.push_back(longopt);
  const unsigned char letter = shortopt.empty() ? 0 : static_cast<unsigned char>(shortopt[0]);
  if (single && p.mode == 0) {
    if (p.single_asked[letter]) ERROR_MSG("(OPTION PARSING) single " << key << " repeated");
    ASSERT(!p.single_asked[letter]);
    p.single_asked[letter] = true;
  }

  int count = 0;
  OptOccurrence occurrence;
  for (size_t i = 0; i < p.args.size(); i++) {
    if (p.args[i].used || !matches(p, p.args[i].text, key, occurrence.args)) continue;
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
    if (!token.used) {
      const bool option = is_option_token(token.text);
      const std::string meant = option ? nearest_option(p, token.text) : std::string();
      (option ? unknown : extra) += token.text + (meant.empty() ? " " : " (did you mean -" + meant + "?) ");
    }
  if (!unknown.empty()) ERROR_MSG("unknown options: " << unknown);
  if (!extra.empty()) ERROR_MSG("extra arguments: " << extra);
  return unknown.empty() && extra.empty();
}
}  // namespace veld
