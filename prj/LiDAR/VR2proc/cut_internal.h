// prj/LiDAR/VR2proc/cut_internal.h
// The steps of cutting one point file, for the sources of cut_swaths.h.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "las/las_access.h"
#include "prj/LiDAR/VR2proc/cut_swaths.h"
#include "prj/LiDAR/swath/swath_clock.h"

namespace veld {
// From the times of a file to those of the lines: rollover first, then a constant.
struct CutClock {
  double first = 0;   // s, first time of the file as it is
  double deltat = 0;  // s
  double period = 0;  // s, of the rollover that was met; 0: none yet
  double operator()(double raw) {
    if (raw < first - FLIGHT_SPAN && period == 0) period = rollover_period(first - raw);
    return raw + deltat + (raw < first - FLIGHT_SPAN ? period : 0);
  }
};

// Times at which points lie, in steps that are fine against the gaps looked for.
class TimeBins {
 public:
  void add(double t);
  // Middles of the gaps of more than `gap` seconds, in order.
  std::vector<double> gaps(double gap) const;

 private:
  struct Bin {
    double first = 2e307, last = -2e307;  // s, times of its points
  };
  int64_t bin0_ = 0;  // number of the first bin
  std::vector<Bin> bins_;
};

struct CutPart {  // one file made of a source
  std::string name;
  int number = 0;  // line, or part of a line
  std::unique_ptr<LASwriter> writer;
  uint64_t npt = 0;
  int64_t nbytes = 0;
  double tmin = 2e307, tmax = -2e307;  // s, of its points on the clock of the lines
  TimeBins times;
};

struct CutCount {  // of one source
  uint64_t nread = 0, nwritten = 0, nbytes = 0;
  int nfiles = 0, ngap = 0;    // files made; files with gaps that were not cut
  int nrecut = 0, nextra = 0;  // files cut at gaps, and how many more these became
  int nfailed = 0;             // files with gaps that could not be cut
};

// Opens the file of a part with the header of its source. False after an ERROR line.
[[nodiscard]] bool open_part(const LASheader& source, const CutParam& par,
                             const std::vector<std::string>& sources, CutPart& part);

// Cuts a file again at the times `limits` (on the clock given) and removes it then. False after an ERROR line; the file
// stays then.
[[nodiscard]] bool cut_swath_las_1(const CutPart& whole, const CutClock& clock,
                                   const std::vector<double>& limits, const CutParam& par, CutCount& count);
}  // namespace veld
