// Heights of a swath on the cells of a tile, as they are or with the correction applied.
#pragma once
#include "lib/DataStructure/image.h"
#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"
#include "prj/LiDAR/LmTinter/corr_field.h"

namespace veld {
// Pixels around the tile that comp_cells needs: for shifts up to `shift` metres.
int sep_margin(float shift, float GSD);

// Means of the grid's heights in cells of sub x sub pixels of the tile at (XI, YI). field: the swath's correction there;
// null: as it is. A point moves by the correction c, so the height at p is that of the grid at p - c, plus c.z. Z keeps
// NODATA where the correction or the grid has none. margin: see sep_margin.
[[nodiscard]] GridRead comp_cells(const SwGrid& grid, uint32_t XI, uint32_t YI, int sub, int margin,
                                  float GSD, const TileCorr* field, Image<float>& Z);
}  // namespace veld
