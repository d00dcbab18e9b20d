#include "prj/LiDAR/options/split_opt.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "lib/general/log.h"
#include "lib/general/txtfile.h"

namespace veld {
namespace {
constexpr size_t MAX_LIST_LINES = 4096;  // far more than any list of channels or values has

// The numbers of a line, apart by blanks, tabs or commas. False when there is anything else.
bool parse_numbers(const std::string& line, std::vector<double>& v) {
  v.clear();
  const char* at = line.c_str();
  for (;;) {
    at += std::strspn(at, " \t,\r");
    if (*at == '\0') return true;
    char* end = nullptr;
    const double number = std::strtod(at, &end);
    if (end == at || !std::isfinite(number)) return false;
    v.push_back(number);
    at = end;
  }
}

bool parse_count(const std::string& text, int& n) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(text.c_str(), &end, 10);
  n = static_cast<int>(std::clamp(v, -1L, 1000L));
  return !text.empty() && *end == '\0' && errno == 0;
}

bool whole_in(double x, int min, int max) { return x >= min && x <= max && x == std::floor(x); }
}  // namespace

bool parse_split_opt(const std::vector<std::string>& args, SplitOpt& split) {
  split = SplitOpt();
  if (args.empty()) return true;
  bool ok = parse_split_type(args[0], split.type);
  if (!ok) ERROR_MSG("split argument error, argument must be in {sd,ch,sa,ud,id,cl,bi}");
  if (args.size() > 1 && (!parse_count(args[1], split.ns) || split.ns < 2 || split.ns > MAX_CH_SPLIT)) {
    ERROR_MSG("split argument error, argument 2 (number of channels) out of range [2," << MAX_CH_SPLIT
                                                                                       << "]");
    return false;
  }
  if (args.size() > 2) split.map_file = args[2];
  ok = ok && settle_split_count(split, "");
  if (ok && split.type == SplitType::direction && !split.map_file.empty())
    WARNING_MSG("map file argument ignored for scan direction split");
  return ok;
}

bool settle_split_count(SplitOpt& split, const std::string& where) {
  const bool halves = split.type == SplitType::direction || split.type == SplitType::angle;
  if (halves && split.ns == 0) split.ns = 2;
  if (halves && split.ns != 2) {
    ERROR_MSG("n=2 required for split type " << split_word(split.type) << where);
    return false;
  }
  if (split.ns != 0) return true;
  ERROR_MSG("attribute 'n' required for split type " << split_word(split.type) << where);
  return false;
}

bool read_bore_file(const std::vector<std::string>& lines, const std::string& name, int ns,
                    const std::string& from, const std::string& where, std::vector<xyz>& bore) {
  LOG_ENTER("read_bore_file ns=" << ns << " lines=" << lines.size() << " name='" << name << "'");
  bore.clear();
  if (lines.empty()) {
    ERROR_MSG("empty bore file " << name);
    return false;
  }
  std::vector<double> v;
  for (size_t i = 0; i < lines.size(); i++) {
    if (static_cast<int>(i) == ns) {
      ERROR_MSG("too many lines, need " << ns << " lines for bore file " << name);
      return false;
    }
    if (!parse_numbers(lines[i], v) || v.size() != 3) {
      ERROR_MSG("could not parse line " << i + 1 << " of bore file " << name);
      return false;
    }
    bore.push_back({static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])});
  }
  LOG_LINE("bore.size()=" << bore.size());
  if (static_cast<int>(bore.size()) == ns) return true;
  ERROR_MSG("missing lines, need " << ns << " lines for <bore> " << from << where);
  return false;
}

bool read_map_file(const std::vector<std::string>& lines, const std::string& name, int ns,
                   const std::string& from, const std::string& where, std::vector<int>& map) {
  LOG_ENTER("read_map_file ns=" << ns << " nv=" << lines.size() << " name='" << name << "'");
  map.assign(SPLIT_VALUES, 0);
  if (lines.empty()) {
    ERROR_MSG("empty channel map file " << name);
    return false;
  }
  int need = ns;  // each channel needs a value, and the highest value as many lines
  std::vector<double> v;
  for (size_t i = 0; i < lines.size(); i++) {
    const bool numbers = parse_numbers(lines[i], v) && (v.size() == 1 || v.size() == 2);
    const double value = numbers && v.size() == 2 ? v[0] : static_cast<double>(i);
    if (!numbers || !whole_in(value, 0, SPLIT_VALUES - 1) || !whole_in(v.back(), 0, MAX_CH_SPLIT)) {
      ERROR_MSG("could not parse line " << i + 1 << " of channel map file " << name);
      return false;
    }
    if (v.back() <= ns) map[static_cast<size_t>(value)] = static_cast<int>(v.back());
    need = std::max(need, static_cast<int>(value));
  }
  LOG_LINE("map.size()=" << map.size());
  if (static_cast<int>(lines.size()) >= need) return true;
  ERROR_MSG("missing lines, need at least " << need << " lines in <map> " << from << where);
  return false;
}

bool read_list_file(const std::string& name, std::vector<std::string>& lines) {
  lines.clear();
  TxtFileIn in(name, true);
  if (!in.is_open()) return false;
  std::string line;
  while (in.getline(line)) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    if (lines.size() == MAX_LIST_LINES) {
      ERROR_MSG("more than " << MAX_LIST_LINES << " lines in file " << name);
      return false;
    }
    lines.push_back(line);
  }
  return true;
}
}  // namespace veld
