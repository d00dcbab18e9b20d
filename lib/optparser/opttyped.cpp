#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "lib/general/filelist.h"
#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/optparser/optparser.h"

namespace veld {
namespace {
std::string key_of(const OptParser& p, const std::string& longopt, const std::string& shortopt) {
  return "-" + (p.mode == 1 ? longopt : shortopt);
}

// A typed question that fails takes its option back from the list of those that were given.
bool fail(OptParser& p) {
  p.error = true;
  p.given.pop_back();
  return false;
}

bool parse_int(const std::string& text, int64_t& value) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno == ERANGE) return false;
  value = v;
  return true;
}

bool parse_double(const std::string& text, bool float_parse, double& value) {
  char* end = nullptr;
  value =
      float_parse ? static_cast<double>(std::strtof(text.c_str(), &end)) : std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0';
}

double as_float(double x) {
  return std::fabs(x) <= static_cast<double>(FLT_MAX) ? static_cast<double>(static_cast<float>(x)) : x;
}

// Three decimals, but bounds that mean "any number" do not fill the screen with digits.
std::string number_text(double x) {
  if (std::fabs(x) < 1e15) return LOG_STR(x);
  char text[32];
  std::snprintf(text, sizeof text, "%g", x);
  return text;
}

std::string keeping_text(double deflt, double min) {
  if (deflt < min) return "keeping default value (auto)";
  return LOG_STR("keeping default value " << deflt);
}

// One number of an option; name is "option -x" with its argument's index where there are several.
bool check_double(const std::string& text, const std::string& name, bool float_parse, double min, double max,
                  const std::string& keeping, double& value) {
  double v;
  if (!parse_double(text, float_parse, v)) {
    ERROR_MSG(name << ": invalid input '" << text << "', numeric required, " << keeping);
    return false;
  }
  if (float_parse) {
    min = as_float(min);
    max = as_float(max);
  }
  if (!(v >= min && v <= max)) {
    ERROR_MSG(name << ": value " << number_text(v) << " out of range [" << number_text(min) << ","
                   << number_text(max) << "], " << keeping);
    return false;
  }
  value = v;
  return true;
}

const double& at_or_last(const Vector<double>& v, size_t i) {
  return v(static_cast<int64_t>(i < v.size() ? i : v.size() - 1));
}
}  // namespace

bool GetOptFlag(OptParser& p, const std::string& longopt, const std::string& shortopt) {
  std::vector<std::string> args;
  return GetOpt(p, args, longopt, shortopt, 0, 0, !shortopt.empty());
}

bool GetOptString(OptParser& p, std::string& value, const std::string& longopt, const std::string& shortopt) {
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, 1, 1, !shortopt.empty())) return false;
  value = args[0];
  return true;
}

bool GetOptFileName(OptParser& p, std::string& value, const std::string& longopt,
                    const std::string& shortopt) {
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, 1, 1, !shortopt.empty())) return false;
  if (has_illegal_chars(args[0])) {
    ERROR_MSG("option " << key_of(p, longopt, shortopt) << ": invalid file name '" << args[0]
                        << "' (illegal characters), keeping " << value);
    return fail(p);
  }
  value = args[0];
  return true;
}

bool GetOptDirectory(OptParser& p, std::string& value, const std::string& longopt,
                     const std::string& shortopt) {
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, 1, 1, !shortopt.empty())) return false;
  const std::string dir = expand_refdir(args[0], p.refdir);
  if (!is_directory(dir)) {
    ERROR_MSG("option " << key_of(p, longopt, shortopt) << ": invalid directory '" << args[0] << "', keeping "
                        << value);
    return fail(p);
  }
  value = dir;
  return true;
}

bool GetOptInt(OptParser& p, int64_t& value, const std::string& longopt, const std::string& shortopt,
               int64_t min, int64_t max) {
  const bool boolean = min == 0 && max == 1;
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, boolean ? 0 : 1, 1, !shortopt.empty())) return false;
  const std::string key = key_of(p, longopt, shortopt);
  int64_t v = 1;
  const bool is_number = args.empty() || parse_int(args[0], v);
  const bool in_range = v >= min && v <= max;
  if (!is_number || (boolean && !in_range)) {
    ERROR_MSG("option " << key << ": invalid argument '" << args[0] << "', "
                        << (boolean ? "boolean (0 or 1)" : "integer") << " required, keeping default value "
                        << value);
    return fail(p);
  }
  if (!in_range) {
    ERROR_MSG("option " << key << ": value " << v << " out of range [" << min << "," << max
                        << "], keeping default value " << value);
    return fail(p);
  }
  value = v;
  return true;
}

bool GetOptDouble(OptParser& p, double& value, const std::string& longopt, const std::string& shortopt,
                  bool float_parse, double min, double max) {
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, 1, 1, !shortopt.empty())) return false;
  const std::string name = "option " + key_of(p, longopt, shortopt);
  return check_double(args[0], name, float_parse, min, max, keeping_text(value, min), value) || fail(p);
}

bool GetOptDoubles(OptParser& p, Vector<double>& value, const std::string& longopt,
                   const std::string& shortopt, const Vector<double>& min, const Vector<double>& max) {
  const int n = static_cast<int>(value.size());
  return GetOptDoubles(p, value, longopt, shortopt, min, max, n, n, false);
}

bool GetOptDoubles(OptParser& p, Vector<double>& value, const std::string& longopt,
                   const std::string& shortopt, const Vector<double>& min, const Vector<double>& max,
                   int nargmin, int nargmax, bool float_parse) {
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, nargmin, nargmax, !shortopt.empty())) return false;
  Vector<double> list(args.size());
  bool good = true;
  for (size_t i = 0; i < args.size(); i++) {
    std::string name = "option " + key_of(p, longopt, shortopt);
    if (args.size() >= 2) name += ", argument " + std::to_string(i + 1);
    const double lo = at_or_last(min, i);
    const std::string keeping =
        i < value.size() ? keeping_text(value[i], lo) : std::string("keeping default value");
    if (!check_double(args[i], name, float_parse, lo, at_or_last(max, i), keeping, list[i])) good = false;
  }
  if (!good) return fail(p);
  value.swap(list);
  return true;
}

bool GetOptInts(OptParser& p, Vector<int>& value, const std::string& longopt, const std::string& shortopt,
                int min, int max, int nargmin, int nargmax) {
  std::vector<std::string> args;
  if (!GetOpt(p, args, longopt, shortopt, nargmin, nargmax, !shortopt.empty())) return false;
  Vector<int> list(args.size());
  bool good = true;
  for (size_t i = 0; i < args.size(); i++) {
    const std::string name = "option " + key_of(p, longopt, shortopt) + ", argument " + std::to_string(i + 1);
    int64_t v = 0;
    if (!parse_int(args[i], v)) {
      ERROR_MSG(name << ": invalid argument '" << args[i] << "', integer required");
      good = false;
    } else if (v < min || v > max) {
      ERROR_MSG(name << ": value " << v << " out of range [" << min << "," << max << "]");
      good = false;
    } else {
      list[i] = static_cast<int>(v);
    }
  }
  if (!good) return fail(p);
  value.swap(list);
  return true;
}
}  // namespace veld
