// prj/LiDAR/POio/POio_internal.h
// What the readers share: time scale of a file, rollovers, the list under construction and its checks.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"

// Shift and scale of a file's times from its first time stamp, with AUTO_ADJ applied; what is the format's
// word in messages. False after an ERROR line.
[[nodiscard]] bool file_time_scale(const std::string& path, double first, const POread& par, double& deltat,
                                   bool& adj);

// Period of the rollover that a fall of the time stamp by `fall` seconds stands for: a week, a day, or 0 if
// none.
double rollover_period(double fall);
void log_rollover(double period, uint64_t rec, double t, const char* what, const std::string& path);

// The samples of a window while they are read.
struct POlist {
  std::vector<PO> rec;
  uint64_t nbad = 0;    // values that aren't finite
  uint64_t ncoord = 0;  // coordinates beyond the limits of their kind
  uint64_t ntime = 0;   // times that don't rise
};
// Appends a sample if its values can be true and its time rises; counts it otherwise.
void add_PO(POlist& list, const PO& rec, bool geographic);
// Judges a list that is complete: false after an ERROR line when fewer than two samples are left or more were
// refused than taken. Moves the samples to po.
[[nodiscard]] bool finish_PO(POlist& list, const char* what, const std::string& path, bool geographic,
                             Vector<PO>& po);

[[nodiscard]] bool scan_SBET(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_SBET(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
[[nodiscard]] bool scan_txt_PO(const std::string& path, const POread& par, POscan& scan);
[[nodiscard]] bool read_txt_PO(const std::string& path, const POread& par, Vector<PO>& po, bool& tadj);
