#include "prj/LiDAR/inputs/read_options.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <thread>

#include "lib/general/log.h"
#include "lib/general/logfiles.h"
#include "prj/LiDAR/options/steer_opt.h"

namespace veld {
namespace {
struct FileOption {  // an option of which each occurrence is a group
  const char* name;
  std::vector<GroupArg> InputArgs::*groups;
  bool list;
};
const FileOption FILE_OPTIONS[] = {
    {"input", &InputArgs::mobile, false}, {"input_list", &InputArgs::mobile, true},
    {"ref", &InputArgs::fixed, false},    {"ref_list", &InputArgs::fixed, true},
    {"po", &InputArgs::po, false},        {"po_list", &InputArgs::po, true},
};

const FileOption* file_option(const char* name) {
  for (const FileOption& f : FILE_OPTIONS)
    if (std::strcmp(f.name, name) == 0) return &f;
  return nullptr;
}

struct FoundGroup {  // an occurrence of a file option
  const FileOption* option;
  OptOccurrence occurrence;
};

template <typename T>
std::vector<T> to_std(const Vector<T>& v) {
  return {v.begin(), v.end()};
}
template <typename T>
Vector<T> to_vector(const std::vector<T>& v) {
  Vector<T> result(v.size());
  std::copy(v.begin(), v.end(), result.begin());
  return result;
}

int64_t get_int(const OptTarget& target) {
  if (const auto* flag = std::get_if<bool*>(&target)) return **flag;
  if (const auto* wide = std::get_if<int64_t*>(&target)) return **wide;
  return *std::get<int*>(target);
}

void set_int(const OptTarget& target, int64_t value) {
  if (const auto* flag = std::get_if<bool*>(&target))
    **flag = value != 0;
  else if (const auto* wide = std::get_if<int64_t*>(&target))
    **wide = value;
  else
    *std::get<int*>(target) = static_cast<int>(value);
}

void ask_row(OptParser& p, const OptRow& row) {
  const std::string name = row.name, abbr = row.abbr;
  switch (row.kind) {
    case OptKind::flag:
      if (GetOptFlag(p, name, abbr)) *std::get<bool*>(row.target) = true;
      break;
    case OptKind::boolean:
    case OptKind::integer: {
      int64_t value = get_int(row.target);
      if (GetOptInt(p, value, name, abbr, static_cast<int64_t>(row.lo), static_cast<int64_t>(row.hi)))
        set_int(row.target, value);
      break;
    }
    case OptKind::real: {
      if (double* const* const wide = std::get_if<double*>(&row.target)) {
        GetOptDouble(p, **wide, name, abbr, false, row.lo, row.hi);
        break;
      }
      double value = static_cast<double>(*std::get<float*>(row.target));
      if (GetOptDouble(p, value, name, abbr, true, row.lo, row.hi))
        *std::get<float*>(row.target) = static_cast<float>(value);
      break;
    }
    case OptKind::text:
      GetOptString(p, *std::get<std::string*>(row.target), name, abbr);
      break;
    case OptKind::filename:
      GetOptFileName(p, *std::get<std::string*>(row.target), name, abbr);
      break;
    case OptKind::directory:
      GetOptDirectory(p, *std::get<std::string*>(row.target), name, abbr);
      break;
    case OptKind::textlist:
      GetOpt(p, *std::get<std::vector<std::string>*>(row.target), name, abbr, row.nmin, row.nmax,
             !abbr.empty());
      break;
    case OptKind::intlist: {
      auto& target = *std::get<std::vector<int>*>(row.target);
      Vector<int> value = to_vector(target);
      if (GetOptInts(p, value, name, abbr, static_cast<int>(row.lo), static_cast<int>(row.hi), row.nmin,
                     row.nmax))
        target = value.empty() ? std::vector<int>{1} : to_std(value);  // standing alone it means 1
      break;
    }
    case OptKind::reallist: {
      auto& target = *std::get<std::vector<double>*>(row.target);
      Vector<double> value = to_vector(target);
      if (GetOptDoubles(p, value, name, abbr, {row.lo}, {row.hi}, row.nmin, row.nmax, false))
        target = to_std(value);
      break;
    }
  }
}

// The flag may be followed by a word to look for.
void ask_help(CommandLine& cl, const OptRow& row) {
  std::vector<std::string> args;
  if (!GetOpt(cl.parser, args, row.name, row.abbr, 0, 1, true)) return;
  cl.o.help = true;
  if (!args.empty()) cl.help_word = args[0];
}

// Puts the groups in the order of the command line, however -i and -l alternate.
bool sort_groups(std::vector<FoundGroup>& found, InputArgs& in) {
  std::stable_sort(found.begin(), found.end(), [](const FoundGroup& a, const FoundGroup& b) {
    return a.occurrence.pos < b.occurrence.pos;
  });
  int last_input = -1, first_ref = INT_MAX;
  for (const FoundGroup& f : found) {
    (in.*f.option->groups).push_back({f.occurrence.args, f.option->list});
    if (f.option->groups == &InputArgs::mobile) last_input = std::max(last_input, f.occurrence.pos);
    if (f.option->groups == &InputArgs::fixed) first_ref = std::min(first_ref, f.occurrence.pos);
  }
  if (last_input < first_ref) return true;
  ERROR_MSG("inputs must always precede references in the command line");
  return false;
}

// What else is wrong with a command line that is refused already: the user shall see it all in one run.
void tell_other_mistakes(const CommandLine& cl, std::vector<FoundGroup>& found) {
  InputArgs in;
  Options o = cl.o;
  derive_defaults(o, cl.given);
  (void)sort_groups(found, in);
  (void)check_exclusions(o, cl.given, false);
  (void)check_steering(o);
}
}  // namespace

int default_nthreads() { return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 256); }
int default_nthreads_io() { return std::min(default_nthreads(), 8); }

bool read_options(CommandLine& cl) {
  LOG_ENTER("read_options argc=" << cl.parser.args.size());
  OptParser& p = cl.parser;
  cl.o.tuning.NTHREADS = default_nthreads();
  cl.o.tuning.NTHREADSIO = default_nthreads_io();
  const std::vector<OptRow> rows = option_rows(cl.o);
  std::vector<FoundGroup> found;
  for (p.mode = 1; p.mode >= 0; p.mode--)
    for (const OptRow& row : rows) {
      const FileOption* const file = file_option(row.name);
      if (!file) {
        if (row.target == OptTarget(&cl.o.help))
          ask_help(cl, row);
        else
          ask_row(p, row);
        if (cl.o.quiet) set_console(false);  // from here on, mistakes in other options are not shown either
        continue;
      }
      auto& all_args = *std::get<std::vector<std::string>*>(row.target);
      for (OptOccurrence& occurrence :
           GetOptAll(p, row.name, row.abbr, row.nmin, row.nmax, row.abbr[0] != '\0', true)) {
        all_args.insert(all_args.end(), occurrence.args.begin(), occurrence.args.end());
        found.push_back({file, std::move(occurrence)});
      }
    }
  for (const std::string& names : p.given) cl.given.insert(names.substr(names.find('|') + 1));

  const bool known = CheckUnknownOpt(p);
  if (p.error || !known) tell_other_mistakes(cl, found);
  if (p.error) ERROR_MSG("stopping due to option argument errors: use -h for help");
  if (!known) ERROR_MSG("stopping due to unknown options or syntax errors: use -h for help");
  return !p.error && known && sort_groups(found, cl.in);
}
}  // namespace veld
