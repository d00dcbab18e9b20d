#include "image/colormap.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace veld {
namespace {
RGBchar rgb(int r, int g, int b) {
  return {static_cast<uint8_t>(r), static_cast<uint8_t>(g), static_cast<uint8_t>(b)};
}

struct Run {  // n entries, i counts inside the run
  int n;
  RGBchar (*color)(int i);
};

// Tables 1, 2, 3, 6, 7, 8; divisions are those of integers.
std::vector<Run> smooth_runs(int number) {
  switch (number) {
    case 1:
      return {{128, [](int i) { return rgb(0, 128 - i, 255 - 2 * i); }},
              {128, [](int i) { return rgb(2 * i, i / 2, i / 2); }}};
    case 2:
      return {{64, [](int i) { return rgb(0, 255 - 4 * i, 4 * i); }},
              {64, [](int i) { return rgb(0, 0, 255 - 4 * i); }},
              {64, [](int i) { return rgb(4 * i, 0, 0); }},
              {64, [](int i) { return rgb(255, 4 * i, 4 * i); }}};
    case 3:
      return {{2, [](int) { return rgb(0, 192, 0); }},
              {42, [](int i) { return rgb(0, 192, 6 * i); }},
              {42, [](int i) { return rgb(0, 192 - 18 * i / 4, 255); }},
              {42, [](int i) { return rgb(0, 0, 255 - 6 * i); }},
              {42, [](int i) { return rgb(6 * i, 0, 0); }},
              {42, [](int i) { return rgb(255, 18 * i / 4, 0); }},
              {42, [](int i) { return rgb(255, 192 + 6 * i / 4, 6 * i); }},
              {2, [](int) { return rgb(255, 255, 255); }}};
    case 6:
      return {{64, [](int i) { return rgb(0, 2 * i, 4 * i); }},
              {64, [](int i) { return rgb(4 * i, 127 - i, 255 - 4 * i); }},
              {64, [](int i) { return rgb(255, 63 + 3 * i, 0); }},
              {64, [](int i) { return rgb(255, 255, 4 * i); }}};
    case 7:
      return {{64, [](int i) { return rgb(0, 2 * i, 4 * i); }},
              {64, [](int i) { return rgb(0, 128 + 2 * i, 255 - 4 * i); }},
              {64, [](int i) { return rgb(4 * i, 255 - 4 * i, 0); }},
              {64, [](int i) { return rgb(255, 4 * i, 4 * i); }}};
    case 8:
      return {{32, [](int i) { return rgb(0, 0, 8 * i); }},
              {32, [](int i) { return rgb(0, 6 * i, 255); }},
              {32, [](int i) { return rgb(0, 192 + 2 * i, 255); }},
              {32, [](int i) { return rgb(0, 255, 255 - 8 * i); }},
              {32, [](int i) { return rgb(8 * i, 255, 0); }},
              {32, [](int i) { return rgb(255, 255 - 2 * i, 0); }},
              {32, [](int i) { return rgb(255, 192 - 6 * i, 0); }},
              {32, [](int i) { return rgb(255, 8 * i, 8 * i); }}};
    default:
      return {{256, [](int i) { return rgb(i, i, i); }}};
  }
}

// Tables of equal blocks.
std::vector<RGBchar> block_colors(int number) {
  const RGBchar red = rgb(255, 0, 0), orange = rgb(255, 140, 0), yellow = rgb(255, 255, 0),
                green = rgb(0, 255, 0);
  if (number == 4) return {red, orange, yellow, green, green, yellow, orange, red};
  if (number == 5)
    return {rgb(0, 0, 0),   rgb(0, 0, 255),   rgb(0, 140, 255), rgb(0, 255, 255),
            rgb(0, 255, 0), rgb(128, 255, 0), orange,           red};
  if (number == 9) return {green, yellow, orange, red};
  return {};
}

// Tables drawn through anchors at equal distances over the entries 1 to 255.
std::vector<RGBchar> anchor_colors(int number) {
  switch (number) {
    case COLOR_SEQUENTIAL:
      return {rgb(0, 32, 76),     rgb(0, 52, 110),    rgb(57, 72, 107),   rgb(87, 92, 109),
              rgb(112, 113, 115), rgb(138, 134, 120), rgb(166, 157, 117), rgb(196, 181, 107),
              rgb(228, 207, 91),  rgb(255, 234, 70)};
    case COLOR_VECTOR + 1:
      return {rgb(5, 48, 97), rgb(67, 147, 195), rgb(245, 245, 245), rgb(214, 96, 77), rgb(103, 0, 31)};
    case COLOR_VECTOR + 2:
      return {rgb(64, 0, 75), rgb(153, 112, 171), rgb(245, 245, 245), rgb(90, 174, 97), rgb(0, 68, 27)};
    case COLOR_VECTOR + 3:
      return {rgb(0, 40, 104), rgb(60, 140, 210), rgb(245, 245, 245), rgb(235, 140, 40), rgb(127, 59, 8)};
    case COLOR_VECTOR + 4:
      return {rgb(110, 200, 255), rgb(0, 90, 180), rgb(16, 16, 16), rgb(170, 120, 0), rgb(255, 235, 90)};
    default:
      return {};
  }
}

uint8_t mix_channel(uint8_t a, uint8_t b, double f) {
  return static_cast<uint8_t>(std::lround(a + (static_cast<double>(b) - a) * f));
}
}  // namespace

Vector<RGBchar> make_colormap(int number, bool inv) {
  Vector<RGBchar> table(256);
  const RGBchar background = inv ? rgb(255, 255, 255) : rgb(0, 0, 0);
  if (const std::vector<RGBchar> anchors = anchor_colors(number); !anchors.empty()) {
    table[0] = background;
    for (int i = 1; i < 256; i++) {
      const double at = (i - 1) / 254.0 * static_cast<double>(anchors.size() - 1);
      const size_t k = std::min(static_cast<size_t>(at), anchors.size() - 2);
      const double f = at - static_cast<double>(k);
      const RGBchar &a = anchors[k], &b = anchors[k + 1];
      table[i] = {mix_channel(a.r, b.r, f), mix_channel(a.g, b.g, f), mix_channel(a.b, b.b, f)};
    }
    return table;
  }
  if (const std::vector<RGBchar> blocks = block_colors(number); !blocks.empty()) {
    for (size_t i = 0; i < 256; i++) table[i] = blocks[i * blocks.size() / 256];
    if (number == 4) table[128] = background;
    if (number == 9) table[0] = background;
    return table;
  }
  int at = 0;
  for (const Run& run : smooth_runs(number))
    for (int i = 0; i < run.n; i++) table[at++] = run.color(i);
  if (number == COLOR_VECTOR) table[0] = background;
  return table;
}

RGBchar no_data_color(int number, bool inv) {
  switch (number) {
    case COLOR_GREY:
    case 4:
    case 9:
    case COLOR_VECTOR:
      return inv ? rgb(255, 255, 255) : rgb(0, 0, 0);
    case COLOR_SEQUENTIAL:  // its middle is grey
      return rgb(255, 255, 255);
    default:
      return rgb(90, 90, 90);
  }
}
}  // namespace veld
