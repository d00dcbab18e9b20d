#include "geo/crs_resolve.h"

#include <proj_experimental.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "geo/proj_internal.h"
#include "geo/wkt.h"
#include "lib/general/log.h"

namespace veld {
namespace {
constexpr double DEG = 57.29577951308232;  // per radian

// A projection method by its EPSG code, and where each of its parameters goes.
struct Constant {
  int code;  // EPSG's of the parameter
  double GeoRefParam::*field;
};
struct Method {
  int code;
  ProjKind kind;
  bool south, SP2, centre;
  std::vector<Constant> constants;
};

const std::vector<Method>& methods() {
  using G = GeoRefParam;
  const Constant FE{8806, &G::Eo}, FN{8807, &G::No}, K{8805, &G::ko};
  static const std::vector<Method> list = {
      {9807, ProjKind::TM, false, false, false, {{8801, &G::lato}, {8802, &G::lcm}, K, FE, FN}},
      {9808, ProjKind::TM, true, false, false, {{8801, &G::lato}, {8802, &G::lcm}, K, FE, FN}},
      {9801, ProjKind::LCC, false, false, false, {{8801, &G::lato}, {8802, &G::lcm}, K, FE, FN}},
      {9802,
       ProjKind::LCC,
       false,
       true,
       false,
       {{8821, &G::lato},
        {8822, &G::lcm},
        {8823, &G::lat1},
        {8824, &G::lat2},
        {8826, &G::Eo},
        {8827, &G::No}}},
      {9822,
       ProjKind::AEAC,
       false,
       false,
       false,
       {{8821, &G::lato},
        {8822, &G::lono},
        {8823, &G::lat1},
        {8824, &G::lat2},
        {8826, &G::Eo},
        {8827, &G::No}}},
      {9812,
       ProjKind::HOM,
       false,
       false,
       false,
       {{8811, &G::lato}, {8812, &G::lono}, {8813, &G::az}, {8814, &G::rga}, {8815, &G::ko}, FE, FN}},
      {9815,
       ProjKind::HOM,
       false,
       false,
       true,
       {{8811, &G::lato},
        {8812, &G::lono},
        {8813, &G::az},
        {8814, &G::rga},
        {8815, &G::ko},
        {8816, &G::Eo},
        {8817, &G::No}}},
      {9809, ProjKind::OS, false, false, false, {{8801, &G::lato}, {8802, &G::lono}, K, FE, FN}}};
  return list;
}

std::string name_of(const PJ* object) {
  const char* name = object ? proj_get_name(object) : nullptr;
  return name ? name : "";
}

// What PROJ is asked with: one context for all objects of a resolution.
struct Resolver {
  ProjContext context = make_proj_context();
  PJ_CONTEXT* ctx() const { return context.get(); }
  ProjObject own(PJ* object) const { return ProjObject(object); }

