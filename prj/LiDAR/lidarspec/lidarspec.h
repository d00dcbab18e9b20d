// prj/LiDAR/lidarspec/lidarspec.h
// Ground control points from text files and GeoJSON: heights (GCP), and targets in three dimensions (XYZ GCP).
// Here:     the points, the format strings of their columns, the readers.
// Not here: what is measured at them (LmTQCGCP).
//
// A line is cut at semicolons if it has one outside quotes, else at tabs, else at commas, else at blanks. Quotes
// (") keep separators in a name. With semicolons a number may have a decimal comma. What follows '#' at the
// beginning of a line is a comment. Of GeoJSON (by the name's end) point features are read, with their coordinate
// system; properties are named as columns are.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "geo/georef.h"
#include "lib/Geometry/xyz.h"

namespace veld {
struct GCP {            // a height control point
  std::string name;     // of the file, else "GCP_" and its number from 1
  dxyz pos{};           // surveyed position, unit of the file
  double sigma = 0;     // standard deviation of its height, unit of the file
  bool control = true;  // control point, else check point
  bool last = true;     // measured by last returns only
};

struct XYZGCP {         // a target with a position of its own in one swath
  std::string name;     // of the file, else "XYZ_GCP_" and its number from 1
  std::string match;    // what the name of the swath must have in it
  dxyz pos{};           // surveyed position (columns x y z), unit of the file
  dxyz lidar{};         // where the target lies in the swath (columns X Y Z)
  double sigma_xy = 0;  // standard deviations of the two together, unit of the file
  double sigma_z = 0;
  bool control = true;
};

constexpr char GCP_ALPHABET[] = "[i]xyz[s][c][f]";
constexpr char XYZGCP_ALPHABET[] = "[i]fxyzXYZ[hvc]";

// Column of each letter of the alphabet ref, in its order, -1 for optional letters (those in brackets) that the
// format has not. False after an ERROR line: an unknown letter, one twice, a mandatory one missing.
[[nodiscard]] bool parse_colfmt(const std::string& fmt, const std::string& ref, std::vector<int>& columns);

// The fields of a line, without the blanks and quotes around them.
void split_fields(std::string_view line, std::vector<std::string>& fields);

struct GCPdefaults {  // for what the file has no column or an empty field
  bool C0 = true;     // control flag
  bool F0 = true;     // last-return flag
  double S0 = 0;      // standard deviation, unit of the file
};

struct XYZGCPdefaults {
  bool C0 = true;
  double SH0 = 0;  // in X and Y
  double SV0 = 0;  // in Z
};

// Reads the points of a file. fmt: its columns as letters of the alphabet; empty: as its first line names them
// (name x y z sigma control last, easting northing height, ...), else by their number. used: the columns taken,
// for messages. Lines that are no point are counted; of those that look like one the first is named in a WARNING.
// False after an ERROR line; the caller adds "could not read GCP file ".
[[nodiscard]] bool read_txt_GCP(const std::string& file, const std::string& fmt, const GCPdefaults& def,
                                std::vector<GCP>& result, std::string& used);
[[nodiscard]] bool read_txt_XYZGCP(const std::string& file, const std::string& fmt, const XYZGCPdefaults& def,
                                   std::vector<XYZGCP>& result, std::string& used);

// The same of a text or of GeoJSON, whose positions are brought into the coordinates and units of georef; it takes no
// fmt.
[[nodiscard]] bool read_GCP(const std::string& file, const std::string& fmt, const GeoRefParam& georef,
                            const GCPdefaults& def, std::vector<GCP>& result, std::string& used);
[[nodiscard]] bool read_XYZGCP(const std::string& file, const std::string& fmt, const GeoRefParam& georef,
                               const XYZGCPdefaults& def, std::vector<XYZGCP>& result, std::string& used);
}  // namespace veld
