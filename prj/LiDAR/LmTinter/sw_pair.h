// prj/LiDAR/LmTinter/sw_pair.h
// A pair of overlapping swaths, as the lists of pairs hold it.
#pragma once
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
struct SwPair {  // a pair of the list
  SwathId sw1;   // the lower swath number: the moved image
  SwathId sw2;
  bool reg = true;  // false: only its height differences are wanted
  int number = -1;  // Pair# of all files and logs: the place in the index
};
}  // namespace veld
