// prj/LiDAR/LmTinter/warp_pair.h
// Moved images of a pair, brought to the reference by a model of the corrections: what a registration then finds is the
// departure from the model, with all of the detail that the model has between the vertices taken out.
#pragma once
#include <vector>

#include "prj/LiDAR/DUTio/DUTio.h"
#include "prj/LiDAR/LmTinter/corr_at.h"
#include "prj/LiDAR/LmTinter/inter_tiles.h"

namespace veld {
constexpr int WARP_BUF = 16;  // margin of the images afterwards, grid pixels

struct ModelOfPair {
  CorrAt c1, c2;
  int level = 0;        // of the tiles
  double time_res = 0;  // s, in which an aircraft passes a microtile; 0: not known
};

// Replaces the prepared moved images (C, F, buf, a pyramid of this depth) by those moved by d(p) = c2(p) - c1(p + d(p)), heights included; there is
// nothing where the model or the moved image has nothing. Threads share the tiles; the images do not depend on their number.
void warp_moved(const InterTiles& inter, const ModelOfPair& model, int depth, int nthreads, NRpair& pair);

// Adds c2(P) - c1(P + d) at the vertices P to the departures of records, d the whole displacement, with their heights and
// times: what is left of it in an inversion are the departures. Records without a model are removed.
void add_model(const ModelOfPair& model, std::vector<DUTstr>& rec);
}  // namespace veld
