#include "image/geo_place.h"

#include <geo_simpletags.h>
#include <geotiff.h>
#include <geovalues.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "lib/general/log.h"
#include "lib/general/path.h"
#include "lib/general/result_file.h"

namespace veld {
namespace {
constexpr double FEET_US_M = 1200.0 / 3937.0;
constexpr double WGS84_A_M = 6378137.0, WGS84_E2_1 = 0.00669437999013;

struct TagsDeleter {
  void operator()(ST_TIFF* tags) const { ST_Destroy(tags); }
};
struct KeysDeleter {
  void operator()(GTIF* keys) const { GTIFFree(keys); }
};

void put_short(GTIF* keys, geokey_t key, int value) { GTIFKeySet(keys, key, TYPE_SHORT, 1, value); }
void put_double(GTIF* keys, geokey_t key, double value) { GTIFKeySet(keys, key, TYPE_DOUBLE, 1, value); }
void put_text(GTIF* keys, geokey_t key, const std::string& text) {
  GTIFKeySet(keys, key, TYPE_ASCII, 0, text.c_str());
}

bool is_wgs84(const ImgCRS& c) { return c.a == WGS84_A_M && std::fabs(c.e2 - WGS84_E2_1) < 1e-12; }

int unit_code(double unit) {
  if (std::fabs(unit - 1) < 1e-9) return Linear_Meter;
  if (std::fabs(unit - 0.3048) < 1e-9) return Linear_Foot;
  if (std::fabs(unit - FEET_US_M) < 1e-9) return Linear_Foot_US_Survey;
  return KvUserDefined;
}

void put_datum(GTIF* keys, const ImgCRS& c) {
  put_short(keys, GeogAngularUnitsGeoKey, Angular_Degree);
  if (is_wgs84(c)) {
    put_short(keys, GeographicTypeGeoKey, GCS_WGS_84);
    return;
  }
  put_short(keys, GeographicTypeGeoKey, KvUserDefined);
  put_text(keys, GeogCitationGeoKey, "GCS Name = unnamed|");
  put_short(keys, GeogGeodeticDatumGeoKey, KvUserDefined);
  put_short(keys, GeogEllipsoidGeoKey, KvUserDefined);
  put_double(keys, GeogSemiMajorAxisGeoKey, c.a);
  put_double(keys, GeogInvFlatteningGeoKey, c.e2 > 0 ? 1 / (1 - std::sqrt(1 - c.e2)) : 0);
}

struct DoubleKey {
  geokey_t key;
  double value;
};

// Method and parameters of a projection that no code stands for.
std::vector<DoubleKey> method_keys(const ImgCRS& c, int& method) {
  const DoubleKey E0{ProjFalseEastingGeoKey, c.E0}, N0{ProjFalseNorthingGeoKey, c.N0};
  const DoubleKey lat0{ProjNatOriginLatGeoKey, c.lat0}, lon0{ProjNatOriginLongGeoKey, c.lon0},
      k0{ProjScaleAtNatOriginGeoKey, c.k0};
  switch (c.kind) {
    case CrsKind::tm:
    case CrsKind::tm_south:
      method = c.kind == CrsKind::tm ? CT_TransverseMercator : CT_TransvMercator_SouthOriented;
      return {lat0, lon0, k0, E0, N0};
    case CrsKind::lcc1:
      method = CT_LambertConfConic_1SP;
      return {lat0, lon0, k0, E0, N0};
    case CrsKind::lcc2:
      method = CT_LambertConfConic_2SP;
      return {{ProjStdParallel1GeoKey, c.lat1},     {ProjStdParallel2GeoKey, c.lat2},
              {ProjFalseOriginLatGeoKey, c.lat0},   {ProjFalseOriginLongGeoKey, c.lon0},
              {ProjFalseOriginEastingGeoKey, c.E0}, {ProjFalseOriginNorthingGeoKey, c.N0}};
    case CrsKind::albers:
      method = CT_AlbersEqualArea;
      return {{ProjStdParallel1GeoKey, c.lat1}, {ProjStdParallel2GeoKey, c.lat2}, lat0, lon0, E0, N0};
    case CrsKind::omerc:
    case CrsKind::omerc_centre:
      method = c.kind == CrsKind::omerc ? CT_ObliqueMercator : CT_HotineObliqueMercatorAzimuthCenter;
      return {{ProjCenterLatGeoKey, c.lat0},
              {ProjCenterLongGeoKey, c.lon0},
              {ProjAzimuthAngleGeoKey, c.azimuth},
              {ProjRectifiedGridAngleGeoKey, c.rectified},
              {ProjScaleAtCenterGeoKey, c.k0},
              E0,
              N0};
    case CrsKind::stereo:
      method = CT_ObliqueStereographic;
      return {lat0, lon0, k0, E0, N0};
    default:
      method = 0;
      return {};
  }
}

void put_projection(GTIF* keys, const ImgCRS& c) {
  if (c.epsg > 0) {
    put_short(keys, ProjectedCSTypeGeoKey, c.epsg);
    return;
  }
  if (c.kind == CrsKind::utm && is_wgs84(c)) {
    put_short(keys, ProjectedCSTypeGeoKey, (c.zone < 0 ? 32700 : 32600) + std::abs(c.zone));
    return;
  }
  put_datum(keys, c);
  put_short(keys, ProjectedCSTypeGeoKey, KvUserDefined);
  put_text(keys, PCSCitationGeoKey, c.name.empty() ? "project" : c.name);
  if (const int code = unit_code(c.unit); code != KvUserDefined) {
    put_short(keys, ProjLinearUnitsGeoKey, code);
  } else {
    put_short(keys, ProjLinearUnitsGeoKey, KvUserDefined);
    put_double(keys, ProjLinearUnitSizeGeoKey, c.unit);
  }
  if (c.kind == CrsKind::utm) {
    put_short(keys, ProjectionGeoKey, (c.zone < 0 ? 16100 : 16000) + std::abs(c.zone));
    return;
  }
  int method = 0;
  const std::vector<DoubleKey> list = method_keys(c, method);
  put_short(keys, ProjectionGeoKey, KvUserDefined);
  put_short(keys, ProjCoordTransGeoKey, method);
  for (const DoubleKey& k : list) put_double(keys, k.key, k.value);
}

std::string worldfile_name(const std::string& image) {
  const std::string ext = get_extension(image);
  return change_extension(image, ext == ".jpg" ? ".jgw" : ".tfw");
}
}  // namespace

bool make_geo_keys(const ImgCRS& crs, GeoTiffTags& keys) {
  keys = GeoTiffTags();
  if (crs.kind == CrsKind::none && crs.epsg == 0) return true;
  const std::unique_ptr<ST_TIFF, TagsDeleter> tags(ST_Create());
  const std::unique_ptr<GTIF, KeysDeleter> geo(tags ? GTIFNewSimpleTags(tags.get()) : nullptr);
  bool ok = geo != nullptr;
  if (ok) {
    put_short(geo.get(), GTModelTypeGeoKey, ModelTypeProjected);
    put_short(geo.get(), GTRasterTypeGeoKey, RasterPixelIsArea);
    put_projection(geo.get(), crs);
    ok = GTIFWriteKeys(geo.get()) != 0;
  }
  int count = 0, type = 0;
  void* data = nullptr;
  if (ok && ST_GetKey(tags.get(), 34735, &count, &type, &data)) {
    const auto* p = static_cast<const uint16_t*>(data);
    keys.directory.assign(p, p + count);
  }
  if (ok && ST_GetKey(tags.get(), 34736, &count, &type, &data)) {
    const auto* p = static_cast<const double*>(data);
    keys.doubles.assign(p, p + count);
  }
  if (ok && ST_GetKey(tags.get(), 34737, &count, &type, &data)) keys.text = static_cast<const char*>(data);
  if (!ok) ERROR_MSG("GeoTIFF keys could not be made");
  return ok;
}

bool save_worldfile(const std::string& image, const ImgPlace& place, double unit) {
  ResultFile out;
  if (!out.open(worldfile_name(image))) return false;
  const double step = place.GSD / unit;
  out.fs.precision(9);
  out.fs << step << "\n0.0\n0.0\n"
         << -step << '\n'
         << place.x0 / unit + step / 2 << '\n'
         << place.y0 / unit - step / 2 << '\n';
  return out.commit();
}

bool load_worldfile(const std::string& image, double unit, ImgPlace& place) {
  std::string name;
  for (const char* ext : {".tfw", ".TFW", ".tifw", ".wld"})
    if (name.empty() && is_regular_file(change_extension(image, ext))) name = change_extension(image, ext);
  double v[6] = {};
  bool ok = !name.empty();
  if (ok) {
    TxtFileIn in(false);
    std::string line;
    ok = in.open(name);
    for (double& value : v) {
      ok = ok && in.getline(line);
      if (!ok) break;
      char* end = nullptr;
      value = std::strtod(line.c_str(), &end);
      ok = end != line.c_str() && std::isfinite(value);
    }
  }
  const bool square = ok && v[0] > 0 && v[1] == 0 && v[2] == 0 && std::fabs(v[0] + v[3]) < 1e-6 * v[0];
  if (!square) {
    ERROR_MSG("load_TIFF worldfile failed, file " << (name.empty() ? worldfile_name(image) : name)
                                                  << (ok ? " (turned or rectangular pixels)" : ""));
    return false;
  }
  place.GSD = v[0] * unit;
  place.x0 = (v[4] - v[0] / 2) * unit;
  place.y0 = (v[5] + v[0] / 2) * unit;
  return true;
}
}  // namespace veld
