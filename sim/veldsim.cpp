// veldsim: writes a simulated project with known truth.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/simproject.h"

namespace {
struct Setting {  // a number of the project that the command line may change
  const char* name;
  double* value;
  const char* meaning;
};

int usage(const Setting* settings, size_t n) {
  std::printf(
      "usage: veldsim -odir DIR [-preset demo|boresight|drift|tiny|large] [-seed N] [-NAME VALUE ...]\n");
  for (size_t i = 0; i < n; i++)
    std::printf("  -%-12s %s (demo: %g)\n", settings[i].name, settings[i].meaning, *settings[i].value);
  return 1;
}
}  // namespace

int main(int argc, char** argv) {
  SimSpec spec;
  std::string dir;
  double seed = -1, nparallel = -1, ncross = -1;
  const Setting settings[] = {
      {"seed", &seed, "seed of landscape, motion and noise; -1 for the preset's"},
      {"lines", &nparallel, "parallel lines; -1 for the preset's"},
      {"cross", &ncross, "cross lines; -1 for the preset's"},
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
      {"range_bias", &spec.range_bias, "m, to be added to ranges"},
      {"angle_scale", &spec.angle_scale, "ratio by which scan angles are too large"},
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
    if (name == "-odir") {
      dir = value;
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
  if (seed >= 0) spec.seed = static_cast<uint64_t>(seed);
  if (nparallel >= 0) spec.nparallel = static_cast<int>(nparallel);
  if (ncross >= 0) spec.ncross = static_cast<int>(ncross);
  return write_project(spec, dir) ? 0 : 1;
}
