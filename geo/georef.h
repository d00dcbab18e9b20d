// geo/georef.h
// The project's coordinate system: what the options or a WKT string say, and conversion of positions.
// Here:     GeoRefParam, forward and inverse projection, direction of true north, earth-centred coordinates.
// Not here: the scanner for WKT (wkt.h), trajectories and their attitudes (POio, VR2POsync).
//
// The formulas of the projections are PROJ's. A GeoRefParam is a plain value: it holds the numbers and the
// text of the operation; PROJ's own objects live one set a thread and are made on first use, so that copies
// are cheap and all conversions below may be called from any number of threads at once.
#pragma once
#include <string>

#include "lib/Geometry/xyz.h"

namespace veld {
constexpr double FEET_US = 1200.0 / 3937.0;  // m, US survey foot
constexpr double FEET_INT = 0.3048;          // m, international foot
constexpr double WGS84_A = 6378137.0;        // m, semi-major axis
constexpr double WGS84_E2 = 0.00669437999013;

enum class ProjKind { GEO, UTM, TM, LCC, AEAC, HOM, OS };

struct GeoRefParam {
  ProjKind kind = ProjKind::GEO;  // GEO: no projection, values stay degrees
  int Zone = 0;                   // UTM zone 1..60, negative in the southern hemisphere; 0: not UTM
  bool south = false;             // TM only: south-orientated, x counts west and y south
  bool SP2 = false;               // LCC only: two standard parallels
  bool centre = false;            // HOM only: the false origin lies at the projection centre
  bool wkt = false;               // the constants come from a WKT string

  double a = WGS84_A;    // m, semi-major axis of the spheroid
  double e2 = WGS84_E2;  // its squared eccentricity

  double unit = 1.0;      // metres per unit of planar coordinates; an option may override the WKT's
  double unit_z = 1.0;    // metres per unit of heights; `unit` but for compound systems
  double unit_wkt = 1.0;  // metres per unit of the WKT string: that of Eo and No

  // Constants of the projection, degrees or 1 or units of the string.
  double lcm = 0;             // central meridian
  double lono = 0;            // longitude of the centre
  double lato = 0;            // latitude of origin or centre
  double lat1 = 0, lat2 = 0;  // standard parallels
  double ko = 1;              // scale factor
  double Eo = 0, No = 0;      // false easting, northing
  double az = 0, rga = 0;     // azimuth, rectified grid angle

  bool hasH7 = false;   // a TOWGS84 entry was found
  double H7[7] = {};    // dx, dy, dz (m), three rotations (arc seconds), scale (ppm)
  bool samedat = true;  // no datum step between the trajectory (WGS84) and the points

  std::string geoid;   // name of the geoid grid, empty: none
  double geoid_h = 0;  // m, constant height of the geoid, taken off ellipsoidal heights

  std::string def;  // PROJ's text for the operation; empty for GEO

  // Sets everything from the options: zone (-utm, 0 none, negative south), text (content of the -wkt file,
  // ignored with a zone), geoid height (-geoid_h), geoid name (-geoid), same_datum (-same_datum). With
  // neither zone nor text the kind is GEO. A caller whose unit option overrides the string's sets `unit` and
  // `unit_z` afterwards. False after an ERROR line: a parameter is missing or PROJ refuses it, or datum shift
  // or geoid are asked for.
  [[nodiscard]] bool init(int zone, const std::string& text, double geoid_height,
                          const std::string& geoid_name, bool same_datum);
};

// Word of the projection family as logs show it: "UTM", "TM", "LCC", "AEAC", "HOM", "OS", "GEO".
const char* proj_word(ProjKind kind);

// Geodetic to projected: longitude and latitude in degrees, ellipsoidal height in metres, to x, y in
// `unit` and z in `unit_z`. GEO leaves degrees. False (no message) where the projection isn't defined; p is then unchanged.
[[nodiscard]] bool geo_forward(const GeoRefParam& g, double lon, double lat, double h, dxyz& p);
// Projected to geodetic. False (no message) outside the projection's range.
[[nodiscard]] bool geo_inverse(const GeoRefParam& g, const dxyz& p, double& lon, double& lat, double& h);
// As geo_forward, with the direction of true north at that place: degrees clockwise from the grid's y axis.
// Added to a heading that counts from true north it gives one that counts from grid north (minus the meridian
// convergence as it is usually tabulated). 0 for GEO.
[[nodiscard]] bool geo_forward_north(const GeoRefParam& g, double lon, double lat, double h, dxyz& p,
                                     double& north_deg);

// Geodetic (degrees, metres) to earth-centred coordinates on WGS84 and back (Bowring 1985).
dxyz geodetic_to_ecef(double lon, double lat, double h);
void ecef_to_geodetic(const dxyz& p, double& lon, double& lat, double& h);
}  // namespace veld
