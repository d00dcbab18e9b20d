// prj/LiDAR/options/outputs.h
// The files that a run writes, column by column.
// Here:     the table of outputs, as `-help outputs` and docs/outputs.md have it.
// Not here: the writers, each with its stage.
#pragma once
#include <string>
#include <vector>

namespace veld {
struct OutputTable {     // one file, or one table of a file that has several
  const char* suffix;    // behind NAME
  const char* header;    // of the file as it is written; empty without one
  const char* meaning;   // of the file
  const char* columns;   // lines "column: meaning, unit"
  bool picture = false;  // a map or plot: several files, with endings of their own behind the suffix
};
const std::vector<OutputTable>& output_tables();
// The table that a file belongs to; null for none. ending: the file's name without NAME.
const OutputTable* output_of(const std::string& ending);

// All of them, as Markdown.
std::string outputs_text();
}  // namespace veld
