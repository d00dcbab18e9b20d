// tests/las/las_builder.h
// LAS files of every version and point format as bytes, written field by field from the format's tables and
// sharing no code with the library, so that a field at a wrong place shows. Any field can be made to lie.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/las_bytes.h"

namespace veld {
struct BuiltRecord {  // a VLR, or an EVLR when it stands in evlrs
  std::string user_id;
  uint16_t record_id = 0;
  std::string data;
  std::string description;
};

struct LasBuild {
  int minor = 2;
  int format = 1;
  int nextra = 0;
  uint64_t npoints = 100;
  int user_header = 0;  // bytes behind the public header
  int gap = 0;          // bytes between VLRs and points
  std::vector<BuiltRecord> vlrs, evlrs;
  std::string waves;  // packets inside the file, 1.3 and later
  double scale = 0.01;
  uint32_t seed = 1;
};

struct BuiltLas {
  std::string bytes;
  std::string records;  // the raw point records
  uint64_t points_at = 0;
};

// The file with all counts and the bounding box right. Records are smooth and deterministic.
BuiltLas build_las(const LasBuild& how);

// Descriptor of one extra-byte attribute.
std::string extra_bytes_descriptor(uint8_t type, uint8_t options, const std::string& name);
}  // namespace veld
