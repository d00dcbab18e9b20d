// lib/DataStructure/nodata.h
// The value that stands for "no value" in images, grids and tables of coordinates: heights (z) hold it, and files.
#pragma once

namespace veld {
constexpr float NODATA = -9999.0f;
}  // namespace veld
