// prj/LiDAR/run/run_steps.h
// The order of the work of one run, behind its logs: options, checks, project, sequences, clean-up.
#pragma once
#include <string>

#include "prj/LiDAR/inputs/read_options.h"
#include "prj/LiDAR/options/identity.h"

namespace veld {
// Does the whole run. The result is its exit value, 0 or 1; cl holds what the exit procedure needs.
int run_program(int argc, char** argv, const ProgramPaths& paths, CommandLine& cl);
}  // namespace veld
