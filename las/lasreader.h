// las/lasreader.h
// Reading of point files: LAS 1.0 to 1.4, LAZ and text, through one reader that holds one block of raw
// records. Two ways through the points, which may be mixed:
//   while (reader->read_point()) use(reader->point);
//   while (uint8_t* block = reader->read_block(n)) ...   // n raw records of header.point_reclen bytes each
// Records may be changed in place; they are valid until the next read, seek or close.
#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "las/lasdefs.h"
#include "las/point_source.h"

namespace veld {
constexpr uint32_t LAS_ALL_FIELDS = 0xFFFFFFFF;

// Threads that reading and writing of LAZ may use in all; they are shared evenly by the open files, and the
// callers' own threads count. Default 1: everything happens on the caller's thread.
void las_set_threads(int n);
int las_threads();

class LASreader {
 public:
  LASheader header;
  LASpoint point;        // the current point, after read_point() gave true
  uint64_t p_count = 0;  // points delivered so far; after seek(i) counted from i

  LASreader() = default;
  ~LASreader() { close(); }
  LASreader(const LASreader&) = delete;
  LASreader& operator=(const LASreader&) = delete;

  // Moves on to the next point. False at the end of the data, whether all announced points came or not: then
  // p_count < header.npoints. The cause of an early end is written once, in a WARNING (the file is too short)
  // or an ERROR line (damaged data, failing disk); failed() distinguishes the two.
  bool read_point() {
    if (next_ == block_end_ && !next_block()) return false;
    point.rec = next_;
    next_ += point.lay.reclen;
    p_count++;
    return true;
  }
  // The points of the current block that were not delivered yet, or the next block. None, and n = 0, at the
  // end.
  uint8_t* read_block(uint64_t& n);
  // Makes the point of this index (from 0) the next one. False when there is no such point.
  [[nodiscard]] bool seek(uint64_t index);
  bool failed() const { return failed_; }
  void close();  // closing twice does nothing

  // "via LASreaderLAS", "via LASreaderLAZ", "via LASreaderTXT (210720)".
  const std::string& description() const { return description_; }
  const std::string& file_name() const { return file_name_; }
  int64_t file_bytes() const { return file_bytes_; }

 private:
  friend class LASreadOpener;
  bool next_block();
  std::unique_ptr<PointSource> source_;
  uint8_t* next_ = nullptr;
  uint8_t* block_end_ = nullptr;
  bool failed_ = false;
  std::string file_name_;
  std::string description_;
  int64_t file_bytes_ = 0;
};

class LASreadOpener {
 public:
  void set_file_name(const std::string& name) { name_ = name; }
  // The columns of a text file: x y z coordinates, t GPS time, i intensity, a scan angle, r return number,
  // n number of returns, c classification, u user data, p point source ID, d scan direction, e edge of flight
  // line, R G B colours, s or any other sign: skipped. Default "xyz".
  void set_parse_string(const std::string& parse) { parse_ = parse; }
  // Fields that are wanted (LazField in laz_codec.h). Of LAZ files of formats 6 to 10 the others are not
  // decoded and have the value of the first point of their chunk; X, Y and the returns always come. Default:
  // all.
  void set_fields(uint32_t fields) { fields_ = fields; }
  // Opens the file. None, after an ERROR line that names the cause, when it cannot be opened, is too short
  // for a header, or holds points that cannot be read. A header that the check (las_access.h) refuses gives a
  // reader that has no points, so that the check can report what is wrong.
  std::unique_ptr<LASreader> open() const;

 private:
  std::string name_;
  std::string parse_;
  uint32_t fields_ = LAS_ALL_FIELDS;
};
}  // namespace veld
