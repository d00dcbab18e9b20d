// tests/interop/laz_interop_files.cpp
// Writes the same points as x.las and x.laz into a directory: every format that the other implementation
// reads (all but those with wave packets), with and without extra bytes, as flown and random, several chunks.
#include <cstdio>

#include "las/las_access.h"
#include "tests/las/laz_file.h"

namespace veld {
namespace {
bool write_file(const std::string& name, int format, uint32_t nextra, uint64_t n, Flight flight) {
  const std::vector<uint8_t> records = made_records(format, nextra, n, flight, 11);
  LASheader header;
  header.version_minor = format >= 6 ? 4 : 2;
  header.header_size = las_header_size(header.version_minor);
  header.offset_to_point_data = header.header_size;
  header.point_format = uint8_t(format);
  header.point_reclen = uint16_t(records.size() / n);
  auto writer = las_write_open(name, header, "");
  return writer && writer->write_raw_records(records.data(), n) && las_write_close(writer);
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: laz_interop_files directory\n");
    return 1;
  }
  las_set_threads(2);
  for (const int format : {0, 1, 2, 3, 6, 7, 8})
    for (const uint32_t nextra : {0u, 5u})
      for (const Flight flight : {Flight::smooth, Flight::random}) {
        const bool smooth = flight == Flight::smooth;
        const std::string name = std::string(argv[1]) + "/pf" + std::to_string(format) + "_eb" +
                                 std::to_string(nextra) + (smooth ? "_flown" : "_random");
        for (const char* suffix : {".las", ".laz"})
          if (!write_file(name + suffix, format, nextra, smooth ? 120000 : 3000, flight)) return 1;
      }
  return 0;
}
