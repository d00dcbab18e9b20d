// image/tiff_out.h
// A GeoTIFF written row by row: memory holds a row of blocks of each level and no more.
// Here:     TiffOut.
// Not here: values and their codes (raster_out.h), small pictures in memory (save_image.h).
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "image/geo_place.h"
#include "image/tiff_block.h"

namespace veld {
struct TiffSpec {
  Pixel pixel = Pixel::u8;
  int xsize = 0, ysize = 0;
  bool cog = true;     // tiles and overviews in the layout of a Cloud Optimized GeoTIFF, else strips
  bool nodata = true;  // 0 (f32: -9999) is no value; never for rgb
  double scale = 1;    // value = scale x sample + offset; 0: the samples are no values
  double offset = 0;
  std::string unit;  // of the values
  ImgPlace place;    // m
  ImgCRS crs;
  int nthreads = 1;  // the bytes do not depend on it
};

class TiffOut {
 public:
  TiffOut();
  ~TiffOut();  // removes what has not been closed
  TiffOut(const TiffOut&) = delete;
  TiffOut& operator=(const TiffOut&) = delete;
  // All three: false after an ERROR line.
  [[nodiscard]] bool open(const std::string& name, const TiffSpec& spec);
  [[nodiscard]] bool put_rows(const void* rows, int n);  // xsize pixels a row, the top one first
  [[nodiscard]] bool close();  // asserts that all rows have come; gives the file its name

 private:
  struct State;
  std::unique_ptr<State> s_;
};
}  // namespace veld
