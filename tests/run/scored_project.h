// tests/run/scored_project.h
// Corrected files of a whole run against the truth of a simulated project, which a test may spoil or bring into
// another form before.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "lib/Geometry/xyz.h"
#include "sim/score.h"
#include "tests/run/program.h"
#include "tests/support/las_bytes.h"

namespace veld {
// Scores the files of `out`, named by their stems and a suffix, against the files of truth of the same stems; unit:
// metres per unit of both. A file that is missing or has other points fails the test and gives an empty score.
ProjectScore score_files(const std::string& truth, const std::string& out,
                         const std::vector<std::string>& stems, const std::string& suffix = "_c",
                         const dxyz& unit = {1, 1, 1});

// The number behind the first occurrence of a label in a text; not a number without one.
double number_after(const std::string& text, const std::string& label);

struct ScoredRun {
  RunOutput run;
  bool scored = false;  // all corrected swaths are there and whole
  double rms = 0;       // m, of points less truth, in three dimensions
  double largest = 0;   // m, of any coordinate
};

struct ScoredProject {
  Program program;
  dxyz unit{1, 1, 1};  // metres per unit of the swaths
  const std::string& dir = program.work.path;

  // Simulates the smallest project with more options of the simulator.
  explicit ScoredProject(const Args& simulator = {});
  // Adds the trajectory that these options of the simulator make.
  void add_trajectory(const std::string& simulator) const;
  // Aligns with these options (input and trajectory among them) and scores.
  ScoredRun align(const Args& options) const;
  // Brings the bytes of every swath and its truth through change.
  void change_swaths(const std::function<void(std::string& bytes)>& change) const;
  // Swaths and truth in other units (metres per unit, horizontal and vertical).
  void change_units(double plane, double height);
};

}  // namespace veld
