// prj/LiDAR/VR2proc/out_name.h
// Names of corrected files: the pattern prefix*suffix.ext applied to a source's base name.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/project.h"

namespace veld {
struct OutputName {
  std::string prefix, suffix;
  std::string ext;  // with its dot; empty: the source's extension
};

// Path of the corrected file of each swath of swc in directory odir (with its "/"). Swaths whose names would
// meet get "_g_" group "_sw_" swath appended; ndup counts them.
std::vector<std::string> comp_output_names(const OutputName& out, const std::string& odir, const Project& prj,
                                           const std::vector<SwathId>& swc, int& ndup);
}  // namespace veld
