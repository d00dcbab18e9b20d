// prj/LiDAR/run/fill_param.h
// From options to the tuning values and to the parameter structs of the stages: the one place where an option
// meets the field that it sets.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/VR2proc/sequence_corr.h"
#include "prj/LiDAR/VR2proc/sequence_po.h"
#include "prj/LiDAR/options/options.h"
#include "prj/LiDAR/run/sequence.h"

namespace veld {
// Sets the globals of tuning.h (but directories and units).
void set_tuning(const Options& o);

// xcls: classes to drop. reg: the run registers.
void fill_scan_param(const Options& o, const std::vector<uint8_t>& xcls, bool reg, ScanParam& par);

void fill_po_scan_param(const Options& o, POscanParam& par);

// Parses -cal, -drift, -dpoc and -out on the way. False after an ERROR line.
[[nodiscard]] bool fill_corr_param(const Options& o, const std::string& dut, CorrParam& par);
}  // namespace veld
