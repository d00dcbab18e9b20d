// image/load_tiff.h
// Reading of grey TIFF: for drop maps.
#pragma once
#include <cstdint>
#include <string>

#include "lib/DataStructure/image.h"

namespace veld {
// One byte a pixel, row 0 at the top. Strips or tiles, 1 bit or whole bytes a sample, one sample a pixel, not RGB;
// white-is-zero is turned. Samples of more than 8 bits are shifted down by Bshift, but what is not 0 stays not 0.
// False after an ERROR line.
[[nodiscard]] bool load_TIFF_gray(const std::string& name, Image<uint8_t>& img);
}  // namespace veld
