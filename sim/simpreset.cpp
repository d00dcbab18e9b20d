// Named projects of the simulator.
#include "sim/simproject.h"

namespace veld {
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

void beams(SimSpec& spec) {  // eight lasers that look forward more and more, each with a boresight of its own
  spec.seed = 17;
  spec.nchannel = 8;
  spec.tilt1_deg = 2;
  spec.pulse_rate = 2500;
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

// Scenarios: what makes an alignment hard, one by one.

void block(SimSpec& spec) {  // five airborne lines, boresight only
  spec.seed = 21;
  spec.nparallel = 5;
  spec.spacing = 210;
  spec.length = 420;
  spec.agl = 450;
  spec.speed = 60;
  spec.turn = 90;
  spec.pulse_rate = 26000;
  spec.scan_rate = 35;
  spec.lever = {0, 0, 0};
  spec.boresight_deg = {0.09, -0.06, 0.11};
  spec.range_noise = 0.012;
  spec.angle_noise_deg = 0.001;
}

void block_drift(SimSpec& spec) {  // the same with the drift of a good navigation system
  block(spec);
  spec.drift_pos = {0.05, 0.05, 0.05};
  spec.drift_att_deg = {0.004, 0.004, 0.008};
  spec.drift_tau = 60;
}

void village(SimSpec& spec) {
  spec.seed = 22;
  spec.length = 240;
  spec.land.village = 400;
  spec.land.house_frac = 0.75;
}

void forest(SimSpec& spec) {
  spec.seed = 23;
  spec.length = 220;
  spec.pulse_rate = 14000;
  spec.land.wood = -0.5;
  spec.land.undergrowth = 0.5;
}

void ponds(SimSpec& spec) {
  spec.seed = 24;
  spec.length = 300;
  spec.land.pond_frac = 0.6;
}

void sparse(SimSpec& spec) {  // 0.5 points a square metre
  spec.seed = 25;
  spec.pulse_rate = 2200;
  spec.scan_rate = 12;
}

void dense(SimSpec& spec) {  // 10 points a square metre
  spec.seed = 26;
  spec.nparallel = 2;
  spec.length = 140;
  spec.agl = 160;
  spec.spacing = 80;
  spec.pulse_rate = 32000;
  spec.scan_rate = 70;
}

void uav(SimSpec& spec) {  // short lines with their turns, low and slow
  spec.seed = 27;
  spec.uav = true;
  spec.nparallel = 4;
  spec.ncross = 1;
  spec.spacing = 42;
  spec.length = 110;
  spec.agl = 70;
  spec.speed = 7;
  spec.turn = 9;
  spec.overrun = 3;
  spec.fov_deg = 35;
  spec.pulse_rate = 6000;
  spec.scan_rate = 30;
  spec.traj_rate = 200;
  spec.lever = {0, 0, 0};
  spec.boresight_deg = {0.21, -0.24, 0.33};
  spec.range_noise = 0.010;
  spec.angle_noise_deg = 0.004;
  spec.drift_pos = {0.02, 0.02, 0.03};
  spec.drift_att_deg = {0.003, 0.003, 0.01};
  spec.drift_tau = 60;
}

const struct {
  const char* name;
  void (*set)(SimSpec& spec);
} presets[] = {
    {"demo", [](SimSpec&) {}},
    {"boresight", [](SimSpec&) {}},
    {"drift", drift},
    {"tiny", tiny},
    {"large", large},
    {"reference", reference},
    {"internal", internal},
    {"generic", internal_generic},
    {"channels", channels},
    {"text", text},
    {"beams", beams},
    {"track", track},
    {"south", south},
    {"block", block},
    {"block_drift", block_drift},
    {"village", village},
    {"forest", forest},
    {"ponds", ponds},
    {"sparse", sparse},
    {"dense", dense},
    {"uav", uav},
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
}  // namespace veld
