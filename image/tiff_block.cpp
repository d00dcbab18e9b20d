#include "image/tiff_block.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "lib/general/log.h"

namespace veld {
namespace {
constexpr int DEFLATE_LEVEL = 4;  // 1 to 12; higher ones cost time for 2 percent of size

struct MemoryFile {
  std::vector<uint8_t>& bytes;
  size_t pos = 0;
};

MemoryFile& file_of(thandle_t h) { return *static_cast<MemoryFile*>(h); }

tmsize_t mem_read(thandle_t h, void* buf, tmsize_t n) {
  MemoryFile& f = file_of(h);
  const size_t left = f.pos < f.bytes.size() ? f.bytes.size() - f.pos : 0;
  const size_t take = std::min(left, static_cast<size_t>(n));
  if (take > 0) std::memcpy(buf, f.bytes.data() + f.pos, take);
  f.pos += take;
  return static_cast<tmsize_t>(take);
}

tmsize_t mem_write(thandle_t h, void* buf, tmsize_t n) {
  MemoryFile& f = file_of(h);
  const size_t end = f.pos + static_cast<size_t>(n);
  if (f.bytes.size() < end) f.bytes.resize(end);
  std::memcpy(f.bytes.data() + f.pos, buf, static_cast<size_t>(n));
  f.pos = end;
  return n;
}

toff_t mem_seek(thandle_t h, toff_t off, int whence) {
  MemoryFile& f = file_of(h);
  f.pos = whence == SEEK_SET   ? static_cast<size_t>(off)
          : whence == SEEK_CUR ? f.pos + static_cast<size_t>(off)
                               : f.bytes.size() + static_cast<size_t>(off);
  return f.pos;
}

int mem_close(thandle_t) { return 0; }
toff_t mem_size(thandle_t h) { return file_of(h).bytes.size(); }

struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};

void to_log(const char*, const char* fmt, va_list args) {
  char text[256];
  std::vsnprintf(text, sizeof(text), fmt, args);
  LOG_LINE("<!> libtiff: " << text);
}
}  // namespace

void quiet_libtiff() {
  static std::once_flag once;
  std::call_once(once, [] {
    TIFFSetErrorHandler(to_log);
    TIFFSetWarningHandler(to_log);
  });
}

bool encode_block(Pixel pixel, const uint8_t* pixels, int width, int height, std::vector<uint8_t>& coded) {
  quiet_libtiff();
  const tmsize_t nbytes = static_cast<tmsize_t>(width) * height * pixel_bytes(pixel);
  std::vector<uint8_t> bytes;
  bytes.reserve(static_cast<size_t>(nbytes) / 2 + 1024);
  MemoryFile file{bytes};
  const std::unique_ptr<TIFF, TiffCloser> tif(TIFFClientOpen(
      "block", "wm", &file, mem_read, mem_write, mem_seek, mem_close, mem_size, nullptr, nullptr));
  if (!tif) return false;
  TIFF* t = tif.get();
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(width));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(height));
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(height));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, sample_bits(pixel));
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, pixel_samples(pixel));
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, pixel == Pixel::rgb ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
  TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, pixel == Pixel::f32 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
  TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
  TIFFSetField(t, TIFFTAG_PREDICTOR, tiff_predictor(pixel));
  TIFFSetField(t, TIFFTAG_ZIPQUALITY, DEFLATE_LEVEL);
  // libtiff applies the predictor in a copy of its own when it is given the constant pointer's bytes.
  if (TIFFWriteEncodedStrip(t, 0, const_cast<uint8_t*>(pixels), nbytes) != nbytes) return false;
  toff_t *offset = nullptr, *count = nullptr;
  if (!TIFFGetField(t, TIFFTAG_STRIPOFFSETS, &offset) || !TIFFGetField(t, TIFFTAG_STRIPBYTECOUNTS, &count))
    return false;
  if (offset[0] + count[0] > bytes.size()) return false;
  coded.assign(bytes.begin() + static_cast<std::ptrdiff_t>(offset[0]),
               bytes.begin() + static_cast<std::ptrdiff_t>(offset[0] + count[0]));
  return true;
}
}  // namespace veld
