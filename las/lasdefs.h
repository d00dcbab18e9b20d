// las/lasdefs.h
// The header of a point file and its records: public header of LAS 1.0 to 1.4, variable length records before
// and after the points, extra-byte attributes.
// Here:     the data and the rules that tie them (offset to the points, record keys).
// Not here: reading and writing files (lasreader.h, laswriter.h), the checks and log lines (las_access.h).
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "las/laspoint.h"

namespace veld {
constexpr uint16_t LAS_VLR_HEADER = 54;   // bytes before the data of a VLR
constexpr uint16_t LAS_EVLR_HEADER = 60;  // bytes before the data of an EVLR

// A text field of N bytes, not always zero-terminated; bytes behind the terminator are carried along.
template <int N>
using LAStext = std::array<char, N>;
template <size_t N>
std::string_view las_text(const std::array<char, N>& field) {
  const std::string_view all(field.data(), N);
  return all.substr(0, all.find('\0'));
}
template <size_t N>
void set_las_text(std::array<char, N>& field, std::string_view text) {
  field.fill('\0');
  text.copy(field.data(), N);
}

struct LASvlr {
  uint16_t reserved = 0;
  LAStext<16> user_id{};
  uint16_t record_id = 0;
  LAStext<32> description{};
  std::vector<uint8_t> data;  // at most 65535 bytes
};

// A record after the points. A short one is held in memory, a long one (wave packets) stays in its file.
struct LASevlr {
  uint16_t reserved = 0;
  LAStext<16> user_id{};
  uint16_t record_id = 0;
  LAStext<32> description{};
  uint64_t length = 0;        // bytes of data
  std::vector<uint8_t> data;  // length bytes, or empty when the data lie in `file`
  std::string file;           // path of the file that holds the data, empty when they are in memory
  uint64_t file_offset = 0;   // where they start in it
  bool waveform = false;      // the packets that the header's waveform offset points at
};

// One extra-byte attribute (a descriptor of 192 bytes).
struct LASattribute {
  uint8_t data_type = 0;  // 0 undocumented, 1-10 u8 i8 u16 i16 u32 i32 u64 i64 f32 f64, 11-30 arrays of them
  uint8_t options = 0;    // bit 3 scale valid, bit 4 offset valid
  LAStext<32> name{};
  LAStext<32> description{};
  double scale = 1;
  double offset = 0;
  int start = 0;  // first byte, counted from the first extra byte of the record
  int size = 0;   // bytes
};

struct LASheader {
  LAStext<4> file_signature{'L', 'A', 'S', 'F'};
  uint16_t file_source_id = 0;
  uint16_t global_encoding = 0;
  std::array<uint8_t, 16> guid{};
  uint8_t version_major = 1;
  uint8_t version_minor = 2;
  LAStext<32> system_identifier{};
  LAStext<32> generating_software{};
  uint16_t creation_day = 0;  // of the year, 0 = unknown
  uint16_t creation_year = 0;
  uint16_t header_size = 227;
  bool short_header = false;  // version 1.3 with the shorter header of 1.2, as some software writes it
  uint32_t offset_to_point_data = 227;
  uint8_t point_format = 0;    // without the compression bits
  uint16_t point_reclen = 20;  // bytes of an uncompressed record
  uint64_t npoints = 0;        // as announced; a file may hold fewer
  std::array<uint64_t, 15> npoints_by_return{};
  uint32_t legacy_npoints = 0;  // as found
  double x_scale_factor = 0.01, y_scale_factor = 0.01, z_scale_factor = 0.01;
  double x_offset = 0, y_offset = 0, z_offset = 0;
  double min_x = 0, min_y = 0, min_z = 0;
  double max_x = 0, max_y = 0, max_z = 0;
  uint64_t start_of_waveform = 0;    // 1.3 and later
  uint64_t start_of_first_evlr = 0;  // 1.4 and later
  uint32_t nevlr = 0;                // as announced
  std::vector<uint8_t> user_header;  // bytes of the header beyond those of its version
  std::vector<uint8_t> user_gap;     // bytes between the last VLR and the points
  std::vector<LASvlr> vlrs;          // without the one that describes compression
  std::vector<LASevlr> evlrs;
  std::vector<LASattribute> attributes;  // of the extra bytes, in record order, those that fit
  bool compressed = false;               // read from a LAZ file

  bool extended() const { return point_format >= 6; }
  bool adjusted_gps() const {
    return (global_encoding & 1) != 0;
  }  // adjusted standard GPS time, not week seconds
  int nextra_bytes() const { return point_reclen - las_base_length(point_format); }
  LASlayout layout() const { return las_layout(point_format, point_reclen); }
  // A point of this header's format and scale; the caller sets its record.
  LASpoint point() const;

  // The record with this key, or none.
  const LASvlr* find_vlr(std::string_view user_id, uint16_t record_id) const;
  // Text of the OGC coordinate system record, among the VLRs or the EVLRs; empty when there is none.
  std::string wkt() const;
  bool has_wkt() const { return !wkt().empty(); }
  bool has_geotiff() const { return find_vlr("LASF_Projection", 34735) != nullptr; }
  // The attribute of this name, or none.
  const LASattribute* find_attribute(std::string_view name) const;

  // Adds a record, or replaces the data of the one with the same user id and record id; keeps
  // offset_to_point_data right. At most 31 bytes of the description are taken; data are cut at 65535 bytes.
  // False, with nothing changed, when the offset to the points would pass 32 bits.
  [[nodiscard]] bool add_vlr(std::string_view user_id, uint16_t record_id, const void* data, size_t nbytes,
                             std::string_view description = {});
  // Takes a record away; nothing when there is none with this key.
  void remove_vlr(std::string_view user_id, uint16_t record_id);
  // Fills attributes from the extra-bytes records.
  void read_attributes();
  // Empties counts, bounding box and the offsets of what follows the points.
  void clear_inventory();
};

// Bytes of the public header of version 1.minor.
uint16_t las_header_size(int minor);

// What a block of records adds to a header: counts, returns and range of the stored integers.
struct LASinventory {
  uint64_t npoints = 0;
  std::array<uint64_t, 16> by_return{};  // by return number, 0 included
  int32_t min[3] = {INT32_MAX, INT32_MAX, INT32_MAX};
  int32_t max[3] = {INT32_MIN, INT32_MIN, INT32_MIN};

  void add(const LASlayout& layout, const uint8_t* records, uint64_t n);
  // Sets counts, counts by return and bounding box of the header (box 0 when there is no point).
  void to_header(LASheader& header) const;
};
}  // namespace veld
