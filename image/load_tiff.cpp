#include "image/load_tiff.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "image/tiff_block.h"
#include "lib/general/log.h"
#include "lib/general/path.h"

namespace veld {
namespace {
constexpr int64_t MAX_PIXELS = int64_t{1} << 31;
constexpr uint64_t MAX_BLOCK = uint64_t{1} << 30;  // bytes

struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};

struct Format {
  uint32_t xsize = 0, ysize = 0;
  uint16_t bits = 1, photometric = 1, samples = 1, planar = 1, compression = 1, sample_format = 1;
  uint32_t bwidth = 0, bheight = 0;  // block: tile, or strip of the full width
  bool tiled = false;
};

Format read_format(TIFF* t) {
  Format f;
  TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &f.xsize);
  TIFFGetField(t, TIFFTAG_IMAGELENGTH, &f.ysize);
  TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &f.bits);
  TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &f.photometric);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &f.samples);
  TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &f.planar);
  TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &f.compression);
  TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &f.sample_format);
  f.tiled = TIFFIsTiled(t) != 0;
  if (f.tiled) {
    TIFFGetField(t, TIFFTAG_TILEWIDTH, &f.bwidth);
    TIFFGetField(t, TIFFTAG_TILELENGTH, &f.bheight);
  } else {
    f.bwidth = f.xsize;
    TIFFGetFieldDefaulted(t, TIFFTAG_ROWSPERSTRIP, &f.bheight);
    f.bheight = std::min(f.bheight, f.ysize);
  }
  return f;
}

const char* fault_of(const Format& f) {
  if (f.xsize == 0 || f.ysize == 0 || static_cast<int64_t>(f.xsize) * f.ysize > MAX_PIXELS ||
      f.xsize > INT32_MAX || f.ysize > INT32_MAX)
    return "size";
  if (f.bits != 1 && f.bits != 8 && f.bits != 16 && f.bits != 32) return "bits per sample";
  if (f.photometric == 2 || f.photometric > 3) return "not grey";
  if (f.samples != 1) return "more than one sample a pixel";
  if (f.planar != PLANARCONFIG_CONTIG) return "planar configuration";
  if (f.tiled && (f.bwidth & 7) != 0) return "tile size";
  if (f.bwidth == 0 || f.bheight == 0) return "block size";
  return nullptr;
}

// Sample x of a row of a block as a byte.
uint8_t sample_byte(const Format& f, const uint8_t* row, uint32_t x) {
  if (f.bits == 1) return (row[x >> 3] >> (7 - (x & 7))) & 1;
  if (f.bits == 8) return row[x];
  if (f.bits == 16) {
    uint16_t v;
    std::memcpy(&v, row + 2 * size_t{x}, 2);
    return v == 0 ? uint8_t{0} : static_cast<uint8_t>(std::max(1, v >> 8));
  }
  if (f.sample_format == SAMPLEFORMAT_IEEEFP) {
    float v;
    std::memcpy(&v, row + 4 * size_t{x}, 4);
    return v == v && v != 0 ? uint8_t{255} : uint8_t{0};
  }
  uint32_t v;
  std::memcpy(&v, row + 4 * size_t{x}, 4);
  return v == 0 ? uint8_t{0} : static_cast<uint8_t>(std::max(1u, v >> 24));
}

bool read_blocks(TIFF* t, const Format& f, Image<uint8_t>& img) {
  const uint64_t row_bytes = f.tiled ? static_cast<uint64_t>(TIFFTileRowSize64(t)) : TIFFScanlineSize64(t);
  if (row_bytes == 0 || row_bytes < (uint64_t{f.bwidth} * f.bits + 7) / 8 ||
      row_bytes * f.bheight > MAX_BLOCK)
    return false;
  std::vector<uint8_t> block(row_bytes * f.bheight);
  const bool turned = f.photometric == PHOTOMETRIC_MINISWHITE;
  const uint8_t white = f.bits == 1 ? 1 : 255;
  uint32_t number = 0;
  for (uint32_t y0 = 0; y0 < f.ysize; y0 += f.bheight)
    for (uint32_t x0 = 0; x0 < f.xsize; x0 += f.bwidth, number++) {
      const auto size = static_cast<tmsize_t>(block.size());
      const tmsize_t got = f.tiled ? TIFFReadEncodedTile(t, number, block.data(), size)
                                   : TIFFReadEncodedStrip(t, number, block.data(), size);
      const uint32_t rows = std::min(f.bheight, f.ysize - y0);
      if (got < static_cast<tmsize_t>(row_bytes * rows)) return false;
      for (uint32_t y = 0; y < rows; y++) {
        const uint8_t* from = block.data() + y * row_bytes;
        uint8_t* to = img.row(static_cast<int>(y0 + y)) + x0;
        for (uint32_t x = 0; x < std::min(f.bwidth, f.xsize - x0); x++) {
          const uint8_t v = sample_byte(f, from, x);
          to[x] = turned ? static_cast<uint8_t>(white - v) : v;
        }
      }
    }
  return true;
}
}  // namespace

bool load_TIFF_gray(const std::string& name, Image<uint8_t>& img) {
  quiet_libtiff();
  const std::unique_ptr<TIFF, TiffCloser> tif(is_regular_file(name) ? TIFFOpen(name.c_str(), "rm") : nullptr);
  if (!tif) {
    ERROR_MSG("load_TIFF failed, file " << name);
    return false;
  }
  const Format f = read_format(tif.get());
  const int Bshift = f.bits > 8 ? f.bits - 8 : 0;
  LOG_LINE("load_TIFF_gray Bshift=" << Bshift << " bitspersample=" << f.bits
                                    << " photometric=" << f.photometric << " samplesperpixel=" << f.samples
                                    << " planarconfig=" << f.planar << " compression=" << f.compression
                                    << " rowsperstrip=" << f.bheight << " xtilesize=" << f.bwidth
                                    << " ytilesize=" << f.bheight << " nbytes=" << file_size(name));
  if (const char* fault = fault_of(f)) {
    ERROR_MSG("load_TIFF failed, file " << name << " (" << fault << ")");
    return false;
  }
  img.resize(static_cast<int>(f.xsize), static_cast<int>(f.ysize));
  if (read_blocks(tif.get(), f, img)) return true;
  ERROR_MSG("load_TIFF failed, file " << name << " (damaged or short)");
  return false;
}
}  // namespace veld
