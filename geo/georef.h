// geo/georef.h
// The project's coordinate system: what the options or a WKT string say, and conversion of positions.
// Here:     GeoRefParam, forward and inverse conversion, direction of true north.
// Not here: the scanner for WKT (wkt.h), systems of other kinds (crs_resolve.h), the datum step (datum.h), geoid grids
//           (geoid.h), trajectories and their attitudes (POio, VR2POsync).
//
// The formulas of the projections are PROJ's. A GeoRefParam is a plain value: it holds the numbers and the
// text of the operation; PROJ's own objects live one set a thread and are made on first use, so that copies
// are cheap and all conversions below may be called from any number of threads at once.
#pragma once
#include <memory>
#include <string>

#include "geo/datum.h"
#include "geo/geoid.h"
#include "geo/geotiff_keys.h"
#include "lib/Geometry/xyz.h"

namespace veld {
constexpr double FEET_US = 1200.0 / 3937.0;  // m, US survey foot
constexpr double FEET_INT = 0.3048;          // m, international foot

enum class ProjKind { GEO, UTM, TM, LCC, AEAC, HOM, OS };

struct GeoRefParam {
  ProjKind kind = ProjKind::GEO;  // GEO: no projection, values stay degrees
  int Zone = 0;                   // UTM zone 1..60, negative in the southern hemisphere; 0: not UTM
  bool south = false;             // TM only: south-orientated, x counts west and y south
  bool SP2 = false;               // LCC only: two standard parallels
  bool centre = false;            // HOM only: the false origin lies at the projection centre
  bool wkt = false;               // the constants come from a text or from GeoTIFF keys
  std::string name;               // of the system, when its source has one
  std::string vertical;           // name of its vertical system; empty: none

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

  bool hasH7 = false;  // a TOWGS84 entry was found
  double H7[7] = {};   // dx, dy, dz (m), three rotations (arc seconds), scale (ppm)
  bool samedat =
      true;  // the points are on WGS84 as the trajectory; without parameters there is no datum step either

  std::string geoid;                      // name of the geoid grid, empty: none
  std::shared_ptr<const GeoidGrid> geoH;  // that grid
  double geoid_h = 0;                     // m, constant height of the geoid, on top of the grid's

  std::string def;  // PROJ's text for the operation; empty for GEO

  // Heights of points count from the geoid, else from the ellipsoid of the system.
  bool orthometric() const { return geoH || geoid_h != 0; }

  // Sets everything from the options: zone (-utm, 0 none, negative south), text (WKT of any kind, EPSG code or PROJ
  // string, ignored with a zone), geoid height (-geoid_h), geoid name (-geoid, in geodir), same_datum (-same_datum).
  // With neither zone nor text the kind is GEO. A caller whose unit option overrides the string's sets `unit` and
  // `unit_z` afterwards. False after an ERROR line: the text is not understood, a parameter is missing or PROJ
  // refuses it, or there is no such geoid.
  [[nodiscard]] bool init(int zone, const std::string& text, double geoid_height,
                          const std::string& geoid_name, bool same_datum, const std::string& geodir = {});
  // The same from GeoTIFF keys.
  [[nodiscard]] bool init(const GeoKeys& keys, double geoid_height, const std::string& geoid_name,
                          bool same_datum, const std::string& geodir = {});
};

// Word of the projection family as logs show it: "UTM", "TM", "LCC", "AEAC", "HOM", "OS", "GEO".
const char* proj_word(ProjKind kind);

// Geodetic coordinates of the trajectory's datum (WGS84), longitude and latitude in degrees and ellipsoidal height in
// metres, to x, y in `unit` and z in `unit_z`: datum step, projection, geoid. With a geoid heights are those above it, without
// one above the system's own spheroid. GEO leaves degrees. False (no message) where the projection isn't defined or the
// geoid grid has no value; p is then unchanged.
[[nodiscard]] bool geo_forward(const GeoRefParam& g, double lon, double lat, double h, dxyz& p);
// The way back. False (no message) outside the range of projection or geoid grid.
[[nodiscard]] bool geo_inverse(const GeoRefParam& g, const dxyz& p, double& lon, double& lat, double& h);
// As geo_forward, with the direction of true north at that place: degrees clockwise from the grid's y axis.
// Added to a heading that counts from true north it gives one that counts from grid north (minus the meridian
// convergence as it is usually tabulated). 0 for GEO.
[[nodiscard]] bool geo_forward_north(const GeoRefParam& g, double lon, double lat, double h, dxyz& p,
                                     double& north_deg);

// Whether two systems give the same coordinates, to 1 cm, around a place in the units of the first.
bool same_system(const GeoRefParam& a, const GeoRefParam& b, const dxyz& place);
}  // namespace veld
