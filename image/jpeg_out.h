// image/jpeg_out.h
// A JPEG written row by row, grey or in colour.
#pragma once
#include <cstdint>
#include <memory>
#include <string>

namespace veld {
constexpr int JPEG_MAX_SIDE = 65500;  // pixels, of the library

class JpegOut {
 public:
  JpegOut();
  ~JpegOut();  // removes what has not been closed
  JpegOut(const JpegOut&) = delete;
  JpegOut& operator=(const JpegOut&) = delete;
  // samples: 1 grey, 3 red, green, blue. All three: false after an ERROR line.
  [[nodiscard]] bool open(const std::string& name, int xsize, int ysize, int samples, int quality);
  [[nodiscard]] bool put_rows(const uint8_t* rows, int n);  // the top row first
  [[nodiscard]] bool close();                               // gives the file its name

 private:
  struct State;
  std::unique_ptr<State> s_;
};
}  // namespace veld
