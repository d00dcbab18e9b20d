// prj/LiDAR/LmTQCimg/pair_maps.h
// Project-wide pictures that pairs of swaths fill one after the other: height differences, vectors.
// Here:     DZpicture, VecPicture, with their histogram and scatter plots.
// Not here: the measurements (TNRreg, VR2inv), maps straight from the grids (fast_QC.h).
#pragma once
#include <string>
#include <vector>

#include "image/save_image.h"
#include "prj/LiDAR/LmTQCimg/map_param.h"
#include "prj/LiDAR/LmTQCimg/tile_map.h"
#include "prj/LiDAR/LmTplot/LmTplot.h"
#include "prj/LiDAR/project.h"

namespace veld {
// Height differences at a map pixel: the one of largest magnitude of all pairs, first swath less second.
class DZpicture {
 public:
  // Nothing is drawn, and all calls succeed, when par asks for neither maps nor plots or the frame is empty. frame:
  // tiles of the project.
  [[nodiscard]] bool open(const Project& prj, const TileInfo& frame, const MapParam& par);
  bool active() const { return map_.is_open(); }  // something is drawn
  int sub() const { return sub_; }                // grid pixels along a map pixel
  // cells: by tile, second swath less first as they are measured, -9999 without; tiles as DZmap has them.
  [[nodiscard]] bool add(const Tocc& tiles, const Vector<Image<float>>& cells);
  // Writes name and, with plots, name + "_hist". title: "... Z-difference".
  [[nodiscard]] bool save(const std::string& name, const std::string& title) const;
  const DZHistogram& histogram() const { return hist_; }

 private:
  MapParam par_;
  double Tsize_ = 0;
  int sub_ = 1;
  TileMap<float> map_;
  DZHistogram hist_;
};

// Combines a signed displacement into an image of signed values ("mix signed"): axis by axis that of larger
// magnitude. The magnitudes of the result are the image of the largest ones ("max abs"). Elements without a value have
// z IMG_NODATA.
void update_mix_XYZ(xyz& to, const xyz& v);

// Vectors on the vertices of a grid: a pixel a vertex, its centre on it.
class VecPicture {
 public:
  // gsize: m, spacing of the vertices, a divisor of the tile's side. range: m, of the pictures.
  [[nodiscard]] bool open(const Project& prj, const TileInfo& frame, const MapParam& par, double gsize);
  bool active() const { return map_.is_open(); }
  struct Sample {
    double X = 0, Y = 0;  // m, ground position
    xyz v = {0, 0, 0};    // m
  };
  [[nodiscard]] bool add(const std::vector<Sample>& samples);
  // The signed map: name + "_x", "_y", "_z" or as -vmap_* say, and with -ascii name + ".img.txt". style: range and colours.
  [[nodiscard]] bool save(const std::string& name, const std::string& title, const VectorStyle& style) const;
  // The same of magnitudes.
  [[nodiscard]] bool save_max_abs(const std::string& name, const std::string& title,
                                  const VectorStyle& style) const;
  [[nodiscard]] bool save_scatter(const std::string& name) const;  // name + "_XY", "_YZ", "_XZ"
  const TileMap<xyz>& map() const { return map_; }

 private:
  MapParam par_;
  double Tsize_ = 0, gsize_ = 0;
  TileMap<xyz> map_;
  ScatterPlanes planes_;
  [[nodiscard]] bool save_map(const std::string& name, const std::string& title, const VectorStyle& style,
                              bool magnitudes) const;
};

VectorStyle uncertainty_style(const MapParam& par);
}  // namespace veld
