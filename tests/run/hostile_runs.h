// Series of hostile runs and what came of them: injected faults, kills, early signals, flipped bits, runs side by
// side. Every series ends each of its rounds with an undisturbed run, whose bytes must be the known ones.
#pragma once
#include <string>
#include <vector>

#include "tests/run/hostile_project.h"

namespace veld {
struct Tally {
  int tried = 0;      // faults, kills, signals, flips or runs
  int ended = 0;      // runs that ended with 1 and an ERROR line, or died as they were made to
  int went_on = 0;    // runs that ended with 0 and the right bytes
  int silent = 0;     // with 0 and other bytes
  int wordless = 0;   // with 1 and no ERROR line
  int crashed = 0;    // otherwise: a signal, an abort, a value that is not theirs
  int partial = 0;    // left a result that is not whole
  int bad_rerun = 0;  // the undisturbed run afterwards failed or gave other bytes
  int locks = 0;      // locks and parts left behind by that run
  std::string notes;  // of everything but ended and went_on
  int bad() const { return silent + wordless + crashed + partial + bad_rerun + locks; }
};

// What the preloaded library counts in an undisturbed run, by kind of call.
struct FaultKind {
  std::string name;
  long calls = 0;
};
std::vector<FaultKind> count_calls(const HostileProject& project);

// Runs from nothing with the nth call of a kind failing (how: fail, from: and all later ones, short, eintr), then again
// undisturbed.
void inject_fault(const HostileProject& project, const std::string& kind, long n, const std::string& how,
                  Tally& tally, int nthreads = 1);

// The same run again; enters bad_rerun and locks.
void undisturbed_run(const HostileProject& project, const std::string& what, Tally& tally);
}  // namespace veld
