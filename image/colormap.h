// image/colormap.h
// Colour tables: 256 colours by a number, for maps of values coded in a byte.
// Here:     the tables of scalar maps (-dz_color, -z_color, -r_color, -d_color) and of vector maps (-v_color).
// Not here: how a value becomes a code (raster_out.h).
#pragma once
#include <cstdint>

#include "lib/DataStructure/vector.h"

namespace veld {
struct RGBchar {
  uint8_t r = 0, g = 0, b = 0;
  bool operator==(const RGBchar&) const = default;
};

constexpr int COLOR_GREY = 0;
constexpr int COLOR_LAST = 9;         // of the tables for -dz_color and its kin
constexpr int COLOR_SEQUENTIAL = 10;  // dark blue to yellow, lightness rises evenly: counts, uncertainties
constexpr int COLOR_VECTOR = 20;      // 20 to 24: the tables of -v_color 0 to 4

// The table of a number; numbers without one give grey. inv: tables 4 and 9 have a white background, and vector
// tables too (-p_inv). Entry 0 of the tables from 10 up is the background: their values start at 1.
//
// Vector tables go from one hue over a light middle to another, so that sign and size are seen with any colour
// vision: 0 grey, 1 blue to red, 2 purple to green, 3 blue to orange, 4 blue over black to yellow.
Vector<RGBchar> make_colormap(int number, bool inv);

// The colour of pixels without a value: one that the table does not have near its zero, so that holes are not taken
// for agreement. The background for tables 0, 4, 9 and 20.
RGBchar no_data_color(int number, bool inv);
}  // namespace veld