  ProjObject create(const std::string& text) const {
    ProjObject object = own(proj_create(ctx(), text.c_str()));
    const bool pipeline = text.find("+proj=") != std::string::npos || text.rfind("proj=", 0) == 0;
    if (pipeline && (!object || !proj_is_crs(object.get())))
      object = own(proj_create(ctx(), (text + " +type=crs").c_str()));
    return object;
  }
  ProjObject from_code(int code, PJ_CATEGORY category) const {
    return own(proj_create_from_database(ctx(), "EPSG", std::to_string(code).c_str(), category, 0, nullptr));
  }
};

// Metres per unit of the first axis. 0 when there is none.
double axis_unit(const Resolver& r, const PJ* crs) {
  const ProjObject cs = r.own(proj_crs_get_coordinate_system(r.ctx(), crs));
  double unit = 0;
  if (!cs || !proj_cs_get_axis_info(r.ctx(), cs.get(), 0, nullptr, nullptr, nullptr, &unit, nullptr, nullptr,
                                    nullptr))
    return 0;
  return exact_unit(unit);
}

void set_spheroid(const Resolver& r, const PJ* object, GeoRefParam& g) {
  const ProjObject ellipsoid = r.own(proj_get_ellipsoid(r.ctx(), object));
  double a = 0, b = 0, inverse = 0;
  if (!ellipsoid || !proj_ellipsoid_get_parameters(r.ctx(), ellipsoid.get(), &a, &b, nullptr, &inverse) ||
      !(a > 0)) {
    WARNING_MSG("no spheroid in coordinate system " << name_of(object) << ", using WGS84");
    return;
  }
  const double f = inverse > 0 ? 1 / inverse : 0;
  g.a = a;
  g.e2 = inverse > 0 ? f * (2 - f) : 1 - b * b / (a * a);
}

// Degrees from Greenwich.
double prime_meridian(const Resolver& r, const PJ* object) {
  const ProjObject meridian = r.own(proj_get_prime_meridian(r.ctx(), object));
  double lon = 0, radians = 0;
  if (!meridian || !proj_prime_meridian_get_parameters(r.ctx(), meridian.get(), &lon, &radians, nullptr))
    return 0;
  return lon * radians * DEG;
}

// Seven parameters of a system that is bound to WGS84, or for which PROJ knows such a binding.
bool set_shift(const Resolver& r, const PJ* bound, GeoRefParam& g) {
  if (!bound || proj_get_type(bound) != PJ_TYPE_BOUND_CRS) return false;
  const ProjObject step = r.own(proj_crs_get_coordoperation(r.ctx(), bound));
  g.hasH7 = step && proj_coordoperation_get_towgs84_values(r.ctx(), step.get(), g.H7, 7, 0);
  if (g.hasH7) LOG_LINE("H7 of PROJ: " << name_of(step.get()));
  return g.hasH7;
}

// A system without its bindings; sets the shift from the outermost one.
ProjObject unbound(const Resolver& r, ProjObject crs, GeoRefParam& g) {
  while (crs && proj_get_type(crs.get()) == PJ_TYPE_BOUND_CRS) {
    if (!g.hasH7) set_shift(r, crs.get(), g);
    crs = r.own(proj_get_source_crs(r.ctx(), crs.get()));
  }
  return crs;
}

bool set_constants(const Resolver& r, const PJ* conversion, const std::string& crs_name, GeoRefParam& g,
                   std::string& cause) {
  const char *method_name = nullptr, *code = nullptr;
  if (!proj_coordoperation_get_method_info(r.ctx(), conversion, &method_name, nullptr, &code)) return false;
  const int number = code ? std::atoi(code) : 0;
  const Method* method = nullptr;
  for (const Method& row : methods())
    if (row.code == number) method = &row;
  if (!method) {
    cause = crs_name + ": no formula for the method '" + (method_name ? method_name : "") + "'";
    return false;
  }
  g.kind = method->kind;
  g.south = method->south, g.SP2 = method->SP2, g.centre = method->centre;
  for (int i = 0; i < proj_coordoperation_get_param_count(r.ctx(), conversion); i++) {
    const char *parameter = nullptr, *category = nullptr;
    double value = 0, unit = 1;
    if (!proj_coordoperation_get_param(r.ctx(), conversion, i, nullptr, nullptr, &parameter, &value, nullptr,
                                       &unit, nullptr, nullptr, nullptr, &category))
      continue;
    const bool angle = category && std::string(category) == "angular";
    const bool length = category && std::string(category) == "linear";
    for (const Constant& c : method->constants)
      if (parameter && std::atoi(parameter) == c.code)
        g.*c.field = angle ? value * unit * DEG : length ? value * unit / g.unit_wkt : value * unit;
  }
  if (g.kind == ProjKind::LCC && !g.SP2) g.lat1 = g.lato;
  LOG_LINE(proj_word(g.kind) << " lato=" << g.lato << " lcm=" << g.lcm << " lono=" << g.lono
                             << " lat1=" << g.lat1 << " lat2=" << g.lat2 << " ko=" << g.ko << " Eo=" << g.Eo
                             << " No=" << g.No << " az=" << g.az << " rga=" << g.rga);
  return true;
}

const char* kind_text(PJ_TYPE type) {
  switch (type) {
    case PJ_TYPE_GEOGRAPHIC_2D_CRS:
    case PJ_TYPE_GEOGRAPHIC_3D_CRS:
      return "a geographic system; swaths in degrees cannot be aligned";
    case PJ_TYPE_GEOCENTRIC_CRS:
      return "an earth-centred system; swaths must be projected";
    case PJ_TYPE_VERTICAL_CRS:
      return "a vertical system only";
    default:
      return "no projected system";
  }
}

// The vertical part of a compound system.
void set_vertical(const Resolver& r, const PJ* vertical, GeoRefParam& g) {
  GeoRefParam ignored;
  const ProjObject crs = unbound(r, r.own(proj_clone(r.ctx(), vertical)), ignored);
  const double unit = crs ? axis_unit(r, crs.get()) : 0;
  if (unit > 0) g.unit_z = unit;
  g.vertical = name_of(crs.get());
}

bool resolve_projected(const Resolver& r, const PJ* crs, GeoRefParam& g, std::string& cause) {
  g.name = name_of(crs);
  if (proj_get_type(crs) != PJ_TYPE_PROJECTED_CRS) {
    cause = g.name + ": " + kind_text(proj_get_type(crs));
    return false;
  }
  g.unit = g.unit_z = g.unit_wkt = axis_unit(r, crs);
  const ProjObject conversion = r.own(proj_crs_get_coordoperation(r.ctx(), crs));
  if (!(g.unit > 0) || !conversion) {
    cause = g.name + ": no unit or no projection";
    return false;
  }
  if (!set_constants(r, conversion.get(), g.name, g, cause)) return false;
  set_spheroid(r, crs, g);
  const double meridian = prime_meridian(r, crs);
  g.lcm += meridian, g.lono += meridian;
  if (!g.hasH7) set_shift(r, r.own(proj_crs_create_bound_crs_to_WGS84(r.ctx(), crs, nullptr)).get(), g);
  return true;
}

bool resolve_any(const Resolver& r, ProjObject crs, GeoRefParam& g, std::string& cause) {
  crs = unbound(r, std::move(crs), g);
  if (!crs) return false;
  if (proj_get_type(crs.get()) != PJ_TYPE_COMPOUND_CRS) return resolve_projected(r, crs.get(), g, cause);
  const ProjObject plane = unbound(r, r.own(proj_crs_get_sub_crs(r.ctx(), crs.get(), 0)), g);
  const ProjObject vertical = r.own(proj_crs_get_sub_crs(r.ctx(), crs.get(), 1));
  if (!plane || !resolve_projected(r, plane.get(), g, cause)) return false;
  if (vertical) set_vertical(r, vertical.get(), g);
  return true;
}

// Metres of a length unit by its EPSG code; 0 when unknown.
double unit_of_code(const Resolver& r, int code) {
  const char* category = nullptr;
  double unit = 0;
  if (!proj_uom_get_info_from_database(r.ctx(), "EPSG", std::to_string(code).c_str(), nullptr, &unit,
                                       &category) ||
      std::string(category) != "linear")
    return 0;
  return exact_unit(unit);
}

// The plane's unit by the keys; `otherwise` without one.
double key_unit(const Resolver& r, const GeoKeys& keys, double otherwise) {
  const int code = keys.get(KEY_LINEAR_UNIT);
  double unit = 0;
  if (code == USER_DEFINED && keys.number(KEY_LINEAR_UNIT_SIZE, unit) && unit > 0) return exact_unit(unit);
  unit = code > 0 && code != USER_DEFINED ? unit_of_code(r, code) : 0;
  return unit > 0 ? unit : otherwise;
}

// A system given by parameters: spheroid by code or numbers, then the text for the scanner.
bool resolve_parameters(const Resolver& r, const GeoKeys& keys, GeoRefParam& g, std::string& cause) {
  const struct {
    int key;
    PJ_CATEGORY category;
  } carriers[] = {{KEY_GEOGRAPHIC, PJ_CATEGORY_CRS},
                  {KEY_DATUM, PJ_CATEGORY_DATUM},
                  {KEY_ELLIPSOID, PJ_CATEGORY_ELLIPSOID}};
  double inverse = 298.257223563;
  ProjObject system;
  for (const auto& c : carriers) {
    const int code = keys.get(c.key);
    if (!system && code > 0 && code != USER_DEFINED) system = r.from_code(code, c.category);
  }
  if (system && proj_get_type(system.get()) == PJ_TYPE_ELLIPSOID)
    proj_ellipsoid_get_parameters(r.ctx(), system.get(), &g.a, nullptr, nullptr, &inverse);
  else if (system)
    set_spheroid(r, system.get(), g), inverse = 1 / (1 - std::sqrt(1 - g.e2));
  double minor = 0;
  const bool own = keys.number(KEY_SEMI_MAJOR, g.a);
  if (keys.number(KEY_SEMI_MINOR, minor) && minor > 0 && minor < g.a) inverse = g.a / (g.a - minor);
  keys.number(KEY_INV_FLATTENING, inverse);
  if (!system && !own) WARNING_MSG("GeoTIFF keys without spheroid, using WGS84");

  const int projection = keys.get(KEY_PROJECTION);
  const double unit = key_unit(r, keys, 1);
  if (projection > 0 && projection != USER_DEFINED) {  // a registered projection on that spheroid
    const ProjObject conversion = r.from_code(projection, PJ_CATEGORY_COORDINATE_OPERATION);
    if (!conversion) {
      cause = "projection " + std::to_string(projection) + " of the GeoTIFF keys is not known";
      return false;
    }
    g.unit = g.unit_z = g.unit_wkt = unit;
    g.name = name_of(conversion.get());
    g.e2 = inverse > 0 ? (2 - 1 / inverse) / inverse : 0;
    if (!set_constants(r, conversion.get(), g.name, g, cause)) return false;
  } else {
    const std::string wkt = geotiff_wkt(keys, g.a, inverse, unit, cause);
    LOG_LINE("geotiff_wkt -> " << wkt);
    if (wkt.empty()) return false;
    if (!scan_wkt(wkt_normalise(wkt), g)) {
      cause = "parameters of the GeoTIFF keys are inconsistent";
      return false;
    }
    g.name = keys.citation().empty() ? "user-defined" : keys.citation();
  }
  const bool geographic = system && proj_is_crs(system.get());
  if (!g.hasH7 && geographic)
    set_shift(r, r.own(proj_crs_create_bound_crs_to_WGS84(r.ctx(), system.get(), nullptr)).get(), g);
  return true;
}
}  // namespace

bool resolve_crs(const std::string& text, GeoRefParam& g, std::string& cause) {
  LOG_ENTER("resolve_crs length=" << text.length());
  const Resolver r;
  cause = "not understood";
  ProjObject crs = r.create(text);
  if (!crs) return false;
  if (!proj_is_crs(crs.get())) {
    cause = name_of(crs.get()) + ": no coordinate system";
    return false;
  }
  return resolve_any(r, std::move(crs), g, cause);
}

bool resolve_geotiff(const GeoKeys& keys, GeoRefParam& g, std::string& cause) {
  LOG_ENTER("resolve_geotiff ncode=" << keys.code.size() << " nnumber=" << keys.numbers.size());
  for (const auto& entry : keys.code) LOG_LINE("key " << entry.first << " = " << entry.second);
  const Resolver r;
  const int model = keys.get(KEY_MODEL_TYPE), code = keys.get(KEY_PROJECTED);
  if (code == 0 && (model == 2 || model == 3)) {
    cause = std::string("GeoTIFF keys: ") +
            kind_text(model == 2 ? PJ_TYPE_GEOGRAPHIC_2D_CRS : PJ_TYPE_GEOCENTRIC_CRS);
    return false;
  }
  if (code > 0 && code != USER_DEFINED) {
    cause = "code " + std::to_string(code) + " of the GeoTIFF keys is not known";
    if (!resolve_any(r, r.from_code(code, PJ_CATEGORY_CRS), g, cause)) return false;
    const double unit = key_unit(r, keys, g.unit);
    if (unit != g.unit) {
      WARNING_MSG("GeoTIFF keys: unit of " << unit << " m, " << g.name << " has " << g.unit
                                           << " m, using that of the keys");
      g.unit = g.unit_z = unit;  // false origins stay in the unit of the system
    }
  } else if (!resolve_parameters(r, keys, g, cause)) {
    return false;
  }
  const int vertical = keys.get(KEY_VERTICAL), vertical_unit = keys.get(KEY_VERTICAL_UNIT);
  if (vertical > 0 && vertical != USER_DEFINED)
    if (const ProjObject crs = r.from_code(vertical, PJ_CATEGORY_CRS);
        crs && proj_get_type(crs.get()) == PJ_TYPE_VERTICAL_CRS)
      set_vertical(r, crs.get(), g);
  if (const double unit = vertical_unit > 0 ? unit_of_code(r, vertical_unit) : 0; unit > 0) g.unit_z = unit;
  return true;
}
}  // namespace veld
