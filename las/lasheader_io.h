// las/lasheader_io.h
// The header and its records between bytes and memory. Every count, offset and length of a file is checked
// against the file's size before it is used.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "las/las_file.h"
#include "las/lasdefs.h"
#include "las/laz_scheme.h"

namespace veld {
struct LasFileInfo {        // what the header says beyond LASheader
  bool sound = false;       // the header check finds no error; if not, only the public header was read
  bool has_scheme = false;  // a record describes the compression
  LASzip scheme;
  uint64_t scheme_payload = 0;  // file position of that record's data
  uint64_t points_end =
      0;  // bytes of points end here at the latest: first record behind them, or the file's end
  std::vector<std::string> warnings;
};

// Version fields in force: 1.5 and later read as 1.4, foreign versions by the size of their header.
int las_effective_minor(const LASheader& header);
// Errors of the header check, without its messages.
bool las_header_sound(const LASheader& header);

// Reads header, VLRs and EVLRs. False with the cause in `error` when there is no header or its points can't
// be read; a header that the check refuses is no failure (info.sound is false).
[[nodiscard]] bool read_las_header(const LasInFile& file, LASheader& header, LasFileInfo& info,
                                   std::string& error);

// Makes a header fit for writing: drops records that describe another file's bytes (compression, COPC,
// embedded index), sets header_size and offset_to_point_data. `scheme`: none for an uncompressed file.
// False with the cause in `error`.
[[nodiscard]] bool prepare_las_header(LASheader& header, const LASzip* scheme, std::string& error);
// The public header, header.header_size bytes. `nvlr_more`: records to count beyond header.vlrs.
std::vector<uint8_t> las_header_bytes(const LASheader& header, bool compressed, uint32_t nvlr_more);
// All that lies between the public header and the points: VLRs, the record of the scheme if any, the gap.
std::vector<uint8_t> las_vlr_bytes(const LASheader& header, const LASzip* scheme);
// The 60 bytes before an EVLR's data.
std::vector<uint8_t> las_evlr_header_bytes(const LASevlr& evlr);
}  // namespace veld
