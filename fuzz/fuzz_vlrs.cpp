// fuzz/fuzz_vlrs.cpp
// Records before and behind the points, below a header that is sound: read, searched, stamped, laid out and
// read again. Two bytes choose version and records, two the length of those before the points; records
// follow.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "las/las_access.h"
#include "las/lasheader_io.h"

namespace veld {
namespace {
bool read_header(const std::vector<uint8_t>& bytes, LASheader& header, LasFileInfo& info) {
  const std::string name = fuzz_file(bytes.data(), bytes.size(), ".las");
  LasInFile file;
  std::string error;
  const bool ok = file.open(name, error) && read_las_header(file, header, info, error);
  unlink(name.c_str());
  return ok;
}

bool same_records(const LASheader& a, const LASheader& b) {
  return std::equal(a.vlrs.begin(), a.vlrs.end(), b.vlrs.begin(), b.vlrs.end(),
                    [](const LASvlr& v, const LASvlr& w) {
                      return v.user_id == w.user_id && v.record_id == w.record_id && v.data == w.data &&
                             v.description == w.description && v.reserved == w.reserved;
                    });
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t nbytes) {
  if (nbytes < 4) return 0;
  const int minor = bytes[0] % 5;
  const uint32_t nevlr = bytes[0] / 32, nvlr = bytes[1];
  const uint32_t before = std::min<uint32_t>(uint32_t(bytes[2] | bytes[3] << 8), uint32_t(nbytes - 4));
  LASheader header;
  LasFileInfo info;
  std::string error;
  header.version_minor = uint8_t(minor);
  header.point_reclen = 45;  // room for extra bytes
  if (!prepare_las_header(header, nullptr, error)) __builtin_trap();
  header.offset_to_point_data = header.header_size + before;
  header.nevlr = nevlr;
  header.start_of_first_evlr = header.offset_to_point_data;
  header.start_of_waveform = bytes[0] & 16 ? header.offset_to_point_data : 0;
  std::vector<uint8_t> file = las_header_bytes(header, false, nvlr);
  file.insert(file.end(), bytes + 4, bytes + nbytes);

  LASheader read;
  if (!read_header(file, read, info)) return 0;
  read.wkt();
  read.find_attribute("x");
  std::vector<uint8_t> text(32, 'p');
  if (!read.add_vlr("Tarnwick", 4001, text.data(), text.size(), "PROCESSING") ||
      !read.add_vlr("Tarnwick", 4001, text.data(), 7, "PROCESSING"))
    __builtin_trap();
  read.evlrs.clear();
  if (!prepare_las_header(read, nullptr, error)) return 0;
  std::vector<uint8_t> again = las_header_bytes(read, false, 0);
  const std::vector<uint8_t> records = las_vlr_bytes(read, nullptr);
  again.insert(again.end(), records.begin(), records.end());
  LASheader back;
  LasFileInfo back_info;
  if (again.size() != read.offset_to_point_data || !read_header(again, back, back_info) ||
      !same_records(read, back))
    __builtin_trap();
  return 0;
}
}  // namespace veld
