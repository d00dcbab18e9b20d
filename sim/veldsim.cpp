// veldsim: writes a simulated project with known truth.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/simproject.h"

namespace veld {
namespace {
struct Setting {  // a number of the project that the command line may change
  const char* name;
  double* value;
  const char* meaning;
};

int usage(const Setting* settings, size_t n) {
  std::printf(
      "usage: veldsim -odir DIR [-preset %s]\n               [-po_parse LETTERS | -po_format FORMAT] [-crs "
      "CODE] [-NAME "
      "VALUE ...]\n",
      sim_preset_names().c_str());
  std::printf("  -%-12s columns of a text trajectory: t x y z w p k, others filler (demo: SBET)\n",
              "po_parse");
  std::printf("  -%-12s sbet, trj, sol, bin, pof or las\n", "po_format");
  std::printf("  -%-12s coordinate system, as EPSG:2154, by GeoTIFF keys; east and north in its metres\n",
              "crs");
  for (size_t i = 0; i < n; i++) std::printf("  -%-12s %s\n", settings[i].name, settings[i].meaning);
  return 1;
}

bool check_spec(const SimSpec& spec) {
  const bool ok =
      spec.nparallel >= 1 && spec.ncross >= 0 && spec.nref >= 0 && spec.nref <= spec.nparallel &&
      spec.nchannel >= 1 && spec.nchannel <= 8 &&
      std::string(" sbet trj sol bin pof las ").find(" " + spec.traj_format + " ") != std::string::npos &&
      spec.zone != 0 && std::abs(spec.zone) <= 60;
  if (!ok) std::fprintf(stderr, "ERROR: lines, cross, ref, channels or zone out of range\n");
  return ok;
}
}  // namespace
}  // namespace veld

using namespace veld;

