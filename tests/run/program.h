// tests/run/program.h
// A copy of the program in a directory of its own, so that its lock, logs and option file are the test's.
#pragma once
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/args.h"
#include "tests/support/temp_dir.h"

namespace veld {
struct RunOutput {
  int code = -1;  // exit value; -1 when a signal ended the process
  std::string out, err;
};

struct Program {
  TempDir home;  // of the program
  TempDir work;  // its current directory
  std::string base = home.path + "/veldrunner";
  Program();
  // before: what the process does first, such as limits on itself.
  RunOutput run(const Args& args, const std::function<void()>& before = {}) const;
  // Starts it and returns at once; finish() waits for the end.
  pid_t start(const Args& args, const std::function<void()>& before = {}) const;
  RunOutput finish(pid_t pid) const;
  std::string log() const { return read_text(base + ".log"); }
};

// Writes the smallest simulated project into a directory: L01.las to L03.las, traj.out, zone 33.
bool simulate(const std::string& dir);
// Writes the one that veldsim makes of the options; the directory is made if absent.
bool simulate(const std::string& dir, const std::string& options);

// Waits up to ten seconds for a file.
bool wait_for(const std::string& path);
}  // namespace veld
