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

constexpr int MAX_PO_FIELDS = 100;  // of a row

struct POcolumns {  // column of each value, -1: not in the file
  int t = -1, x = -1, y = -1, z = -1, w = -1, p = -1, k = -1;
  int week = -1;  // GPS week of the row
  int cmax = -1;  // highest of them
};
// Columns from letters: t x y z position and time, w p k roll, pitch, yaw; other letters are columns to skip.
// Empty stands for "txyzwpk". False after an ERROR line: t, x, y or z missing, a letter twice, or more than
// 100 letters.
[[nodiscard]] bool parse_PO_columns(const std::string& letters, POcolumns& col);

// Semicolons and commas separate fields, and so do tabs; blanks do, and may stand around any of these.
struct FieldStyle {
  bool decimal_comma = false;  // commas are the points of numbers
  bool soft_tabs = false;      // tabs are blanks
};
// Fields of a line, empty ones included, up to MAX_PO_FIELDS. Returns their number.
int split_fields(std::string_view line, const FieldStyle& style, std::string_view (&field)[MAX_PO_FIELDS]);
// A finite number, the whole text of a field.
bool parse_field(std::string_view text, const FieldStyle& style, double& value);
bool parse_hms(std::string_view text, const FieldStyle& style, double& value);  // hours:minutes:seconds

struct POrowStyle {
  POcolumns col;
  FieldStyle field;
  bool hms = false;  // times have colons, and must have them
  int nfields =
      0;  // fields that a row has at least: with fewer, a value is missing, and others stand in its place
};
struct POrow {
  double t, x, y, z, w, p, k;  // as they stand in the file; a time with colons in seconds
  double week;
};
// Takes a row apart. False if a column is missing, empty or no finite number, or if there are too few of them.
bool parse_PO_row(std::string_view line, const POrowStyle& style, POrow& row);
}  // namespace veld
