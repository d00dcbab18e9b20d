// prj/LiDAR/LmTinter/corr_field.h
// Corrections of swaths on the microtile grid, and the displacement of a pair that they amount to.
// Here:     the field of a tile, the margin that moved images need for it.
// Not here: what makes the tables (VR2proc), registration and measurement under the field (LmTinter, LmTQC).
#pragma once
#include "lib/DataStructure/image.h"
#include "lib/Geometry/xyz.h"
#include "prj/LiDAR/LmTinter/inter_tiles.h"
#include "prj/LiDAR/LmTinter/scorr_tbl.h"
#include "prj/LiDAR/TNRreg/TNRreg.h"

namespace veld {
// Whether a table belongs to the tiles of a swath.
inline bool fits(const SCorrTbl& corr, const InterSwath& s) {
  return corr.C.empty() || corr.C.size() == s.grid.TI.size();
}

// Adds K times a field of displacements to another of the same size; no value (z NR_NODATA) in one is none in the sum.
void add_K_Def(float K, const Image<xyz>& Def, Image<xyz>& sum);

// The displacement field of a tile at the vertices of level J, in the units of NRresult::Def: a point of the first swath
// moves by c1, one of the second by c2, so the grids meet at p + (c2 - c1) and p. z is NR_NODATA where a swath has no
// correction.
Image<xyz> SCorr2Def(const InterSwath& s1, const InterSwath& s2, const SCorrTbl& c1, const SCorrTbl& c2,
                     const ToccTile& tile, float GSD, int J);

// The correction within a tile at any place, between the centres of the microtiles of it and of those around it.
class TileCorr {
 public:
  TileCorr(const SwGrid& grid, uint32_t XI, uint32_t YI, const SCorrTbl& corr);
  // x, y: microtiles from the tile's lower left corner. False where the table has none.
  bool at(float x, float y, xyz& c) const;

 private:
  static constexpr int SIDE = mTsub + 2;
  Image<xyz> C_;
};

// Largest correction along an axis in the plane, m.
float max_corr(const SCorrTbl& corr);
// Level J alone, with a margin for displacements of as many metres and the spline, within one tile.
RegLevels levels_for(float metres, const TileScale& scale, int J);
}  // namespace veld
