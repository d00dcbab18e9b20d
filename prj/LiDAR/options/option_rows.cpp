// Rows of the option table from the calls that they are written with.
#include "prj/LiDAR/options/option_rows.h"

#include <sstream>

namespace veld {
namespace {
// The value of a target as the help prints it.
std::string default_text(const OptTarget& target) {
  std::ostringstream out;
  std::visit(
      [&out](const auto* value) {
        using T = std::decay_t<decltype(*value)>;
        if constexpr (std::is_same_v<T, std::string>) {
          out << (value->empty() ? "empty" : *value);
        } else if constexpr (std::is_arithmetic_v<T>) {
          out << *value;
        } else {
          for (size_t i = 0; i < value->size(); i++) out << (i > 0 ? " " : "") << (*value)[i];
        }
      },
      target);
  return out.str();
}
}  // namespace

OptRow flag(const char* name, const char* abbr, bool* target, Availability availability, Theme theme,
            const char* meaning) {
  return {name, abbr, OptKind::flag, 0, 0, 0, 0, target, "off", availability, theme, meaning};
}

OptRow boolean(const char* name, const char* abbr, OptTarget target, Availability availability, Theme theme,
               const char* meaning) {
  return {name,         abbr,  OptKind::boolean, 0, 1, 0, 1, target, default_text(target),
          availability, theme, meaning};
}

OptRow integer(const char* name, const char* abbr, int64_t lo, int64_t hi, OptTarget target,
               Availability availability, Theme theme, const char* meaning, const char* complete,
               const char* deflt) {
  return {name,
          abbr,
          OptKind::integer,
          static_cast<double>(lo),
          static_cast<double>(hi),
          1,
          1,
          target,
          deflt ? deflt : default_text(target),
          availability,
          theme,
          meaning,
          complete};
}

OptRow real(const char* name, const char* abbr, double lo, double hi, OptTarget target,
            Availability availability, Theme theme, const char* meaning, const char* complete,
            const char* deflt) {
  return {name,         abbr,  OptKind::real, lo,      hi, 1, 1, target, deflt ? deflt : default_text(target),
          availability, theme, meaning,       complete};
}

OptRow text(const char* name, const char* abbr, std::string* target, Availability availability, Theme theme,
            const char* meaning, const char* complete, const char* deflt) {
  return {name,         abbr,  OptKind::text, 0,       0, 1, 1, target, deflt ? deflt : default_text(target),
          availability, theme, meaning,       complete};
}

OptRow filename(const char* name, const char* abbr, std::string* target, Availability availability,
                Theme theme, const char* meaning, const char* complete) {
  return {name,         abbr,  OptKind::filename, 0,       0, 1, 1, target, default_text(target),
          availability, theme, meaning,           complete};
}

OptRow directory(const char* name, const char* abbr, std::string* target, Availability availability,
                 Theme theme, const char* meaning, const char* complete, const char* deflt) {
  return {name, abbr, OptKind::directory, 0, 0, 1, 1, target, deflt, availability, theme, meaning, complete};
}

OptRow texts(const char* name, const char* abbr, int nmin, int nmax, std::vector<std::string>* target,
             Availability availability, Theme theme, const char* meaning, const char* complete) {
  return {name,         abbr,  OptKind::textlist, 0,       0, nmin, nmax, target, default_text(target),
          availability, theme, meaning,           complete};
}

OptRow integers(const char* name, const char* abbr, int lo, int hi, int nmin, int nmax,
                std::vector<int>* target, Availability availability, Theme theme, const char* meaning) {
  return {name,  abbr,   OptKind::intlist, static_cast<double>(lo), static_cast<double>(hi),
          nmin,  nmax,   target,           default_text(target),    availability,
          theme, meaning};
}

OptRow reals(const char* name, const char* abbr, double lo, double hi, int nmin, int nmax,
             std::vector<double>* target, Availability availability, Theme theme, const char* meaning) {
  return {name, abbr,   OptKind::reallist,    lo,           hi,    nmin,
          nmax, target, default_text(target), availability, theme, meaning};
}
}  // namespace veld
