// prj/LiDAR/LmTgrid_w/grid_rows.h
// The grids of all swaths for work that passes over the tiles of the project row by row.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "prj/LiDAR/LmTgrid_w/LmTgrid_w.h"

namespace veld {
struct GridRow {  // a swath while rows of tiles cross it
  SwathId sw;
  int64_t YI0 = INT64_MAX, YI1 = -1;  // tiles, both ends inside
  std::unique_ptr<SwGrid> grid;       // while a row crosses it, else none
};

// The swaths of the project that have a grid of its scale; those without are logged. An ERROR line when there is none.
std::vector<GridRow> list_grid_rows(const Project& prj);
// Opens the grid when row YI crosses it and closes it otherwise. False after an ERROR line.
[[nodiscard]] bool turn_grid_row(const Project& prj, int64_t YI, GridRow& row);
}  // namespace veld
