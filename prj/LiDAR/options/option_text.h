// prj/LiDAR/options/option_text.h
// The option table in words, for the help, the man page and the completion of the shell.
// Here:     the examples, names, arguments and defaults of a row as text, the rows of a theme.
// Not here: the table (options.h), the layout of a page (help.h, manual.h).
#pragma once
#include <span>
#include <string>
#include <vector>

#include "prj/LiDAR/options/options.h"

namespace veld {
struct Example {
  const char* line;     // what stands behind the program's name
  const char* meaning;  // one line
};
std::span<const Example> examples();
// Its meaning, with the options in it that are not available yet.
std::string example_meaning(const Example& example);

// The option table and, in front, the three options that the parser asks by itself. The targets of these
// three are null, and all others point into o.
std::vector<OptRow> documented_rows(Options& o);

std::vector<OptRow> rows_of_theme(const std::vector<OptRow>& rows, Theme theme);
constexpr int N_THEMES = static_cast<int>(Theme::voxel) + 1;

std::string names_text(const OptRow& row);     // "-nthreads -N"
std::string argument_text(const OptRow& row);  // kind, range, number of arguments: "integer 1 to 256"
}  // namespace veld
