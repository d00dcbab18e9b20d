// prj/LiDAR/LmTplot/swath_inter.h
// Which pairs of swaths can overlap, by their bounding boxes and rectangles alone.
#pragma once
#include <cstdint>
#include <utility>
#include <vector>

#include "prj/LiDAR/LmTidx_r/LmTidx_rec.h"
#include "prj/LiDAR/swath/swath_table.h"

namespace veld {
// Whether two boxes (kept points, X and Y) have a point in common; touching counts.
bool inter_BBOX(const LTidxInfo& a, const LTidxInfo& b);

// The same for the minimum bounding rectangles, each grown by margin (m) on all sides: the rectangles stand
// on the lower left corners of microtiles, so one microtile makes them cover the swaths. By the separating
// axes of the two rectangles.
bool inter_MBR(const LTidxInfo& a, const LTidxInfo& b, double margin);

using SwPairList = std::vector<std::pair<SwathId, SwathId>>;  // the lower number first; in order

struct SwathBox {  // of a swath
  SwathId id;
  bool fixed = false;
  LTidxInfo info{};
};

// Pairs that pass both tests and are not both fixed. nbb: pairs that pass the first. The boxes are swept along
// the axis in which they are short against the whole, so that only those are compared that meet along it.
SwPairList check_BBOX_MBR_fx_inter(const std::vector<SwathBox>& swaths, double mTsize, int& nbb);
}  // namespace veld
