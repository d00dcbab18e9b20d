#include "prj/LiDAR/options/availability.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
namespace {
using Kind = Availability::Kind;

void report(const OptRow& row) {
  ERROR_MSG("option -" << row.name << " is not available yet: " << row.availability.missing->reason);
}

// The value that switches an option off: empty, or zero.
bool is_off(const OptTarget& target) {
  return std::visit(
      [](const auto* value) {
        using T = std::decay_t<decltype(*value)>;
        if constexpr (std::is_arithmetic_v<T>)
          return *value == T(0);
        else
          return value->empty();
      },
      target);
}

// Whether the value of an option that is not available asks for the missing work.
bool asks(const OptRow& row) {
  return row.availability.kind == Kind::setting ||
         is_off(row.target) == (row.availability.kind == Kind::always);
}

// The rows of options that are not available, with the values of o. The targets point into values.
std::vector<OptRow> unavailable_rows(const Options& o, Options& values) {
  values = o;
  std::vector<OptRow> rows = option_rows(values);
  std::erase_if(rows, [](const OptRow& row) { return row.availability.is_available(); });
  return rows;
}
}  // namespace

bool check_available(const Options& o, const GivenSet& given) {
  Options values;
  bool ok = true;
  for (const OptRow& row : unavailable_rows(o, values)) {
    if (!asks(row) || !given.count(row.name)) continue;
    report(row);
    ok = false;
  }
  return ok;
}

void report_unavailable(const std::string& option) {
  Options values;
  for (const OptRow& row : unavailable_rows({}, values))
    if (row.name == option) report(row);
}

bool is_available(const std::string& option) {
  Options values;
  const std::vector<OptRow> rows = unavailable_rows({}, values);
  return std::none_of(rows.begin(), rows.end(), [&](const OptRow& row) { return row.name == option; });
}

std::vector<std::string> left_out(const Options& o, const GivenSet& given) {
  struct Subject {
    const Missing* missing;
    std::string options;
  };
  std::vector<Subject> subjects;
  Options values;
  for (const OptRow& row : unavailable_rows(o, values)) {
    const Missing* const missing = row.availability.missing;
    if (row.availability.kind == Kind::setting || !asks(row) || given.count(row.name)) continue;
    const auto known = std::find_if(subjects.begin(), subjects.end(),
                                    [&](const Subject& s) { return s.missing == missing; });
    if (known != subjects.end())
      known->options += std::string(" -") + row.name;
    else
      subjects.push_back({missing, std::string("-") + row.name});
  }
  std::vector<std::string> texts;
  for (const Subject& s : subjects) texts.push_back(std::string(s.missing->subject) + " (" + s.options + ")");
  return texts;
}

void warn_no_effect(const GivenSet& given) {
  Options o;
  std::string names;
  for (const OptRow& row : option_rows(o))
    if (row.availability.kind == Kind::no_effect && given.count(row.name))
      names += std::string(" -") + row.name;
  if (!names.empty()) WARNING_MSG("no effect, voxel experiments are not part of this version:" << names);
}
}  // namespace veld
