// prj/LiDAR/options/option_rows.h
// The segments of the option table, in the order of the questions; each adds its rows.
#pragma once
#include <iterator>
#include <vector>

#include "prj/LiDAR/options/options.h"

namespace veld {
void add_rows_run(Options& o, std::vector<OptRow>& rows);
void add_rows_input(Options& o, std::vector<OptRow>& rows);
void add_rows_po(Options& o, std::vector<OptRow>& rows);
void add_rows_out(Options& o, std::vector<OptRow>& rows);
void add_rows_map(Options& o, std::vector<OptRow>& rows);
void add_rows_reg(Options& o, std::vector<OptRow>& rows);
void add_rows_inv(Options& o, std::vector<OptRow>& rows);
}  // namespace veld
