// prj/LiDAR/VR2proc/corr_tiles.h
// Correction into output tiles: what all swaths share, the share of one, the end.
// Not here: grid, pieces and files of tiles (tile_writer.h).
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/VR2proc/corr_swath.h"
#include "prj/LiDAR/VR2proc/tile_writer.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct CorrTiles {
  TileLayout grid;
  TileOutput out;
  uint64_t buffer = 0;  // points
  int id = 0;           // of points, see TileParam
  SwathVector<int> group;
  std::vector<SwathId> swc;
  std::vector<std::unique_ptr<TilePieces>> pieces;  // by number of the swath; of those that were corrected
};

// Reads the headers of the swaths, which must all hold the same kind of points, and lays out the grid. sid: the kind of
// run, for the headers. False after an ERROR line.
[[nodiscard]] bool prepare_tiles(const Project& prj, const CorrParam& par, const std::vector<SwathId>& swc,
                                 const std::vector<std::string>& sources, const std::string& sid,
                                 CorrTiles& tiles);
// Corrects a swath into its pieces. False after an ERROR line; it then has none.
[[nodiscard]] bool tile_corr_swath_las(CorrJob job, CorrTiles& tiles, CorrCount& count);
// Writes the tiles of all swaths that have pieces and "_tiles.log". False after an ERROR line.
[[nodiscard]] bool finish_tiles(CorrTiles& tiles, TileCount& count);
}  // namespace veld
