// A small simulated project whose undisturbed results are known, aligned again and again under hostile conditions.
#pragma once
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/run/program.h"

namespace veld {
struct HostileProject {
  Program program;
  const std::string& dir = program.work.path;
  std::map<std::string, std::string> good;  // undisturbed results: name, bytes. Empty when that run failed.

  HostileProject();
  // Caches go to the folder t, results to o<n>; both are made when they are not there.
  Args args(int n, int nthreads = 1) const;
  RunOutput align(int n = 1, const std::function<void()>& before = {}) const;
  // Removes caches, results of all runs, and logs.
  void clear() const;
  void clear_results(int n) const;
  // What differs from the undisturbed results in o<n>; empty when nothing does, and nothing is missing.
  std::string differences(int n = 1) const;
  // Results that have their final names and are not the undisturbed ones, or parts of results that were left.
  std::string partial_results(int n = 1) const;
  std::vector<std::string> caches() const;  // paths, in order
};
// One for all tests of the process, cleared.
const HostileProject& hostile_project();
}  // namespace veld
