// image/tiff_block.h
// One block of pixels of a TIFF as bytes of the file: coding by libtiff, in memory, on any thread.
// Here:     the kinds of pixels, encode_block.
// Not here: the file around the blocks (tiff_layout.h, tiff_out.h), reading (load_tiff.h).
#pragma once
#include <cstdint>
#include <vector>

namespace veld {
enum class Pixel { u8, u16, f32, rgb };

inline int pixel_bytes(Pixel p) { return p == Pixel::u8 ? 1 : p == Pixel::u16 ? 2 : p == Pixel::f32 ? 4 : 3; }
inline int pixel_samples(Pixel p) { return p == Pixel::rgb ? 3 : 1; }
inline int sample_bits(Pixel p) { return p == Pixel::u16 ? 16 : p == Pixel::f32 ? 32 : 8; }
inline int tiff_predictor(Pixel p) {
  return p == Pixel::f32 ? 3 : 2;
}  // as the block is coded: PREDICTOR tag

constexpr uint16_t TIFF_DEFLATE = 8;  // as the block is coded: COMPRESSION tag

// Codes width x height pixels that stand without gaps (native byte order). False (no message) when libtiff fails.
[[nodiscard]] bool encode_block(Pixel pixel, const uint8_t* pixels, int width, int height,
                                std::vector<uint8_t>& coded);

// Messages of libtiff go to the log instead of standard error; done by every user of the library.
void quiet_libtiff();
}  // namespace veld
