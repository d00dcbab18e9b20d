#include "tests/run/hostile_project.h"

#include <algorithm>
#include <filesystem>

namespace veld {
namespace {
// The saved options name directories, the logs of the program and its summary tell times.
bool is_result(const std::string& name) {
  return !name.starts_with("veldrunner") && !name.ends_with("_opt.xml") && !name.ends_with("_run.json");
}

std::map<std::string, std::string> read_results(const std::string& dir) {
  std::map<std::string, std::string> results;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (const std::string name = entry.path().filename(); is_result(name))
      results[name] = read_text(entry.path());
  return results;
}

std::string folder(const HostileProject& p, int n) { return p.dir + "/o" + std::to_string(n); }
}  // namespace

HostileProject::HostileProject() {
  if (simulate(dir) && align().code == 0) good = read_results(folder(*this, 1));
  clear();
}

const HostileProject& hostile_project() {
  static const HostileProject one;
  one.clear();
  return one;
}

Args HostileProject::args(int n, int nthreads) const {
  for (const std::string& name : {dir + "/t", folder(*this, n)}) std::filesystem::create_directory(name);
  return Args("-mul -align -utm 33 -po traj.out -i L0?.las -out *_c.laz -tmpdir t") +
         Args{"-odir", "o" + std::to_string(n), "-nthreads", std::to_string(nthreads)};
}

RunOutput HostileProject::align(int n, const std::function<void()>& before) const {
  return program.run(args(n), before);
}

void HostileProject::clear() const {
  std::filesystem::remove_all(dir + "/t");
  for (int n = 1; n <= 4; n++) std::filesystem::remove_all(folder(*this, n));
  for (const auto& entry : std::filesystem::directory_iterator(program.home.path))
    if (entry.path().extension() == ".log") std::filesystem::remove(entry.path());
}

void HostileProject::clear_results(int n) const { std::filesystem::remove_all(folder(*this, n)); }

std::string HostileProject::differences(int n) const {
  std::string text;
  const std::map<std::string, std::string> now = read_results(folder(*this, n));
  for (const auto& [name, bytes] : good) {
    const auto at = now.find(name);
    if (at == now.end())
      text += name + " missing\n";
    else if (at->second != bytes)
      text += name + " differs\n";
  }
  for (const auto& [name, bytes] : now)
    if (!good.contains(name)) text += name + " beyond\n";
  return text;
}

std::string HostileProject::partial_results(int n) const {
  std::string text;
  for (const auto& [name, bytes] : read_results(folder(*this, n))) {
    const auto at = good.find(name);
    if (name == "project_PO_stat.log") continue;  // the table of the scan stands there first, whole
    if (at == good.end() || at->second != bytes) text += name + "\n";
  }
  return text;
}

std::vector<std::string> HostileProject::caches() const {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(dir + "/t")) paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  return paths;
}
}  // namespace veld
