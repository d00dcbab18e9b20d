// prj/LiDAR/POio/POio_internal.h
// What the readers share: time scale of a file, rollovers, margins.
#pragma once
#include <cmath>
#include <string>

#include "prj/LiDAR/POio/POio.h"
#include "prj/LiDAR/swath/swath_clock.h"

namespace veld {
// Shift and scale of a file's times from its first time stamp, with AUTO_ADJ applied; what is the format's
// word in messages. False after an ERROR line.
[[nodiscard]] bool file_time_scale(const std::string& path, double first, const POread& par, double& deltat,
                                   bool& adj);

void log_rollover(double period, uint64_t rec, double t, const char* what, const std::string& path);

constexpr uint64_t PO_MARGIN = 10;   // records kept beyond each end of a window
constexpr uint64_t END_RECORDS = 9;  // records at an end of a file, of which the time there is found

// Yaw as a file gives it, or, when angles are unrolled later, within half a turn: there floats are finest.
inline float file_yaw(double deg, const POread& par) {
  return static_cast<float>(par.unroll || std::fabs(deg) <= 180 ? deg : std::remainder(deg, 360.0));
}

// Says in a WARNING when a file's first time contradicts its format.
void check_time_format(const std::string& path, const char* what, double first, const POread& par);

[[nodiscard]] bool scan_SBET(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_SBET(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_TRJ(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_TRJ(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_SOL(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_SOL(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_BIN(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_BIN(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_POF(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_POF(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_las_PO(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_las_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_txt_PO(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_txt_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
}  // namespace veld