int main(int argc, char** argv) {
  SimSpec spec;
  std::string dir;
  const double UNSET = -1e9;  // the preset's value holds
  double seed = UNSET, land_seed = UNSET, nparallel = UNSET, ncross = UNSET, nref = UNSET, nchannel = UNSET,
         zone = UNSET;
  double ncontrol = UNSET, ncheck = UNSET;
  double geographic = UNSET, generic = UNSET, geoid = UNSET, accuracy = UNSET;
  const Setting settings[] = {
      {"seed", &seed, "seed of landscape, motion and noise"},
      {"land_seed", &land_seed, "seed of the landscape, when another flight over it has another seed"},
      {"lines", &nparallel, "parallel lines"},
      {"cross", &ncross, "cross lines"},
      {"ref", &nref, "reference strips over the middle lines"},
      {"channels", &nchannel, "laser channels, 1 to 8"},
      {"control", &ncontrol, "ground control points"},
      {"check", &ncheck, "ground check points"},
      {"zone", &zone, "UTM zone, negative south"},
      {"po_geo", &geographic, "text trajectory: 1 geographic, 0 projected"},
      {"int_gen", &generic, "1: i1 to i7 are those of the generic model"},
      {"unit_z", &spec.unit_z, "m per unit of the heights in swaths"},
      {"geoid", &geoid, "1: heights of points count from a geoid"},
      {"accuracy", &accuracy, "1: an accuracy file (smrmsg) beside the SBET"},
      {"east", &spec.east, "m, centre"},
      {"north", &spec.north, "m, centre"},
      {"ref_dx", &spec.ref_shift.x, "m, shift of the reference and the truth"},
      {"ref_dy", &spec.ref_shift.y, "m, shift of the reference and the truth"},
      {"ref_dz", &spec.ref_shift.z, "m, shift of the reference and the truth"},
      {"length", &spec.length, "m, length of a line"},
      {"spacing", &spec.spacing, "m, between parallel lines"},
      {"agl", &spec.agl, "m, height above ground"},
      {"pulse_rate", &spec.pulse_rate, "pulses per second"},
      {"roll", &spec.boresight_deg.x, "degrees, boresight roll to be found"},
      {"pitch", &spec.boresight_deg.y, "degrees, boresight pitch"},
      {"yaw", &spec.boresight_deg.z, "degrees, boresight yaw"},
      {"lever_x", &spec.lever.x, "m, lever arm forward"},
      {"lever_y", &spec.lever.y, "m, lever arm right"},
      {"lever_z", &spec.lever.z, "m, lever arm down"},
      {"roll1", &spec.boresight1_deg.x, "degrees, boresight roll of channel 1"},
      {"pitch1", &spec.boresight1_deg.y, "degrees, boresight pitch of channel 1"},
      {"yaw1", &spec.boresight1_deg.z, "degrees, boresight yaw of channel 1"},
      {"tilt1", &spec.tilt1_deg, "degrees, mount angle of channel 1"},
      {"i1", &spec.internal[0], "m, to be added to ranges; generic: m/rad^2 down"},
      {"i2", &spec.internal[1], "ratio by which ranges are too small; generic: m/rad^3 down"},
      {"i3", &spec.internal[2], "ratio by which scan angles are too large; generic: m/rad right"},
      {"i4", &spec.internal[3], "scan angle squared, 1/rad; generic: m/rad^2 right"},
      {"i5", &spec.internal[4], "scan angle cubed, 1/rad^2; generic: m/rad^3 right"},
      {"i6", &spec.internal[5], "tilt along track, m/m; generic: m/rad^2 forward"},
      {"i7", &spec.internal[6], "generic: m/rad^4 down"},
      {"motion", &spec.motion, "scale of the aircraft's motion"},
      {"drift_e", &spec.drift_pos.x, "m, drift east"},
      {"drift_n", &spec.drift_pos.y, "m, drift north"},
      {"drift_h", &spec.drift_pos.z, "m, drift in height"},
      {"drift_roll", &spec.drift_att_deg.x, "degrees, drift of roll"},
      {"drift_pitch", &spec.drift_att_deg.y, "degrees, drift of pitch"},
      {"drift_yaw", &spec.drift_att_deg.z, "degrees, drift of heading"},
      {"drift_worse", &spec.drift_worse, "times as much drift over the second line"},
      {"range_noise", &spec.range_noise, "m, range noise"},
      {"angle_noise", &spec.angle_noise_deg, "degrees, beam direction noise"},
  };
  const size_t nset = sizeof settings / sizeof *settings;
  // The preset first, whatever its place: the other options change its values.
  for (int i = 1; i + 1 < argc; i++)
    if (!std::strcmp(argv[i], "-preset") && !sim_preset(argv[i + 1], spec)) {
      std::fprintf(stderr, "ERROR: unknown preset '%s'\n", argv[i + 1]);
      return usage(settings, nset);
    }
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 >= argc) return usage(settings, nset);
    const std::string name = argv[i], value = argv[i + 1];
    if (name == "-preset") continue;
    if (name == "-odir" || name == "-po_parse" || name == "-po_format" || name == "-crs") {
      (name == "-odir"       ? dir
       : name == "-po_parse" ? spec.traj_columns
       : name == "-crs"      ? spec.crs
                             : spec.traj_format) = value;
      continue;
    }
    const Setting* found = nullptr;
    for (const Setting& s : settings)
      if (name == std::string("-") + s.name) found = &s;
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (!found || end == value.c_str() || *end) {
      std::fprintf(stderr, "ERROR: invalid option %s %s\n", name.c_str(), value.c_str());
      return usage(settings, nset);
    }
    *found->value = number;
  }
  if (dir.empty()) return usage(settings, nset);
  if (land_seed != UNSET) spec.land_seed = static_cast<uint64_t>(land_seed);
  if (seed != UNSET) spec.seed = static_cast<uint64_t>(seed);
  const struct {
    double value;
    int* target;
  } counts[] = {
      {nparallel, &spec.nparallel}, {ncross, &spec.ncross}, {nref, &spec.nref}, {nchannel, &spec.nchannel},
      {ncontrol, &spec.ncontrol},   {ncheck, &spec.ncheck}, {zone, &spec.zone}};
  for (const auto& c : counts)
    if (c.value != UNSET) *c.target = static_cast<int>(c.value);
  if (geographic != UNSET) spec.traj_geographic = geographic != 0;
  if (geoid != UNSET) spec.geoid = geoid != 0;
  if (accuracy != UNSET) spec.accuracy = accuracy != 0;
  if (generic != UNSET) spec.internal_generic = generic != 0;
  return check_spec(spec) && write_project(spec, dir) ? 0 : 1;
}
