// prj/LiDAR/LmTQCimg/map_param.h
// What the options say about maps and plots, and the coordinate system as pictures carry it.
// Here:     MapParam, the scales of the kinds of maps, ImgCRS of a project.
// Not here: drawing (fast_QC.h, tile_map.h, vec_map.h), files (image/).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "geo/georef.h"
#include "image/raster_out.h"
#include "image/save_image.h"

namespace veld {
struct MapParam {
  ImgParam img;        // formats, world files, size of files
  bool maps = true;    // maps are drawn (-map)
  bool plots = true;   // scatter plots and histograms are drawn (-plot)
  bool ascii = false;  // maps and plots as text too (-ascii)
  int DZ_sub = 4;      // grid pixels along a pixel of a map (-sub)
  // Maps of the fast QC beside the height differences.
  bool OUTD = false, OUTR = false, OUTZ = false, OUTS = false;  // -dmap, -rmap, -zmap, -smap
  bool OUTI = false;                                            // -imap
  float dz_range = 0.5f;                                        // m, full scale (-dz_range)
  float dz16_range = 4;                                         // m, of 16-bit files (-dz16_range)
  bool DZ_16 = false;                                           // -dz16
  bool DZ_mix = false;                                          // with sign (-dz_mix)
  int dz_color = 7, z_color = 8, r_color = 6, d_color = 8;
  int d_range = 8;                 // points/m2, full scale (-d_range)
  float z_range = 0;               // m, full scale; 0: from the data (-z_range)
  float z_min = 0;                 // m, lowest elevation, with a z_range (-z_min)
  bool z_cyc = false;              // -z_cyc
  VectorStyle vectors;             // -vmap_rgb, -vmap_sep, -vmap_max, -v_range, -v_color
  float u_range = 0.2f;            // m, full scale of uncertainties (-u_range)
  bool sep = false;                // swath separation images and tables (-sep)
  std::vector<uint8_t> xcls;       // classes that the run leaves out (-drop_class and its kin)
  int sep_ql = 2;                  // quality level whose limits they show, 0 to 3 (-sep_ql)
  bool h_log = false;              // -h_log
  float p_range = 0, h_range = 0;  // m, of scatter plots and histograms; 0: -v_range and -dz_range
  int p_size = 100, h_size = 100;  // pixels
};

struct GtileParam {   // gridded tiles as files
  bool raw = false;   // of the swaths as they are (-ogtile)
  bool corr = false;  // with their corrections (-ogtile_corr)
  bool tiff = false;  // as TIFF with a world file too (-ogtile_tiff)
  bool ref = false;   // of the references too (-ogtile_ref)
};

// What is drawn at all: nothing without a format.
inline bool draws_maps(const MapParam& par) { return par.maps && par.img.any(); }
inline bool draws_plots(const MapParam& par) { return par.plots && par.img.any(); }

// Whether maps of the grids are drawn beside the height differences.
inline bool draws_grids(const MapParam& par) {
  return draws_maps(par) && (par.OUTD || par.OUTR || par.OUTZ || par.OUTS || par.OUTI);
}

ImgScale dz_scale(const MapParam& par);  // of height differences: with sign or as magnitudes
// Pixels along the side of a map pixel that tiles of n grid pixels a side allow: -sub, or the next smaller divisor
// of n, so that no pixel of a map lies on two tiles.
int map_sub(int sub, int n);

ImgCRS make_ImgCRS(const GeoRefParam& georef);
}  // namespace veld
