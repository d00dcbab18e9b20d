// Corrections against the earth itself: places computed through earth-centred coordinates, projected by the library.
#include "prj/LiDAR/VR2geom/grid_shape.h"

#include <gtest/gtest.h>

#include <cmath>

#include "prj/LiDAR/VR2geom/VR2geom.h"

namespace veld {
namespace {
constexpr double RAD = M_PI / 180;
struct Turn {  // rows
  dxyz x, y, z;
};
double dot3(const dxyz& a, const dxyz& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
dxyz apply(const Turn& R, const dxyz& v) { return {dot3(R.x, v), dot3(R.y, v), dot3(R.z, v)}; }
// Body (forward, right, down) of a level flight to east, north, up.
dxyz to_enu(double heading, const dxyz& b) {
  const double s = std::sin(heading * RAD), c = std::cos(heading * RAD);
  return {s * b.x + c * b.y, c * b.x - s * b.y, -b.z};
}

struct Scanner {
  const GeoRefParam& g;
  double lon, lat, h, heading;
  // Where a vector of the body ends, in the grid.
  dxyz sees(const dxyz& body) const {
    const double sl = std::sin(lon * RAD), cl = std::cos(lon * RAD), sp = std::sin(lat * RAD),
                 cp = std::cos(lat * RAD);
    const dxyz v = to_enu(heading, body);
    const dxyz at = geodetic_to_ecef(lon, lat, h) +
                    apply({{-sl, -sp * cl, cp * cl}, {cl, -sp * sl, cp * sl}, {0, cp, sp}}, v);
    double lo = 0, la = 0, hh = 0;
    ecef_to_geodetic(at, lo, la, hh);
    dxyz p;
    EXPECT_TRUE(geo_forward(g, lo, la, hh, p));
    return p;
  }
};
}  // namespace

TEST(GridShape, CorrectsOnTheCurvedEarth) {
  const struct {
    int zone;
    const char* text;
    double lon, lat;
  } cases[] = {{33, "", 15.1, 48}, {33, "", 17.9, 60}, {0, "EPSG:2154", 5, 47}, {0, "EPSG:5070", -110, 30}};
  double largest_flat = 0;
  for (const auto& c : cases)
    for (const double heading : {20.0, 250.0})
      for (const dxyz& body : {dxyz{0, 1700, 3000}, dxyz{100, -1700, 2900}, dxyz{0, 0, 3000}}) {
        GeoRefParam g;
        ASSERT_TRUE(g.init(c.zone, c.text, 0, "", true));
        const Scanner scanner{g, c.lon, c.lat, 3400, heading};
        SwathCorr corr;
        corr.CM = corr.CB = true;
        corr.B = {static_cast<float>(0.2 * RAD), static_cast<float>(-0.1 * RAD),
                  static_cast<float>(0.15 * RAD)};
        const Rot3 T = comp_T(corr.B);
        // The observed beam, which the boresight turns to where the point is.
        const dxyz seen = scanner.sees(body);
        const dxyz truth =
            scanner.sees(apply({to_dxyz(T.row[0]), to_dxyz(T.row[1]), to_dxyz(T.row[2])}, body));
        dxyz O;
        double north = 0;
        ASSERT_TRUE(geo_forward_north(g, c.lon, c.lat, 3400, O, north));
        Vector<PO> po(2);
        for (int k = 0; k < 2; k++)
          po(k) = {10.0 + k, O.x, O.y, O.z, 0, 0, static_cast<float>(heading + north)};
        corr.po = &po;
        const auto left = [&](const GridShape& shape) {
          corr.rot.grid = shape;
          EXPECT_TRUE(init_SwathCorr(corr));
          CorrCursor cursor;
          return norm(seen + to_dxyz(comp_point_corr(corr, cursor, seen, 10.5)) - truth);
        };
        EXPECT_LT(left(comp_GridShape(g, O)), 0.001) << c.text << heading;
        largest_flat = std::max(largest_flat, left(GridShape()));
      }
  EXPECT_GT(largest_flat,
            0.004);  // what the flat model leaves, in transverse Mercator 4 mm, in Albers' grid decimetres
}
}  // namespace veld
