// las/laswriter.h
// Writing of point files: LAS, LAZ or text by the extension of the name (.laz, .txt, anything else is LAS).
// The file appears under its name only when it is whole: until close() it is name + ".part".
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "las/lasdefs.h"
#include "las/point_source.h"

namespace veld {
class LasOutFile;  // las_outfile.h: the file behind a writer

class LASwriter {
 public:
  LASheader header;      // as written: offsets are this file's own
  uint64_t p_count = 0;  // points taken so far

  LASwriter();
  ~LASwriter();  // without close() the unfinished file is removed
  LASwriter(const LASwriter&) = delete;
  LASwriter& operator=(const LASwriter&) = delete;

  // Takes a copy of the point's record, which must have this writer's format and record length. False, after
  // one ERROR line for the file, once anything could not be written.
  [[nodiscard]] bool write_point(const LASpoint& point) {
    if (fill_ == block_end_ && !flush()) return false;
    std::memcpy(fill_, point.rec, static_cast<size_t>(reclen_));
    fill_ += reclen_;
    p_count++;
    return !failed_;
  }
  // The same for n records one after the other.
  [[nodiscard]] bool write_raw_records(const uint8_t* records, uint64_t n);

  // Brings counts and ranges up to the points taken so far. close() does so by itself.
  void update_inventory();
  // Puts counts, counts by return and bounding box into the header, from the points taken so far.
  void update_header();
  // Finishes the file: pending points, records after the points, the final header; then gives it its name.
  // Returns the size of the file in bytes, or -1 after an ERROR line; the unfinished file is then gone.
  [[nodiscard]] int64_t close();

  const std::string& file_name() const { return file_name_; }

 private:
  friend class LASwriteOpener;
  bool flush();
  bool write_header_again();
  bool write_evlrs();
  bool fail(const std::string& why);
  std::unique_ptr<LasOutFile> file_;
  std::unique_ptr<PointSink> sink_;
  std::vector<uint8_t> block_;
  uint8_t* fill_ = nullptr;
  uint8_t* block_end_ = nullptr;
  uint8_t* counted_ = nullptr;  // records of the block before here are in the inventory
  LASlayout layout_;
  int reclen_ = 0;
  bool failed_ = false;
  bool text_ = false;
  LASinventory inventory_;
  std::string file_name_;
};

class LASwriteOpener {
 public:
  void set_file_name(const std::string& name) { name_ = name; }
  // Columns of a text file, as for LASreadOpener. Default "xyz".
  void set_parse_string(const std::string& parse) { parse_ = parse; }
  // A file that must not be overwritten, beside those that are open for reading.
  void add_source(const std::string& name) { sources_.push_back(name); }
  // Opens name + ".part" and writes header and VLRs. None, after an ERROR line that names the cause, when
  // this fails, when the header's format or record length is not valid, or when the name is that of a source.
  std::unique_ptr<LASwriter> open(const LASheader& header) const;

 private:
  std::string name_;
  std::string parse_;
  std::vector<std::string> sources_;
};
}  // namespace veld
