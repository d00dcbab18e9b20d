// prj/LiDAR/options/options.h
// The options of the program as values and as a table of rows.
// Here:     the parameters of the stages, which the rows of the table set directly; one field for each other
//           option, under the option's name; the type of a row.
// Not here: the rows themselves (option_rows_*.cpp), asking the questions (read_options.h), derived defaults and
//           rules between options (rules.h).
#pragma once
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "prj/LiDAR/POio/traj_cut_param.h"
#include "prj/LiDAR/VR2proc/corr_param.h"
#include "prj/LiDAR/options/scan_param.h"
#include "prj/LiDAR/tuning.h"

namespace veld {
// A field's initial value is the default of its option.
struct Options {
  Tuning tuning;         // of all stages; set_tuning makes them the run's
  ScanParam scanning;    // tiling, statistics, grids, registration
  CorrParam correction;  // synchronisation, inversion, quality control after it, output
  TrajCutParam lines;    // flight lines of a trajectory

  bool testgui = false;
  bool exp = false;
  int exp_reg = 0;
  int exp_grid = 0;
  float vgrid_gs = 1.0f;
  int vgrid_fill = 0;
  int vgrid_skip = 0;
  int vgrid_xy = 1;
  int vgrid_ret = 0;
  int vgrid_blevel = 5;
  int vgrid_test = 0;
  int vgrid_plot = 0;
  int vgrid_rplot = 0;
  int vgrid_mg_plot = 0;
  int vreg_level = 10;
  int vreg_coarse = 0;
  int vreg_plot = 0;
  int vreg_mg_plot = 0;
  int vreg_dim = 32;
  int vreg_ret = 0;
  int vreg_init = 0;
  float vreg_rmax = 3.0f;
  float vreg_kv = 0.1f;
  int vreg_opt1 = 1;
  int vreg_degf = 0;
  int vreg_qc0 = 0;
  double X0 = 0;
  double Y0 = 0;
  double DX = 0;
  double DY = 0;
  int keystone = 0;
  int key_size = 3;
  bool help = false;
  bool version = false;
  int quiet = 0;
  int progress = 1;
  bool log_flush = false;
  bool clear_tmp = false;
  bool clear_xyz = false;
  bool clear_log = false;
  std::string idir;
  std::string odir;
  std::string odir_1;
  std::string tmpdir;
  std::string gdir;
  int log = 1;
  std::string name;
  bool reg = false;
  bool align = false;
  bool align2 = false;
  std::vector<std::string> calib;
  bool scan = false;
  bool check = false;
  bool strict = false;
  bool fastqc = false;
  std::vector<std::string> corr;
  bool undo = false;
  std::vector<std::string> input;
  std::vector<std::string> input_list;
  std::vector<std::string> ref;
  std::vector<std::string> ref_list;
  std::vector<std::string> exclude;
  std::vector<std::string> exclude_list;
  std::vector<int> chgrp;
  std::vector<int> splitgrp;
  bool metre = false;
  bool feet_us = false;
  bool feet = false;
  int out_metre = 1;
  int uav = 0;
  std::vector<std::string> mount;
  std::vector<double> imu;
  std::vector<double> bore;
  int ground_class = 0;
  std::vector<int> drop_class;
  std::vector<int> keep_class;
  int ics_rms = 1;
  int tile2 = 0;
  std::vector<std::string> po;
  std::vector<std::string> po_list;
  std::vector<int> po_geo;
  std::vector<int> po_time;
  std::vector<int> po_rad;
  std::vector<std::string> po_parse;
  std::vector<int> po_att;
  std::vector<std::string> gps_date;
  float geoid_h = 0.0f;
  std::string geoid;
  int utm = 0;
  std::string wkt;
  int same_datum = 0;
  std::vector<double> test_proj2;
  std::vector<double> test_proj3;
  std::string out = "*";
  int opls = 0;
  int oplz = 0;
  int report = 1;
  int porec = 0;
  bool all = false;
  int v_color = 3;
  float dz_range_1 = 0.5f;
  float dz16_range_1 = 4.0f;
  float v_range_1 = 0.5f;
  std::vector<double> shift = {0, 0, 0};
  int merge = 1;
  std::string cal;
  std::string calib_param;
  std::string drift = "auto";
  std::string dpoc;
  int warp = 0;
  int64_t warp_gsd = 0;
  int blend = 0;
  int blend_ch = 1;
  int blend_ics = 0;
  int blend_ref = 0;
  int blend_soft = 0;
  std::vector<std::string> shift_corr;
  std::vector<std::string> calib_corr;
  std::vector<std::string> split;
  bool osplit = false;
  std::vector<std::string> split_mount;
  std::vector<std::string> beam_param;
  std::string beam_calib_corr;
  std::string las_read_check;
  std::string export_dut;
  bool plot_po = false;
  bool cut = false;
  int cut_gap = 1;
};

enum class OptKind { flag, boolean, integer, real, text, filename, directory, textlist, intlist, reallist };
enum class Theme {
  run,
  command,
  input,
  filter,
  tiles,
  grid,
  registration,
  trajectory,
  georef,
  geometry,
  inversion,
  correction,
  gcp,
  output,
  qc,
  maps,
  split,
  cut,
  voxel,
};
const char* theme_title(Theme theme);
const char* kind_word(OptKind kind);  // as the help prints it

using OptTarget = std::variant<bool*, int*, int64_t*, float*, double*, std::string*,
                               std::vector<std::string>*, std::vector<int>*, std::vector<double>*>;

// Work that this version does not do. Options of one subject are reported together.
struct Missing {
  const char* subject;
  const char* reason;
};
// Whether an option is available, and if not, when a value of it asks for the missing work.
struct Availability {
  enum class Kind {
    available,
    no_effect,  // taken without effect, which a WARNING says
    product,    // missing, asked for by any value but "off"
    setting,    // missing, of such a product: asked for whenever the option is given
    always,     // the work is always done: asked for when it is switched off
  };
  Kind kind;
  const Missing* missing;  // of product, setting, always
  bool is_available() const { return missing == nullptr; }
};

struct OptRow {
  const char* name;  // long name, without the dash
  const char* abbr;  // one letter, or empty
  OptKind kind;
  double lo, hi;      // range of each number
  int nmin, nmax;     // number of arguments
  OptTarget target;   // field of the Options; its value before the questions is the default
  std::string deflt;  // the default as the help prints it
  Availability availability;
  Theme theme;
  const char* meaning;  // one line
  // What the shell offers for an argument: file patterns ("*.las *.laz", "*" for any file) or words.
  const char* complete = "";
};

// All rows, in the order in which they are asked.
std::vector<OptRow> option_rows(Options& o);
}  // namespace veld
