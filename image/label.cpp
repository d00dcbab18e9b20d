#include "image/label.h"

#include <array>

namespace veld {
namespace {
struct Letter {
  char c;
  std::array<uint8_t, LETTER_HEIGHT> rows;  // from the top; bit 4 is the left pixel
};

const Letter LETTERS[] = {
    {'-', {0, 0, 0, 31, 0, 0, 0}},       {'.', {0, 0, 0, 0, 0, 12, 12}},
    {'/', {1, 1, 2, 4, 8, 16, 16}},      {'0', {14, 17, 19, 21, 25, 17, 14}},
    {'1', {4, 12, 4, 4, 4, 4, 14}},      {'2', {14, 17, 1, 6, 8, 16, 31}},
    {'3', {30, 1, 1, 14, 1, 1, 30}},     {'4', {2, 6, 10, 18, 31, 2, 2}},
    {'5', {31, 16, 30, 1, 1, 17, 14}},   {'6', {6, 8, 16, 30, 17, 17, 14}},
    {'7', {31, 1, 2, 4, 8, 8, 8}},       {'8', {14, 17, 17, 14, 17, 17, 14}},
    {'9', {14, 17, 17, 15, 1, 2, 12}},   {'+', {0, 4, 4, 31, 4, 4, 0}},
    {'a', {0, 0, 14, 1, 15, 17, 15}},    {'b', {16, 16, 30, 17, 17, 17, 30}},
    {'c', {0, 0, 15, 16, 16, 16, 15}},   {'d', {1, 1, 15, 17, 17, 17, 15}},
    {'e', {0, 0, 14, 17, 31, 16, 14}},   {'f', {6, 9, 8, 28, 8, 8, 8}},
    {'g', {0, 15, 17, 17, 15, 1, 14}},   {'h', {16, 16, 30, 17, 17, 17, 17}},
    {'i', {4, 0, 12, 4, 4, 4, 14}},      {'j', {2, 0, 6, 2, 2, 18, 12}},
    {'k', {16, 16, 18, 20, 24, 20, 18}}, {'l', {12, 4, 4, 4, 4, 4, 14}},
    {'m', {0, 0, 26, 21, 21, 21, 21}},   {'n', {0, 0, 30, 17, 17, 17, 17}},
    {'o', {0, 0, 14, 17, 17, 17, 14}},   {'p', {0, 0, 30, 17, 30, 16, 16}},
    {'q', {0, 0, 15, 17, 15, 1, 1}},     {'r', {0, 0, 22, 25, 16, 16, 16}},
    {'s', {0, 0, 15, 16, 14, 1, 30}},    {'t', {8, 8, 28, 8, 8, 9, 6}},
    {'u', {0, 0, 17, 17, 17, 19, 13}},   {'v', {0, 0, 17, 17, 17, 10, 4}},
    {'w', {0, 0, 17, 21, 21, 21, 10}},   {'x', {0, 0, 17, 10, 4, 10, 17}},
    {'y', {0, 0, 17, 17, 15, 1, 14}},    {'z', {0, 0, 31, 2, 4, 8, 31}},
};

const Letter* letter_of(char c) {
  for (const Letter& l : LETTERS)
    if (l.c == c) return &l;
  return nullptr;
}
}  // namespace

void draw_label(Image<RGBchar>& img, int x, int y, const std::string& text, int scale, const RGBchar& ink) {
  for (const char c : text) {
    if (const Letter* letter = letter_of(c))
      for (int j = 0; j < LETTER_HEIGHT * scale; j++)
        for (int i = 0; i < 5 * scale; i++) {
          const int X = x + i, Y = y + j;
          const bool set = letter->rows[static_cast<size_t>(j / scale)] >> (4 - i / scale) & 1;
          if (set && X >= 0 && Y >= 0 && X < img.xsize() && Y < img.ysize()) img(X, Y) = ink;
        }
    x += LETTER_WIDTH * scale;
  }
}
}  // namespace veld
