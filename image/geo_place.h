// image/geo_place.h
// Where a raster lies: its corner, its pixel, the coordinate system of the ground.
// Here:     the records, world files, the keys of a GeoTIFF.
// Not here: the TIFF itself (tiff_out.h), projections of points (geo/).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace veld {
struct ImgPlace {
  double x0 = 0, y0 = 0;  // m, upper left corner of the upper left pixel
  double GSD = 1;         // m, side of a pixel
};

enum class CrsKind { none, utm, tm, tm_south, lcc1, lcc2, albers, omerc, omerc_centre, stereo };

// A projected coordinate system in numbers; `none` leaves a raster with its place only.
struct ImgCRS {
  CrsKind kind = CrsKind::none;
  int epsg = 0;     // code of the projected system; 0: described by what follows
  int zone = 0;     // UTM, negative in the southern hemisphere
  double unit = 1;  // m, unit of the plane and of what follows
  double a = 6378137.0;
  double e2 = 0.00669437999013;
  double lon0 = 0, lat0 = 0, lat1 = 0, lat2 = 0;  // degrees
  double k0 = 1;                                  // scale factor
  double E0 = 0, N0 = 0;                          // false easting, northing
  double azimuth = 0,
         rectified = 0;  // degrees, of the oblique Mercator (omerc_centre: false origin at the centre)
  std::string name;      // as it is cited, may be empty
};

// The GeoTIFF tags of a system: directory (34735), doubles (34736), text (34737). All empty for `none`.
struct GeoTiffTags {
  std::vector<uint16_t> directory;
  std::vector<double> doubles;
  std::string text;
};
// False after an ERROR line.
[[nodiscard]] bool make_geo_keys(const ImgCRS& crs, GeoTiffTags& keys);

// The six lines of a world file beside the image: image's name with the extension ".tfw" or ".jgw". unit: metres
// per unit of the file (OUTDATAUNIT). False after an ERROR line.
[[nodiscard]] bool save_worldfile(const std::string& image, const ImgPlace& place, double unit);
// Reads the world file of an image (".tfw", ".TFW", ".tifw" or ".wld"); false after an ERROR line when there is none,
// or when it turns the image or has rectangular pixels. unit as above.
[[nodiscard]] bool load_worldfile(const std::string& image, double unit, ImgPlace& place);
}  // namespace veld
