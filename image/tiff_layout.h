// image/tiff_layout.h
// The head of a GeoTIFF: directories of the image and its overviews, in front of all pixel data.
// Here:     the bytes from the file's first to the first block, for blocks whose sizes are known.
// Not here: pixels (tiff_block.h), the file (tiff_out.h).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "image/geo_place.h"
#include "image/tiff_block.h"

namespace veld {
struct TiffLevel {  // the image, or an overview of half the size of the level before
  int xsize = 0, ysize = 0;
  std::vector<uint64_t> sizes;  // bytes of the blocks, row by row
};

struct TiffHead {
  Pixel pixel = Pixel::u8;
  bool tiled = true;            // blocks are tiles, else strips of the full width
  int bwidth = 0, bheight = 0;  // size of a block
  ImgPlace place;               // in units of the coordinate system
  GeoTiffTags keys;
  std::string nodata;  // empty: none
  double scale = 1;    // value = scale x sample + offset; 0: the samples are no values
  double offset = 0;
  std::string unit;               // of the values
  std::vector<TiffLevel> levels;  // the image first
};

// Lays the file out: head, then the blocks of the levels from the last to the first, each in order. Classic up to
// 4 GB, BigTIFF beyond. nbytes: size of the whole file.
std::vector<uint8_t> make_tiff_head(const TiffHead& head, uint64_t& nbytes);
}  // namespace veld
