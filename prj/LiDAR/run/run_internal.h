// prj/LiDAR/run/run_internal.h
// What the steps of a run share: the options, the project, the decisions about the work.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "prj/LiDAR/VR2POsync/track_store.h"
#include "prj/LiDAR/inputs/read_options.h"
#include "prj/LiDAR/options/identity.h"
#include "prj/LiDAR/project.h"
#include "prj/LiDAR/run/run_report.h"

namespace veld {
enum class Step { on, done, failed };  // go on, finished with success, stop

inline Step step_of(bool ok) { return ok ? Step::on : Step::failed; }

struct Commands {  // what the run consists of
  bool reg_qc;     // goes through the scan sequence
  bool corr;       // -corr
  bool align;      // -align, -align2
  bool calib;      // -calib
  bool reg;        // displacements are measured
  bool man;        // corrections by hand, or attributes alone
  bool inv_corr;   // displacements are inverted
  bool corrects() const { return inv_corr || man; }
};

struct Run {
  const ProgramPaths& paths;
  CommandLine& cl;
  Project prj;
  Commands cmd = {};
  std::vector<uint8_t> xcls;  // classes to drop
  TrackStore tracks;          // trajectories that the check has read
  bool mistake = false;       // a mistake was found: the run stops once all are reported
  RunReport report = {};      // for NAME_run.json
};

// Units, coordinate system and the tests that end the run.
Step prepare_project(Run& run);
// Exclusions, steering strings and all lists of files. Every mistake is reported before the run stops.
Step list_inputs(Run& run);
// Commands that work on a trajectory alone; they end the run.
Step trajectory_commands(Run& run);
// The sequences: once, or twice with -align2.
Step process(Run& run);
}  // namespace veld
