#include "prj/LiDAR/LmTQCimg/swath_geojson.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "lib/general/log.h"
#include "lib/general/result_file.h"

namespace veld {
namespace {
using Json = nlohmann::ordered_json;

double rounded(double v, double step) { return std::round(v / step) * step; }

Json properties(const Project& prj, const ProjectStat& stat, SwathId sw) {
  const Swath& s = prj.swaths[sw];
  const SwathStat& t = stat.swaths[sw];
  Json p;
  p["swath"] = sw.number;
  p["group"] = s.group;
  p["channel"] = s.channel;
  p["main_channel"] = s.mainch.number;
  p["file"] = prj.swaths.name(sw);
  p["state"] = s.fixed ? "reference" : "mobile";
  p["points"] = uint64_t{t.info.np};
  p["density_per_m2"] = rounded(t.density, 0.001);
  p["area_m2"] = rounded(t.area, 1);
  p["length_m"] = rounded(t.length, 0.1);
  p["width_m"] = rounded(t.width, 0.1);
  p["heading_deg"] = rounded(t.heading, 0.01);
  p["time_min_s"] = s.clock.tmin;
  p["time_max_s"] = s.clock.tmax;
  p["adjusted_gps_time"] = s.clock.raw_adj;
  p["z_min_m"] = rounded(t.Zmin, 0.001);
  p["z_max_m"] = rounded(t.Zmax, 0.001);
  return p;
}

// The coordinates of a shape; geographic ones in degrees. False where the projection is not defined.
bool coordinates(const Project& prj, const MapShape& shape, bool geographic, Json& out) {
  const double unit = prj.georef.unit;
  out = Json::array();
  for (const auto& polygon : shape.polygons) {
    Json rings = Json::array();
    for (const auto& ring : polygon) {
      Json points = Json::array();
      for (size_t i = 0; i <= ring.size(); i++) {
        const dxyz& m = ring[i % ring.size()];
        const dxyz p = {m.x / unit, m.y / unit, 0};
        double lon = 0, lat = 0, h = 0;
        if (!geographic)
          points.push_back({rounded(p.x, 0.001), rounded(p.y, 0.001)});
        else if (geo_inverse(prj.georef, p, lon, lat, h))
          points.push_back({rounded(lon, 1e-8), rounded(lat, 1e-8)});
        else
          return false;
      }
      rings.push_back(std::move(points));
    }
    out.push_back(std::move(rings));
  }
  return true;
}

bool write_features(const std::string& file, const Project& prj, const std::vector<MapShape>& shapes,
                    bool geographic) {
  ResultFile out;
  if (!out.open(file)) return false;
  out.fs << "{\"type\": \"FeatureCollection\",\n";
  // Coordinates other than WGS 84 need a name; a system without a code is described by its numbers.
  if (!geographic && prj.georef.kind == ProjKind::UTM)
    out.fs << "\"crs\": {\"type\": \"name\", \"properties\": {\"name\": \"urn:ogc:def:crs:EPSG::"
           << (prj.georef.Zone < 0 ? 32700 : 32600) + std::abs(prj.georef.Zone) << "\"}},\n";
  if (!geographic) out.fs << "\"projection\": " << Json(prj.georef.def).dump() << ",\n";
  out.fs << "\"features\": [\n";
  for (size_t i = 0; i < shapes.size(); i++) {
    Json feature;
    feature["type"] = "Feature";
    feature["properties"] = Json::parse(shapes[i].properties);
    feature["geometry"]["type"] = "MultiPolygon";
    if (!coordinates(prj, shapes[i], geographic, feature["geometry"]["coordinates"])) {
      WARNING_MSG(shapes[i].what << " lies outside the projection or the geoid grid, no file " << file);
      return true;
    }
    out.fs << feature.dump() << (i + 1 < shapes.size() ? ",\n" : "\n");
  }
  out.fs << "]}\n";
  return out.commit();
}
}  // namespace

std::vector<std::vector<std::vector<dxyz>>> make_polygons(const std::vector<Outline>& outlines,
                                                          double mTsize) {
  const auto ground = [&](const Ring& ring) {
    std::vector<dxyz> points;
    for (const EdgePoint& p : ring)
      points.push_back({static_cast<double>(p.x) * mTsize + GROUND_ORIGIN,
                        static_cast<double>(p.y) * mTsize + GROUND_ORIGIN, 0});
    return points;
  };
  std::vector<std::vector<std::vector<dxyz>>> polygons;
  for (const Outline& o : outlines) {
    std::vector<std::vector<dxyz>> rings = {ground(o.outer)};
    for (const Ring& hole : o.holes) rings.push_back(ground(hole));
    polygons.push_back(std::move(rings));
  }
  return polygons;
}

MapShape make_shape(const Project& prj, const ProjectStat& stat, SwathId sw) {
  return {LOG_STR("swath " << sw), properties(prj, stat, sw).dump(), {}};
}

bool write_geojson(const std::string& name, const Project& prj, const std::vector<MapShape>& shapes) {
  LOG_MSG("Writing outlines " << name << "*.geojson");
  if (prj.georef.kind != ProjKind::GEO && !write_features(name + ".geojson", prj, shapes, true)) return false;
  return write_features(name + "_prj.geojson", prj, shapes, false);
}
}  // namespace veld
