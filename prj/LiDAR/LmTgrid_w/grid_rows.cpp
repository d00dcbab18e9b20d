#include "prj/LiDAR/LmTgrid_w/grid_rows.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
std::vector<GridRow> list_grid_rows(const Project& prj) {
  std::vector<GridRow> rows;
  for (const Swath& from : prj.swaths.present()) {
    if (from.state == SwathState::no_grid) continue;
    SwGrid grid;
    if (!read_gZDSidx_tiles_idx(from.cache, grid) || static_cast<int>(grid.hdr.dim) != prj.scale.dim) {
      LOG_LINE("<!> gridok sw=" << from.id);
      continue;
    }
    GridRow row;
    row.sw = from.id;
    for (const TIsxy& t : grid.TI)
      row.YI0 = std::min<int64_t>(row.YI0, t.y), row.YI1 = std::max<int64_t>(row.YI1, t.y);
    rows.push_back(std::move(row));
  }
  if (rows.empty()) ERROR_MSG("no gridded data available");
  return rows;
}

bool turn_grid_row(const Project& prj, int64_t YI, GridRow& row) {
  if (YI < row.YI0 || YI > row.YI1) {
    row.grid.reset();
    return true;
  }
  if (row.grid) return true;
  const Swath& from = prj.swaths[row.sw];
  row.grid = std::make_unique<SwGrid>();
  if (read_gZDSidx_tiles_idx(from.cache, *row.grid)) return true;
  ERROR_MSG("missing/incompatible temp. grid files, swath " << from.path());
  return false;
}
}  // namespace veld
