// prj/LiDAR/POio/POcheck.h
// Plausibility of trajectory records, in the order of the file.
// Here:     the list under construction: records that fit to those before them are taken, single wrong ones are
//           dropped and counted; rollovers of the clock; the judgement on a whole file.
// Not here: reading (read_SBET, read_txt_PO), the limits' options (tuning.h).
//
// A record that does not continue the last one taken waits, also one behind a gap. If the next record continues
// the last one taken, or does not fit to those that wait, these were wrong. When a number of waiting records fit
// to each other they are taken: behind a gap, behind a jump, or in the place of wrong ones before them. So
// neither a wrong time nor a wrong position can carry others away with it.
#pragma once
#include <string>
#include <vector>

#include "prj/LiDAR/POio/POio.h"

namespace veld {
struct POcheck {
  std::string path;         // for messages
  const char* what = "";    // the format's word in messages
  int coord = PO_PROJ;      // POcoord of the records
  double period = 0;        // s, rollovers so far: added to the times of records as they come
  std::vector<PO> rec;      // taken, times rising
  uint64_t ntaken = 0;      // all that were taken, also those that a reader has removed from the front of rec
  uint64_t nbad = 0;        // values that aren't finite or out of all bounds
  uint64_t ncoord = 0;      // coordinates beyond the limits of their kind
  uint64_t ndup = 0;        // copies of the record before them; no fault, whatever their number
  uint64_t ntime = 0;       // times that don't rise
  uint64_t nstep = 0;       // steps that no platform makes (-po_speed, -po_climb, -po_rate)
  uint64_t njump = 0;       // such steps with good records on both sides
  std::vector<PO> waiting;  // don't fit to rec.back(), but to each other
  uint64_t run = 0;         // records at the end of rec since its start or the last jump
  double dt = 0;            // s, last step of rec within a run; 0: none
  double tend = 2e307;      // s, no time is later
};

// Takes the next record of the file; its time without the rollovers found so far.
void add_PO(POcheck& list, PO rec);
// Decides on the records that wait at the end of the file.
void end_PO(POcheck& list);
// Judges a list that is complete: false after an ERROR line when fewer than two samples are left or too many
// were wrong (-po_bad). Moves the samples to po; a WARNING gives the count of those dropped.
[[nodiscard]] bool finish_PO(POcheck& list, Vector<PO>& po);

// The time at the end of a file, from the times of its last records in order (or its first ones in reverse
// order): the outermost of those that lie together, or of all that are finite when these are few. NaN when there
// is no such time.
double end_time(const std::vector<double>& times);
}  // namespace veld
