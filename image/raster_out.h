// image/raster_out.h
// A map of values on its way into picture files: coded, cut into parts, coloured, row by row.
// Here:     the settings that all pictures share, the scale of one map, RasterOut, colour bars.
// Not here: the files themselves (tiff_out.h, jpeg_out.h), pictures that stand in memory (save_image.h).
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "image/colormap.h"
#include "image/geo_place.h"
#include "lib/DataStructure/nodata.h"

namespace veld {
constexpr float IMG_NODATA = NODATA;  // a pixel without a value

struct ImgParam {           // of all pictures of a run
  bool OUTTIFF = false;     // -tiff
  bool OUTJPEG = true;      // -jpeg
  bool OUTWF = false;       // world files beside them (-wf)
  bool cog = true;          // TIFF in the layout of a Cloud Optimized GeoTIFF (-cog)
  bool tiff_float = false;  // TIFF of scalar maps as 32-bit values in real units (-tiff_float)
  bool empty = false;       // constant pictures are written too (-empty)
  bool inv = false;         // white background (-p_inv)
  int quality = 90;         // of JPEG (-quality)
  int maxsize = 32768;      // largest side of a file, pixels (-map_size)
  double OUTDATAUNIT = 1;   // m, unit of world files
  ImgCRS crs;
  int nthreads = 1;
  bool any() const { return OUTTIFF || OUTJPEG; }
};

// How values become grey levels and colours. Level 0 is "no value"; level 1 stands for z0, or for -range with mix,
// and the last one (255, or 65535 in 16 bits) for z0 + range, or +range. Values beyond are clipped to the ends.
struct ImgScale {
  float z0 = 0;
  float range = 1;
  float range16 = 1;    // the range of 16-bit files, not below range
  bool b16 = false;     // TIFF with 16 bits instead of 8
  bool mix = false;     // values of both signs about 0
  bool cyclic = false;  // colours repeat every range
  int color = 0;        // table of the JPEG, 0 grey
  std::string unit = "m";
};

uint8_t code8(const ImgScale& s, float value);
uint16_t code16(const ImgScale& s, float value);

class RasterOut {
 public:
  RasterOut();
  ~RasterOut();  // removes what has not been closed
  RasterOut(const RasterOut&) = delete;
  RasterOut& operator=(const RasterOut&) = delete;

  // name: path without extension; title: of the console lines ("Writing <title> image ..."). Nothing is written
  // when par asks for neither format. All calls: false after an ERROR line.
  [[nodiscard]] bool open(const std::string& name, const std::string& title, const ImgParam& par,
                          const ImgScale& scale, const ImgPlace& place, int xsize, int ysize);
  // The same for a picture that is made of colours.
  [[nodiscard]] bool open_rgb(const std::string& name, const std::string& title, const ImgParam& par,
                              const ImgPlace& place, int xsize, int ysize);
  // n rows of xsize pixels, the northern one first; ysize rows in all.
  [[nodiscard]] bool put_rows(const float* rows, int n);
  [[nodiscard]] bool put_rows(const RGBchar* rows, int n);
  // Gives the files their names, writes world files and the colour bar. Parts of one constant value are left out;
  // a WARNING says so when no part is left.
  [[nodiscard]] bool close();
  // Bytes that a picture of this width takes while it is open.
  static uint64_t memory(const ImgParam& par, const ImgScale& scale, int xsize);

 private:
  struct State;
  std::unique_ptr<State> s_;
};

// name + "_cmap_" + bottom + "_" + top + ".jpg": the colours from bottom to top with their values and unit, and the colour of
// pixels without a value. False after an ERROR line.
[[nodiscard]] bool save_cmap(const std::string& name, const ImgParam& par, const ImgScale& scale);
}  // namespace veld
