// Named projects of the simulator.
#include "sim/simproject.h"

namespace {
void tiny(SimSpec& spec) {  // for tests that take seconds
  spec.nparallel = 2;
  spec.length = 170;
  spec.spacing = 80;
  spec.agl = 160;
  spec.pulse_rate = 6000;
}

void drift(SimSpec& spec) {  // far from the central meridian, crooked azimuth
  spec.seed = 7;
  spec.nparallel = 4;
  spec.ncross = 2;
  spec.length = 420;
  spec.azimuth_deg = 37;
  spec.east = 327000;
  spec.north = 5605000;
  spec.boresight_deg = {0.21, -0.12, -0.24};
  spec.lever = {0, 0, 0};
  spec.drift_pos = {0.03, 0.03, 0.04};
  spec.drift_att_deg = {0.003, 0.003, 0.006};
}

void large(SimSpec& spec) {  // for measuring speed
  spec.seed = 3;
  spec.length = 1500;
  spec.pulse_rate = 60000;
  spec.scan_rate = 60;
}

void reference(SimSpec& spec) {  // onto the datum of a fixed strip
  spec.seed = 11;
  spec.nref = 1;
  spec.ref_shift = {0.25, -0.15, 0.30};
}

void internal(SimSpec& spec) {
  spec.seed = 12;
  spec.fov_deg = 30;
  spec.internal[0] = 0.06;
  spec.internal[2] = 0.0015;
}

void internal_generic(SimSpec& spec) {
  spec.seed = 12;
  spec.fov_deg = 30;
  spec.internal_generic = true;
  spec.internal[0] = 0.8;
  spec.internal[2] = 0.4;
}

void channels(SimSpec& spec) {
  spec.seed = 13;
  spec.nchannel = 2;
  spec.pulse_rate = 6000;
}

void text(SimSpec& spec) {  // projected trajectory in text
  spec.seed = 14;
  spec.east = 327000;
  spec.north = 5605000;
  spec.traj_columns = "tnxyzwpk";
  spec.traj_geographic = false;
}

void track(SimSpec& spec) {  // positions only, so the aircraft flies calmly
  spec.seed = 15;
  spec.motion = 0.02;
  spec.traj_columns = "txyz";
}

void south(SimSpec& spec) {
  spec.seed = 16;
  spec.zone = -35;
  spec.east = 610000;
  spec.north = 7130000;
}

const struct {
  const char* name;
  void (*set)(SimSpec& spec);
} presets[] = {
    {"demo", [](SimSpec&) {}}, {"boresight", [](SimSpec&) {}},
    {"drift", drift},          {"tiny", tiny},
    {"large", large},          {"reference", reference},
    {"internal", internal},    {"generic", internal_generic},
    {"channels", channels},    {"text", text},
    {"track", track},          {"south", south},
};
}  // namespace

bool sim_preset(const std::string& name, SimSpec& spec) {
  for (const auto& preset : presets)
    if (name == preset.name) {
      spec = SimSpec();
      spec.name = name;
      preset.set(spec);
      return true;
    }
  return false;
}

std::string sim_preset_names() {
  std::string names;
  for (const auto& preset : presets) names += (names.empty() ? "" : "|") + std::string(preset.name);
  return names;
}
