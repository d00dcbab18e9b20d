#include "prj/LiDAR/options/options.h"

#include "prj/LiDAR/options/option_rows.h"

namespace veld {
const char* theme_title(Theme theme) {
  switch (theme) {
    case Theme::run:
      return "the run";
    case Theme::command:
      return "commands";
    case Theme::input:
      return "swaths";
    case Theme::filter:
      return "filters of points";
    case Theme::tiles:
      return "tiles";
    case Theme::grid:
      return "grids";
    case Theme::registration:
      return "registration";
    case Theme::trajectory:
      return "trajectories";
    case Theme::georef:
      return "georeferencing";
    case Theme::geometry:
      return "sensor geometry";
    case Theme::inversion:
      return "inversion";
    case Theme::correction:
      return "correction";
    case Theme::gcp:
      return "control points";
    case Theme::output:
      return "outputs";
    case Theme::qc:
      return "quality control";
    case Theme::maps:
      return "maps";
    case Theme::split:
      return "split and beams";
    case Theme::cut:
      return "cutting";
    case Theme::voxel:
      return "voxel experiments";
  }
  return "";
}

const char* kind_word(OptKind kind) {
  switch (kind) {
    case OptKind::flag:
      return "flag";
    case OptKind::boolean:
      return "0 or 1";
    case OptKind::integer:
      return "integer";
    case OptKind::real:
      return "number";
    case OptKind::text:
      return "text";
    case OptKind::filename:
      return "file name";
    case OptKind::directory:
      return "directory";
    case OptKind::textlist:
      return "texts";
    case OptKind::intlist:
      return "integers";
    case OptKind::reallist:
      return "numbers";
  }
  return "";
}

std::vector<OptRow> option_rows(Options& o) {
  std::vector<OptRow> rows;
  add_rows_run(o, rows);
  add_rows_input(o, rows);
  add_rows_po(o, rows);
  add_rows_out(o, rows);
  add_rows_map(o, rows);
  add_rows_reg(o, rows);
  add_rows_inv(o, rows);
  return rows;
}
}  // namespace veld
