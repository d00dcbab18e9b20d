// prj/LiDAR/inputs/read_options.h
// From the command line to option values: one loop asks the rows of the table, first by long, then by short
// names.
// Here:     the questions and what the program keeps of them.
// Not here: the rows (options.h), the parser (lib/optparser), derived defaults and rules (rules.h).
#pragma once
#include <string>

#include "lib/optparser/optparser.h"
#include "prj/LiDAR/inputs/inputs.h"
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/options/rules.h"

namespace veld {
struct CommandLine {
  Options o;
  OptParser parser;
  GivenSet given;         // long names of the options with a valid value
  InputArgs in;           // groups of files, in the order of the command line
  std::string help_word;  // argument of -help: only options that hold it
};

// Asks all rows in both passes. False after ERROR lines: bad values, unknown options, extra arguments, inputs
// behind references.
[[nodiscard]] bool read_options(CommandLine& cl);

// Threads of the hardware (1 to 256), and of these for file-bound stages (at most 8).
int default_nthreads();
int default_nthreads_io();
}  // namespace veld
