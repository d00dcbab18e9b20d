// las/laz_scheme.h
// How the points of a LAZ file are compressed: the record that the "laszip encoded" VLR carries.
// Here:     the scheme, its VLR payload both ways, the scheme written by default, checks against the header.
// Not here: the compressed bytes (laz_codec.h), the table of chunks (laz_chunks.h), VLRs in general.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace veld {
constexpr uint32_t LAZ_VARIABLE = 0xFFFFFFFFu;  // chunk size of files with variable-size chunks
constexpr uint32_t LAZ_CHUNK_SIZE = 50000;      // points in a chunk of the files written here
constexpr char LAZ_USER_ID[] = "laszip encoded";
constexpr uint16_t LAZ_RECORD_ID = 22204;

enum class LazType : uint16_t {
  byte = 0,
  point10 = 6,
  gpstime11 = 7,
  rgb12 = 8,
  wavepacket13 = 9,
  point14 = 10,
  rgb14 = 11,
  rgbnir14 = 12,
  wavepacket14 = 13,
  byte14 = 14
};

struct LazItem {     // one part of the point record
  LazType type;      // which fields it holds
  uint16_t size;     // bytes in the uncompressed record
  uint16_t version;  // of the item's coding
};

enum class LazCompressor : uint16_t { none = 0, pointwise = 1, chunked = 2, layered = 3 };

struct LASzip {
  LazCompressor compressor = LazCompressor::none;
  uint8_t version_major = 3, version_minor = 4;  // of the compressing software, for information
  uint16_t version_revision = 3;
  uint32_t options = 0;                  // bit 0: 1.4 content in compatibility form
  uint32_t chunk_size = LAZ_CHUNK_SIZE;  // points; LAZ_VARIABLE: each chunk has its own
  int64_t nspecial_evlr = -1;            // special EVLRs (the embedded index), -1: unused
  int64_t special_evlr_offset = -1;      // file position of the first, -1: unused
  std::vector<LazItem> items;            // in record order

  // The scheme that is written: formats 0-5 in chunks coded point by point (items of version 2), 6-10 in
  // chunks of layers (version 3), LAZ_CHUNK_SIZE points each. False with the cause in `error` if there is no
  // such format or the record is shorter than the format's fields.
  [[nodiscard]] bool setup(int point_format, uint32_t length, std::string& error);
  bool chunked() const {
    return compressor == LazCompressor::chunked || compressor == LazCompressor::layered;
  }
  bool layered() const { return compressor == LazCompressor::layered; }
  bool variable() const { return chunked() && chunk_size == LAZ_VARIABLE; }
  uint32_t record_length() const;  // bytes of one uncompressed record: the sum of the item sizes
};

// Reads the payload of the VLR. False with the cause in `error` if the length, compressor, coder, an item's
// type, size or version is not one that can be decoded. A chunk size 0 of a chunked scheme reads as
// LAZ_VARIABLE.
[[nodiscard]] bool parse_laz_vlr(const uint8_t* payload, uint64_t nbytes, LASzip& scheme, std::string& error);

// Is the scheme that of points of this format (0-10, compression bits masked away) and record length?
// False with the cause in `error`.
[[nodiscard]] bool check_laz_scheme(const LASzip& scheme, int point_format, uint32_t record_length,
                                    std::string& error);

// The payload of the VLR: 34 + 6 bytes an item.
std::vector<uint8_t> make_laz_vlr(const LASzip& scheme);
}  // namespace veld
