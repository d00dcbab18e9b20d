#include "tests/run/hostile_runs.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace veld {
namespace {
std::function<void()> preload(const std::string& variable, const std::string& value) {
  return [variable, value] {
    setenv("LD_PRELOAD", FAULT_SHIM_PATH, 1);
    setenv(variable.c_str(), value.c_str(), 1);
  };
}

void note(Tally& tally, int& count, const std::string& text) {
  count++;
  if (tally.notes.size() < 20000) tally.notes += text + "\n";
}

std::string error_lines(const std::string& err) {
  std::istringstream lines(err);
  std::string text;
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("ERROR") || line.starts_with("[")) text += "    " + line + "\n";
  return text;
}
}  // namespace

std::vector<FaultKind> count_calls(const HostileProject& project) {
  const std::string file = project.program.home.path + "/counts";
  project.clear();
  project.program.run(project.args(1), preload("VELD_FAULT_COUNT", file));
  std::istringstream lines(read_text(file));
  std::vector<FaultKind> kinds;
  for (FaultKind k; lines >> k.name >> k.calls;) kinds.push_back(k);
  return kinds;
}

void undisturbed_run(const HostileProject& project, const std::string& what, Tally& tally) {
  project.clear_results(1);
  const RunOutput again = project.align();
  const std::string differences = project.differences();
  if (again.code != 0 || !differences.empty())
    note(tally, tally.bad_rerun,
         what + ": rerun code " + std::to_string(again.code) + " " + differences + error_lines(again.err));
  for (const std::string& name : project.caches())
    if (name.ends_with(".lock") || name.ends_with(".part") || name.ends_with(".poc"))
      note(tally, tally.locks, what + ": left " + name);
}

void inject_fault(const HostileProject& project, const std::string& kind, long n, const std::string& how,
                  Tally& tally, int nthreads) {
  const std::string what = kind + ":" + std::to_string(n) + ":" + how;
  project.clear();
  const RunOutput r = project.program.run(project.args(1, nthreads), preload("VELD_FAULT", what));
  tally.tried++;
  const std::string differences = project.differences(), partial = project.partial_results();
  if (r.code == 0 && differences.empty())
    tally.went_on++;
  else if (r.code == 0)
    note(tally, tally.silent, what + ": silent " + differences);
  else if (r.code != 1)
    note(tally, tally.crashed, what + ": ended with " + std::to_string(r.code) + "\n" + r.err);
  else if (r.err.find("ERROR") == std::string::npos)
    note(tally, tally.wordless, what + ": no ERROR line\n" + r.err);
  else
    tally.ended++;
  if (r.code != 0 && !partial.empty())
    note(tally, tally.partial, what + ": partial " + partial + error_lines(r.err));
  undisturbed_run(project, what, tally);
}
}  // namespace veld
