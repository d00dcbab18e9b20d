// geo/wkt.h
// A small scanner for well-known text: it looks for fixed keywords, one by one, and pulls out numbers.
// Here:     keyword search, parameters, spheroid, unit, TOWGS84, and the constants of each projection.
// Not here: a general WKT tree; the projection formulas (georef.h).
//
// All functions expect the text as wkt_normalise gives it: lower case, without white space.
#pragma once
#include <string>

#include "geo/georef.h"

namespace veld {
std::string wkt_normalise(const std::string& text);

// The number behind parameter["name", ... False when the entry is missing or holds no number, with a message.
// alt: the name stands in for another one that is missing, which a message reports.
[[nodiscard]] bool get_WKT_param(double& value, const std::string& name, const std::string& wkt,
                                 bool alt = false);
// The last EPSG code of the text, that of the outermost system; empty when there is none.
std::string get_WKT_authority(const std::string& wkt);

void get_WKT_spheroid(const std::string& wkt, double& a, double& e2);  // WGS84 with a WARNING when it fails
bool get_WKT_TOWGS84(const std::string& wkt, double H7[7]);            // false: no shift is to be applied

// Metres per unit of the planar coordinates, from the projected system's own UNIT entry: units of the geographic
// system in it or of a vertical system beside it don't count. The number holds, whatever the name; numbers
// within 1e-7 of the metre or of a common foot are that unit. No entry: metres, with a WARNING. False after an
// ERROR line when the entry cannot be read.
[[nodiscard]] bool get_WKT_unit(const std::string& wkt, double& unit);
// Metres per unit of the heights: the vertical system's own, that of the plane without one.
[[nodiscard]] bool get_WKT_height_unit(const std::string& wkt, double plane_unit, double& unit);

// Metres per unit as exact as the unit is defined: numbers within 1e-7 of the metre or of a common foot are that unit.
double exact_unit(double metres);

// Whether the scanner takes the text: a projection of its own, degrees from Greenwich.
bool is_plain_wkt(const std::string& wkt);
// All of it: units, projection with its constants, spheroid, shift. False after an ERROR line.
[[nodiscard]] bool scan_wkt(const std::string& wkt, GeoRefParam& g);
// Name of the first entry of that keyword, from the text as it was given; empty when there is none.
std::string get_WKT_name(const std::string& text, const std::string& keyword);

// Kind of the projection by the name behind projection[, with the flags south, SP2 and centre. False if there
// is none or it is another one (no message).
[[nodiscard]] bool get_WKT_projection(const std::string& wkt, GeoRefParam& g);

// Read the constants of their projection. False after the getter's log lines when one is missing.
[[nodiscard]] bool parse_WKT_TM(const std::string& wkt, GeoRefParam& g);
[[nodiscard]] bool parse_WKT_LCC(const std::string& wkt, GeoRefParam& g);
[[nodiscard]] bool parse_WKT_AEAC(const std::string& wkt, GeoRefParam& g);
[[nodiscard]] bool parse_WKT_HOM(const std::string& wkt, GeoRefParam& g);
[[nodiscard]] bool parse_WKT_OS(const std::string& wkt, GeoRefParam& g);
}  // namespace veld
