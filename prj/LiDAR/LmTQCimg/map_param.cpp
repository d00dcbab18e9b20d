#include "prj/LiDAR/LmTQCimg/map_param.h"

#include <algorithm>
#include <cmath>

namespace veld {
ImgScale dz_scale(const MapParam& par) {
  ImgScale s;
  s.range = par.dz_range;
  s.range16 = std::max(par.dz_range, par.dz16_range);
  s.b16 = par.DZ_16;
  s.mix = par.DZ_mix;
  s.color = par.dz_color;
  return s;
}

int map_sub(int sub, int n) {
  while (n % sub != 0) sub--;
  return sub;
}

ImgCRS make_ImgCRS(const GeoRefParam& g) {
  ImgCRS c;
  c.unit = g.unit;
  c.a = g.a, c.e2 = g.e2;
  c.lat0 = g.lato, c.lat1 = g.lat1, c.lat2 = g.lat2;
  c.k0 = g.ko;
  // A unit option may override that of the string, whose numbers then are in another one.
  c.E0 = g.Eo * g.unit_wkt / g.unit, c.N0 = g.No * g.unit_wkt / g.unit;
  c.azimuth = g.az, c.rectified = g.rga;
  switch (g.kind) {
    case ProjKind::UTM:
      c.kind = CrsKind::utm;
      c.zone = g.Zone;
      break;
    case ProjKind::TM:
      c.kind = g.south ? CrsKind::tm_south : CrsKind::tm;
      c.lon0 = g.lcm;
      break;
    case ProjKind::LCC:
      c.kind = g.SP2 ? CrsKind::lcc2 : CrsKind::lcc1;
      c.lon0 = g.lcm;
      if (!g.SP2) c.lat0 = g.lat1 != 0 ? g.lat1 : g.lato;
      break;
    case ProjKind::AEAC:
      c.kind = CrsKind::albers;
      c.lon0 = g.lono;
      break;
    case ProjKind::HOM:
      c.kind = g.centre ? CrsKind::omerc_centre : CrsKind::omerc;
      c.lon0 = g.lono;
      break;
    case ProjKind::OS:
      c.kind = CrsKind::stereo;
      c.lon0 = g.lono;
      break;
    case ProjKind::GEO:
      break;
  }
  return c;
}
}  // namespace veld
