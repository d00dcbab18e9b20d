// sim/simproject.h
// A whole simulated project: what is flown, which errors are put in, the observed and the true points, and
// the files of it.
#pragma once
#include <string>
#include <vector>

#include "sim/flight.h"
#include "sim/terrain.h"

namespace veld {
struct SimSpec {
  std::string name = "demo";
  uint64_t seed = 1;
  uint64_t land_seed = 0;  // of the landscape; 0: seed
  // Flight
  int nparallel = 3;       // lines in alternate directions
  int ncross = 1;          // lines across them
  double spacing = 105;    // m between parallel lines
  double length = 340;     // m, of a line
  double azimuth_deg = 0;  // of the first line, from grid north
  double agl = 220;        // m above the mean ground; cross lines fly 25 m higher
  double speed = 22;       // m/s
  double motion = 1;       // scale of the aircraft's motion
  double turn = 48;        // s between lines
  double overrun = 0;      // s that the scanner runs on into the turns at both ends of a line
  // Scanner
  double fov_deg = 24;        // half the field of view
  double pulse_rate = 10000;  // pulses/s
  double scan_rate = 25;      // lines/s
  int nchannel = 1;           // laser channels, 1 to 8; each makes a file per line
  double tilt1_deg = 8;       // channel 1 looks forward by this mount angle, channel c by c times as much
  bool uav = false;           // the options of the project say so
  // Landscape; place and seed are set by make_terrain
  Terrain land;
  // Place and time
  int zone = 33;                          // UTM; negative: southern hemisphere
  std::string crs;                        // "EPSG:2154"; swaths have its GeoTIFF keys then; empty: UTM
  double unit_z = 1;                      // m per unit of the heights in swaths
  bool geoid = false;                     // heights of points count from a geoid, of which a grid is written
  double east = 500000, north = 5321000;  // m, centre
  int week = 2301;
  double sow0 = 305100;  // s of the week at t = 0
  // Trajectory
  double traj_rate = 100;            // Hz
  std::string traj_format = "sbet";  // or trj, sol, bin, pof; columns make it a text
  std::string traj_columns;          // letters of a text file in degrees, such as "txyzwpk"; empty: SBET
  bool traj_geographic = true;       // text file in longitude and latitude, else projected
  // Reference: extra passes over the middle lines, without errors but for a shift of their datum
  int nref = 0;
  dxyz ref_shift{0, 0, 0};  // m; the true positions of all lines move along
  // Errors: corrections to be added to the observed points
  dxyz boresight_deg{-0.130, 0.085, 0.165};   // roll, pitch, yaw
  dxyz boresight1_deg{0.070, -0.050, 0.110};  // of channel 1
  dxyz lever{0.03, -0.04, 0};                 // m, x forward, y right, z down
  // Scanner errors of all channels. Physical: range bias (m), range scale, scan angle to the powers 1 to 3
  // (angles are too large), tilt along the track, unused. Generic: metres per power of the scan angle: down
  // 2, 3; right 1, 2, 3; forward 2; down 4.
  double internal[7] = {0, 0, 0, 0, 0, 0, 0};
  bool internal_generic = false;
  // Drift of the recorded trajectory, standard deviations
  dxyz drift_pos{0, 0, 0};      // m, east, north, up
  dxyz drift_att_deg{0, 0, 0};  // roll, pitch, yaw
  double drift_tau = 45;        // s
  double drift_worse = 1;       // times as much drift over the second parallel line
  bool accuracy = false;        // an accuracy file beside the SBET says how large drift is at each time
  // Ground control on open ground
  int ncontrol = 10;
  int ncheck = 6;
  // Noise
  double range_noise = 0.015;  // m
  double angle_noise_deg = 0.0015;
};

struct SimPoint {
  double t;  // s after the start
  dxyz observed, truth;
  float angle_deg;  // scan angle, positive to the right
  uint8_t ret, nret;
  uint8_t cls;  // 2 ground, 3 shrub, 5 tree, 6 building
  uint8_t channel;
};

// A named set of values. False for an unknown name.
bool sim_preset(const std::string& name, SimSpec& spec);
std::string sim_preset_names();  // joined by "|"

// Boresight and mount angle of a channel, degrees. Those of channels from 2 on follow from that of channel 1.
dxyz boresight_of(const SimSpec& spec, int channel);
double tilt_of(const SimSpec& spec, int channel);

FlightPlan make_plan(const SimSpec& spec);
DriftModel make_drift(const SimSpec& spec);
Terrain make_terrain(const SimSpec& spec);

// The points of one line as a channel sees them, in order of time. pass: another pass over the same line
// draws other noise and hits other places.
std::vector<SimPoint> scan_line(const SimSpec& spec, const FlightPlan& plan, int line, int channel = 0,
                                int pass = 0);

// Writes a project into dir (which must exist): L01.las ... (with two channels L01_c0.las, L01_c1.las ...),
// REF01.las ..., truth/, the trajectory, mount.txt, command.txt, truth.json. With several channels beams/ holds the lines
// once more, the channels of a line in one file, told apart by the user data. False, after an ERROR line, when
// a file cannot be written.
[[nodiscard]] bool write_project(const SimSpec& spec, const std::string& dir);

// The recorded trajectory, traj.out (SBET) or traj.txt (text), and the coordinate system where the options
// of the aligner have no name for it.
[[nodiscard]] bool write_trajectory(const SimSpec& spec, const FlightPlan& plan, const std::string& dir);
// Control points gcp.txt, check points gcp_check.txt (name x y z sigma), both gcp_all.txt (and 1 or 0). Fewer than
// asked for where there is not enough open ground. unit: m per unit of the plane.
[[nodiscard]] bool write_control(const SimSpec& spec, double unit, const std::string& dir);
// The options of the aligner that fit the project.
std::string project_options(const SimSpec& spec);
}  // namespace veld
