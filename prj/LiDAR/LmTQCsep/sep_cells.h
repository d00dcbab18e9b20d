// prj/LiDAR/LmTQCsep/sep_cells.h
// Heights of a swath on the cells of a tile, as they are or with the correction applied.
#pragma once
#include "lib/DataStructure/image.h"
#include "prj/LiDAR/LmTQC/LmTQC.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"

namespace veld {
// side + 2 cells square: the tile's own and one around; cell (x + 1, y + 1) has its lower left corner at (x, y) cells from
// that of the tile.
struct SepCells {
  Image<float> Z;  // m, mean of the grid's heights, NODATA without any
  Image<float> S;  // m, mean roughness; negative where more than a quarter of the pixels have no height
  // Whether ground is open and flat there: covered, smooth, and sloping less than MAX_SLOPE. x, y: of the tile's own cells.
  bool open(int x, int y, float cell) const;
};
constexpr float MAX_SLOPE = 0.17632698f;  // tan(10 degrees)
constexpr float OPEN_ROUGHNESS = 0.1f;    // m, at most on open ground, unless a code of the grid is coarser

// Pixels around the tile that comp_cells needs: for shifts up to `shift` metres.
int sep_margin(int sub, float shift, float GSD);

// Cells of sub x sub pixels of the tile at (XI, YI). corr: of the swath, on its tiles; null: as it is. A point moves by
// the correction c, so the height at p is that of the grid at p - c, plus c.z. Z keeps NODATA, and S -1, where
// the correction or the grid has none. margin: see sep_margin.
[[nodiscard]] GridRead comp_cells(const SwGrid& grid, uint32_t XI, uint32_t YI, int sub, int margin,
                                  float GSD, const SCorrTbl* corr, SepCells& cells);
}  // namespace veld
