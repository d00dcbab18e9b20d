// image/save_image.h
// Pictures that stand in memory: maps of a value, of counts or of vectors, scatter plots, histograms.
// Here:     save_XXimg and its kin.
// Not here: maps that are made in bands (raster_out.h).
//
// In all images of maps row 0 is the southern one; place is that of the upper left corner. All calls: false after
// an ERROR line.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "image/raster_out.h"
#include "lib/DataStructure/image.h"
#include "lib/Geometry/xyz.h"

namespace veld {
// A map of values, IMG_NODATA where there is none. T: float, or uint8_t and uint16_t whose 0 is no value.
[[nodiscard]] bool save_XXimg(const std::string& name, const std::string& title, const ImgParam& par,
                              const ImgScale& scale, const ImgPlace& place, const Image<float>& img);
[[nodiscard]] bool save_XXimg(const std::string& name, const std::string& title, const ImgParam& par,
                              const ImgScale& scale, const ImgPlace& place, const Image<uint16_t>& img);
[[nodiscard]] bool save_XXimg(const std::string& name, const std::string& title, const ImgParam& par,
                              const ImgScale& scale, const ImgPlace& place, const Image<uint8_t>& img);

struct VectorStyle {
  bool rgb = false;    // one picture: R is x, G is y, B is z (-vmap_rgb)
  bool sep = true;     // three pictures (-vmap_sep)
  bool max = false;    // one picture of the component of largest magnitude, with its sign (-vmap_max)
  float range = 0.5f;  // m, full scale (-v_range)
  int color = COLOR_VECTOR + 3;
  bool is_signed = true;  // false: uncertainties, from 0 to range
};
// A map of vectors, z IMG_NODATA where there is none: name + "_rgb", or "_x", "_y", "_z", or "_max". row_of gives row
// y, counted from the north, or null after an ERROR line; the rows are asked for in order, once a picture.
[[nodiscard]] bool save_img_Def(const std::string& name, const std::string& title, const ImgParam& par,
                                const VectorStyle& style, const ImgPlace& place, int xsize, int ysize,
                                const std::function<const xyz*(int y)>& row_of);

// Counts of vectors on the planes XY, YZ, XZ, each from -range to range.
struct ScatterPlanes {
  float range = 0.5f;  // m
  Image<uint32_t> XY, YZ, XZ;
  uint64_t n = 0, nout = 0;  // vectors, and those beyond the range, which are on no plane
};
ScatterPlanes make_scatter(int side,
                           float range);  // side: pixels (-p_size), made odd, so that 0 is a pixel's centre
void update_XY_YZ_XZ_img(ScatterPlanes& planes, const xyz& v);  // vectors beyond the range are left out
// Writes name + "_XY", "_YZ", "_XZ" as JPEG, or TIFF when the run makes no JPEG: axes through 0, counts as
// logarithmic shades.
[[nodiscard]] bool save_XY_YZ_XZ_img(const std::string& name, const ImgParam& par,
                                     const ScatterPlanes& planes);

// Counts of height differences; bin i of n holds the values from (i - n/2) x step on.
struct DZHistogram {
  float step = 0.01f;  // m
  std::vector<uint64_t> count;
};
// Draws the histogram from -range to range, side x side pixels (-h_size), into name + "_hist".
[[nodiscard]] bool save_DZH_img(const std::string& name, const ImgParam& par, const DZHistogram& h,
                                float range, bool logh, int side);
}  // namespace veld
