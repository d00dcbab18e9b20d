// prj/LiDAR/LmTQCimg/swath_maps.h
// Where the swaths lie: boxes, footprints, and maps of one pixel a microtile.
// Here:     save_bb_fp_N, save_Tovrimg.
// Not here: outlines (footprint.h), maps of the grids (fast_QC.h).
#pragma once
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTidx_w/swath_stat.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"

namespace veld {
struct SwathMapParam {
  bool BB = false;      // boxes and rectangles (-bb)
  bool FP = false;      // footprints (-fp)
  bool OUTOBJ = false;  // both as .obj too (-obj)
  bool images = false;  // counts, density, elevation, times, overlap (-scan)
  MapParam map;
};

// With BB: "_sw_bb.txt", "_sw_mbr.txt", "_sw_mbr.geojson"; with FP: "_sw_fp.txt", "_sw_fp.geojson"; the texts as .obj
// too. With images, of all swaths together, a pixel a microtile: "_mN" points, "_mD" density, "_mZ" mean height, "_dt"
// longest time interval, "_dev" largest time deviation; with -ascii "_mN.img.txt", and without images too "_tnsg.txt" and "_t.txt".
// Of the ground of all mobile swaths together (ovr: their counts): "_full_bb.txt", "_full_fp.txt", "_full_fp.geojson".
// False after an ERROR line.
[[nodiscard]] bool save_bb_fp_N(const Project& prj, const ProjectStat& stat, const Tovr& ovr,
                                const SwathMapParam& par);

// The number of swaths (or references, or groups) on each microtile, as a picture: name. An empty map draws nothing.
[[nodiscard]] bool save_Tovrimg(const std::string& name, const std::string& title, const Project& prj,
                                const MapParam& map, const Tovr& ovr);
}  // namespace veld
