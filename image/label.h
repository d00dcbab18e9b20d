// Words in pictures: letters of 5 x 7 pixels, for colour bars.
#pragma once
#include <string>

#include "image/colormap.h"
#include "lib/DataStructure/image.h"

namespace veld {
constexpr int LETTER_WIDTH = 6, LETTER_HEIGHT = 7;  // pixels at scale 1, with the gap behind a letter

// Draws digits, small letters, blanks and - + . / at (x, y), the upper left corner, row 0 of img being the top one;
// other characters are blanks, and what lies outside the image is cut. scale: pixels along those of a letter.
void draw_label(Image<RGBchar>& img, int x, int y, const std::string& text, int scale, const RGBchar& ink);
}  // namespace veld
