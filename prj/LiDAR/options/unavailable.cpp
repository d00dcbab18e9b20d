#include "prj/LiDAR/options/unavailable.h"

#include <algorithm>

#include "lib/general/log.h"

namespace veld {
namespace {
struct Unavailable {
  const char* subject;
  const char* reason;
  std::vector<const char*> products;  // asked for by any value but "off"
  std::vector<const char*> settings;  // of such products: asked for whenever they are given
  std::vector<const char*> fixed;     // always done: asked for when they are switched off
};

const std::vector<Unavailable>& table() {
  static const std::vector<Unavailable> list = {
      {"maps and plots",
       "maps and plots are not drawn",
       {"map", "jpeg", "tiff", "ascii", "plot", "dmap", "rmap", "zmap", "smap", "dz16", "dz_mix", "vmap_rgb",
        "vmap_max", "wf", "empty"},
       {"map_size", "quality", "dz_color",   "z_color",    "r_color",      "v_color", "d_color",
        "dz_range", "d_range", "dz_range_1", "dz16_range", "dz16_range_1", "v_range", "v_range_1",
        "u_range",  "z_range", "z_min",      "z_cyc",      "vmap_sep",     "p_inv",   "h_log",
        "p_range",  "h_range", "p_size",     "h_size"},
       {}},
      {"fast QC maps", "maps are not drawn", {"fastqc"}, {}, {}},
      {"footprints", "footprints of swaths are not written", {"fp"}, {}, {}},
      {"control points",
       "control points are not read",
       {"gcp", "xyz_gcp", "gcp_grp", "ogcp_pc", "ogcp_tin", "json"},
       {"gcp_parse", "gcp_check", "gcp_last", "gcp_sigma", "gcp_equal", "gcp_r_max", "gcp_d_min", "gcp_out",
        "gcp_dz", "xyz_gcp_parse", "xyz_gcp_check", "xyz_gcp_sxy", "xyz_gcp_sz", "xyz_gcp_equal",
        "xyz_gcp_corr"},
       {}},
      {"undo", "no undo data are written or applied", {"undo", "oundo"}, {}, {}},
      {"trajectory files",
       "trajectories are not written",
       {"opo", "oposeg", "ocorr", "plot_po", "porec"},
       {"po_sub"},
       {}},
      {"cutting",
       "swaths are not cut by lines",
       {"cut"},
       {"cut_gap", "keep_turns", "cut_yaw", "cut_dist", "cut_dist_max", "cut_res", "cut_buf"},
       {}},
      {"splitting",
       "swaths are not split into channels or beams",
       {"split", "splitgrp", "osplit", "split_mount", "beam_param", "beam_calib_corr"},
       {"merge"},
       {}},
      {"manual corrections",
       "corrections by hand are not applied",
       {"shift_corr", "calib_corr", "t_corr"},
       {"shift"},
       {}},
      {"attributes",
       "times, angles and user data of points are not rewritten",
       {"ot", "oa", "oi", "op"},
       {},
       {}},
      {"other outputs", "swaths without a correction are not copied", {"corr_all"}, {}, {}},
      {"pulse files", "pulse files are not written", {"opls", "oplz"}, {}, {}},
      {"output tiles",
       "corrected points are not written by tiles",
       {"otile"},
       {"otile_origin", "otile_id", "otile_buf"},
       {}},
      {"gridded tiles",
       "gridded tiles are not exported",
       {"ogtile", "ogtile_corr", "ogtile_tiff", "ogtile_ref"},
       {},
       {}},
      {"transects",
       "transects are not exported",
       {"xzview", "yzview", "trans_x", "trans_y", "trans_z"},
       {"vgsd"},
       {}},
      {"regions", "points are not filtered by a map or a box", {"drop_map", "bbox_x", "bbox_y"}, {}, {}},
      {"initial calibration", "the inversion starts from zero", {"calib_param"}, {}, {}},
      {"blending",
       "remaining residuals are not spread over the swaths",
       {"warp", "blend"},
       {"warp_gsd", "blend_ch", "blend_ics", "blend_ref", "blend_soft"},
       {}},
      {"geoid grid", "geoid grids are not read", {"geoid"}, {}, {}},
      {"POF trajectories", "POF files are not read", {}, {"pof_unit", "pof_info"}, {}},
      {"order of tiling", "references are always tiled after the mobile swaths", {}, {"tile2"}, {}},
      {"units of reports", "reports are always in metres", {}, {}, {"out_metre"}},
      {"RMS of the geometry", "the check of the geometry always reports its RMS", {}, {}, {"ics_rms"}},
  };
  return list;
}

bool has(const std::vector<const char*>& names, const std::string& name) {
  return std::any_of(names.begin(), names.end(), [&](const char* n) { return name == n; });
}

bool holds(const Unavailable& u, const std::string& option) {
  return has(u.products, option) || has(u.settings, option) || has(u.fixed, option);
}

void report(const std::string& option, const Unavailable& u) {
  ERROR_MSG("option -" << option << " is not available yet: " << u.reason);
}

// The value that switches an option off: empty, or zero.
bool is_off(const OptTarget& target) {
  return std::visit(
      [](const auto* value) {
        using T = std::decay_t<decltype(*value)>;
        if constexpr (std::is_arithmetic_v<T>)
          return *value == T(0);
        else
          return value->empty();
      },
      target);
}

// Calls visit(row, entry, whether the value asks for what is missing) for each option of the table.
template <typename F>
void for_each_unavailable(const Options& o, F&& visit) {
  Options values = o;
  for (const OptRow& row : option_rows(values))
    for (const Unavailable& u : table()) {
      if (holds(u, row.name))
        visit(row, u, has(u.settings, row.name) || is_off(row.target) == has(u.fixed, row.name));
    }
}
}  // namespace

bool check_available(const Options& o, const GivenSet& given) {
  bool ok = true;
  for_each_unavailable(o, [&](const OptRow& row, const Unavailable& u, bool asked) {
    if (!asked || !given.count(row.name)) return;
    report(row.name, u);
    ok = false;
  });
  return ok;
}

void report_unavailable(const std::string& option) {
  for (const Unavailable& u : table())
    if (holds(u, option)) report(option, u);
}

bool is_available(const std::string& option) {
  return std::none_of(table().begin(), table().end(), [&](const Unavailable& u) { return holds(u, option); });
}

std::vector<std::string> left_out(const Options& o, const GivenSet& given) {
  std::vector<std::string> subjects;
  for (const Unavailable& u : table()) {
    std::string options;
    for_each_unavailable(o, [&](const OptRow& row, const Unavailable& of, bool asked) {
      if (&of == &u && asked && !has(u.settings, row.name) && !given.count(row.name))
        options += std::string(options.empty() ? "-" : " -") + row.name;
    });
    if (!options.empty()) subjects.push_back(std::string(u.subject) + " (" + options + ")");
  }
  return subjects;
}

void warn_voxel_options(const GivenSet& given) {
  Options o;
  std::string names;
  for (const OptRow& row : option_rows(o))
    if (row.theme == Theme::voxel && given.count(row.name)) names += std::string(" -") + row.name;
  if (!names.empty()) WARNING_MSG("no effect, voxel experiments are not part of this version:" << names);
}
}  // namespace veld
