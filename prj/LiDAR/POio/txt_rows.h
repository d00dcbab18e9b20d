// prj/LiDAR/POio/txt_rows.h
// Rows of numbers in a text file of any size.
// Here:     lines by chunks, fields of a line, columns by letters.
// Not here: what the numbers mean (read_txt_PO.cpp).
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lib/general/binfile.h"

namespace veld {
// Lines of a file from some position on. A line longer than the buffer is passed over.
class LineReader {
 public:
  LineReader() : file_(0), buf_(BULK_BUFFER) {}
  [[nodiscard]] bool open(const std::string& path, uint64_t pos = 0);
  // The next line without its end; valid until the next call. False at the end of the file or on a read
  // error.
  bool next(std::string_view& line);
  uint64_t size() const { return size_; }
  bool failed() const { return failed_; }

 private:
  bool fill();  // more data behind what is left; false when there is none
  BufBinFileIn file_;
  std::vector<char> buf_;
  uint64_t size_ = 0, pos_ = 0;   // of the file; what has been read of it
  uint64_t begin_ = 0, end_ = 0;  // unread part of the buffer
  bool failed_ = false;
};

struct POcolumns {  // column of each value, -1: not in the file
  int t = -1, x = -1, y = -1, z = -1, w = -1, p = -1, k = -1;
  int cmax = -1;  // highest of them
};
// Columns from letters: t x y z position and time, w p k roll, pitch, yaw; other letters are columns to skip.
// Empty stands for "txyzwpk". False after an ERROR line: t, x, y or z missing, a letter twice, or more than
// 100 letters.
[[nodiscard]] bool parse_PO_columns(const std::string& letters, POcolumns& col);

struct POrow {
  double t, x, y, z, w, p, k;  // as they stand in the file; a time with colons in seconds
};
// Takes a row apart at blanks, commas and tabs. hms: the time has colons, and must have them. False if a
// column is missing or no finite number.
bool parse_PO_row(std::string_view line, const POcolumns& col, bool hms, POrow& row);
}  // namespace veld
